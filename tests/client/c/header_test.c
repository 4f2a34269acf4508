/* Compiled as C99 with every warning: the header is C, and its structures have the layout that other
 * languages declare. */

#include "tests/client/c/header_test.h"

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
    case 3:
      return (uint32_t)sizeof(tamlog_finding);
    case 4:
      return (uint32_t)sizeof(tamlog_verify_result);
    case 5:
      return (uint32_t)sizeof(tamlog_repair_note);
    case 6:
      return (uint32_t)sizeof(tamlog_repair_result);
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

static int32_t TAMLOG_CALL take_finding(void* context, const tamlog_finding* finding) {
  tamlog_test_sums* sums = (tamlog_test_sums*)context;
  sums->given += 1;
  sums->offsets += finding->offset;
  return 0;
}

int32_t tamlog_test_verify(const char* path, tamlog_test_sums* sums, uint64_t* damage) {
  tamlog_verify_options options;
  tamlog_verify_result result;
  int32_t status;
  TAMLOG_INIT(&options);
  TAMLOG_INIT(&result);
  memset(sums, 0, sizeof(*sums));
  options.found = take_finding;
  options.context = sums;
  status = tamlog_verify_file(path, &options, &result);
  *damage = result.damage;
  return status;
}

static int32_t TAMLOG_CALL take_note(void* context, const tamlog_repair_note* note) {
  tamlog_test_sums* sums = (tamlog_test_sums*)context;
  sums->given += 1;
  sums->offsets += note->offset;
  if (note->saved == 0) sums->messages += note->messages;
  return 0;
}

int32_t tamlog_test_repair(const char* path, const char* output, tamlog_test_sums* sums, uint64_t* saved) {
  tamlog_repair_options options;
  tamlog_repair_result result;
  int32_t status;
  TAMLOG_INIT(&options);
  TAMLOG_INIT(&result);
  memset(sums, 0, sizeof(*sums));
  options.note = take_note;
  options.context = sums;
  status = tamlog_repair_file(path, output, &options, &result);
  *saved = result.saved;
  return status;
}
