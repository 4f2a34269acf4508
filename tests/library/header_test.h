#ifndef TAMLOG_TESTS_LIBRARY_HEADER_TEST_H
#define TAMLOG_TESTS_LIBRARY_HEADER_TEST_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* What a C compiler makes of the structures. */
uint32_t tamlog_test_size(int32_t structure);
uint32_t tamlog_test_text_offset(void);
int32_t tamlog_test_init(void);

#ifdef __cplusplus
}
#endif

#endif
