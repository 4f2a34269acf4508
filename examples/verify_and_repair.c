/* Shows what is wrong with a log file, and saves what can be read of it into another file:
 *   verify_and_repair FILE [OUTPUT]
 * Exits with 0 when a server accepts FILE as it is, with 1 when it does not, and with 2 for an error. */

#include <inttypes.h>
#include <stdio.h>
#include <tamlog.h>

static int fail(const char* file, tamlog_status status) {
  fprintf(stderr, "verify_and_repair: %s: %s\n", file, tamlog_status_text(status));
  return 2;
}

static void print_slot(uint32_t slot) {
  if (slot != TAMLOG_NO_SLOT) printf(" slot %" PRIu32, slot);
}

static int32_t TAMLOG_CALL show_finding(void* context, const tamlog_finding* finding) {
  (void)context;
  printf("%s %s:", finding->damage != 0 ? "damage" : "remark", finding->name);
  print_slot(finding->slot);
  printf(" byte %" PRIu64 ": %s, allowed: %s\n", finding->offset, finding->seen, finding->allowed);
  return 0;
}

static int32_t TAMLOG_CALL show_note(void* context, const tamlog_repair_note* note) {
  (void)context;
  printf("%s:", note->saved != 0 ? "changed" : "lost");
  print_slot(note->slot);
  printf(" byte %" PRIu64 ": %s\n", note->offset, note->text);
  return 0;
}

static tamlog_status repair(const char* file, const char* output) {
  tamlog_repair_options options;
  tamlog_repair_result result;
  tamlog_status status;
  TAMLOG_INIT(&options);
  TAMLOG_INIT(&result);
  options.flags = TAMLOG_REPAIR_CARVE;
  options.note = show_note;
  status = tamlog_repair_file(file, output, &options, &result);
  if (status == TAMLOG_OK) {
    printf("saved %" PRIu64 ", lost %" PRIu64 "; a server keeps them at a capacity of %" PRIu32 "\n",
           result.saved, result.lost, result.capacity);
  }
  return status;
}

int main(int argc, char** argv) {
  tamlog_verify_options options;
  tamlog_verify_result result;
  tamlog_status status;
  if (argc < 2 || argc > 3) {
    fputs("usage: verify_and_repair FILE [OUTPUT]\n", stderr);
    return 2;
  }
  TAMLOG_INIT(&options);
  TAMLOG_INIT(&result);
  options.found = show_finding;
  status = tamlog_verify_file(argv[1], &options, &result);
  if (status != TAMLOG_OK && status != TAMLOG_DAMAGED) return fail(argv[1], status);
  printf("damage %" PRIu64 ", remarks %" PRIu64 "\n", result.damage, result.remarks);
  if (argc == 3) {
    status = repair(argv[1], argv[2]);
    if (status != TAMLOG_OK) return fail(argv[2], status);
  }
  return result.accepted != 0 ? 0 : 1;
}
