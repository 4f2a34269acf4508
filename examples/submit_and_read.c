/* Submits one message to the log server and shows the newest five of its log, or those of a file:
 *   submit_and_read [FILE] */

#include <stdio.h>
#include <tamlog.h>

static int fail(const char* doing, tamlog_status status) {
  fprintf(stderr, "submit_and_read: %s: %s\n", doing, tamlog_status_text(status));
  return 1;
}

static tamlog_status submit(void) {
  tamlog_client* client = NULL;
  tamlog_entry entry;
  tamlog_status status = tamlog_client_open(NULL, &client);
  if (status != TAMLOG_OK) return status;
  TAMLOG_INIT(&entry);
  entry.type = 1;
  entry.source = "Example.C";
  entry.text = "submitted by the example in C";
  status = tamlog_client_submit(client, &entry);
  tamlog_client_close(client);
  return status;
}

static void show_newest(const tamlog_reader* reader, uint32_t wanted) {
  const uint32_t count = tamlog_reader_count(reader);
  uint32_t index = count > wanted ? count - wanted : 0;
  tamlog_message message;
  char line[8192];
  TAMLOG_INIT(&message);
  for (; tamlog_reader_get_message(reader, index, &message) == TAMLOG_OK; ++index) {
    if (tamlog_format(&message, TAMLOG_FORMAT_SHORT, 0, line, sizeof(line), NULL) == TAMLOG_OK) {
      fputs(line, stdout);
    }
  }
}

/* Waits until the log has our message: the server writes what it accepted five times a second. */
static tamlog_status wait_for_ours(tamlog_reader* reader) {
  int looks = 0;
  tamlog_status status = TAMLOG_OK;
  tamlog_item item;
  TAMLOG_INIT(&item);
  while (looks < 20 && status != TAMLOG_NOT_RUNNING) {
    status = tamlog_reader_next(reader, 200, &item);
    if (status == TAMLOG_OK && item.kind == TAMLOG_ITEM_MESSAGE &&
        strcmp(item.message.source, "Example.C") == 0) {
      return TAMLOG_OK;
    }
    ++looks;
  }
  return TAMLOG_TIMED_OUT;
}

int main(int argc, char** argv) {
  tamlog_reader* reader = NULL;
  tamlog_status status = TAMLOG_OK;
  if (argc > 2) {
    fputs("usage: submit_and_read [FILE]\n", stderr);
    return 2;
  }
  status = argc > 1 ? tamlog_reader_open_file(argv[1], &reader) : tamlog_reader_open_live(NULL, &reader);
  if (status == TAMLOG_DAMAGED) {
    fprintf(stderr, "submit_and_read: damaged: %s\n", tamlog_reader_remark(reader));
  } else if (status != TAMLOG_OK) {
    return fail("opening the log", status);
  }
  if (argc == 1) {
    status = submit();
    if (status == TAMLOG_OK) status = wait_for_ours(reader);
    if (status == TAMLOG_OK) status = tamlog_reader_snapshot(reader, 5000);
    if (status != TAMLOG_OK) {
      tamlog_reader_close(reader);
      return fail("submitting", status);
    }
  }
  show_newest(reader, 5);
  tamlog_reader_close(reader);
  return 0;
}
