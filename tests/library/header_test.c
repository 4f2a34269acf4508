/* Compiled as C99 with every warning: the header is C, and its structures lie as other languages declare
 * them. */

#include "tests/library/header_test.h"

#include <stddef.h>
#include <tamlog.h>

uint32_t tamlog_test_size(int32_t structure) {
  switch (structure) {
    case 0:
      return (uint32_t)sizeof(tamlog_message);
    case 1:
      return (uint32_t)sizeof(tamlog_entry);
    case 2:
      return (uint32_t)sizeof(tamlog_item);
    default:
      return 0;
  }
}

uint32_t tamlog_test_text_offset(void) {
  return (uint32_t)offsetof(tamlog_message, text);
}

int32_t tamlog_test_init(void) {
  tamlog_sender_options options;
  TAMLOG_INIT(&options);
  return options.size == sizeof(options) && options.overflow == 0 && options.pipe_name == NULL;
}
