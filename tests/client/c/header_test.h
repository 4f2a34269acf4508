#ifndef TAMLOG_TESTS_CLIENT_C_HEADER_TEST_H
#define TAMLOG_TESTS_CLIENT_C_HEADER_TEST_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The layout of the structures as a C compiler sees it. */
uint32_t tamlog_test_size(int32_t structure);
uint32_t tamlog_test_text_offset(void);
int32_t tamlog_test_init(void);

/* Verifies and repairs as a program in C does. Returns sums of what the callbacks received in
 * `sums`; the result is the status. */
typedef struct tamlog_test_sums {
  uint64_t given;    /* calls */
  uint64_t messages; /* of notes about what was lost */
  uint64_t offsets;
} tamlog_test_sums;
int32_t tamlog_test_verify(const char* path, tamlog_test_sums* sums, uint64_t* damage);
int32_t tamlog_test_repair(const char* path, const char* output, tamlog_test_sums* sums, uint64_t* saved);

#ifdef __cplusplus
}
#endif

#endif
