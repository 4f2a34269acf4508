// Reads the same messages from journal files with the journal's own library (bench/read_whole.py).
//
//   journal_bench MESSAGES FILE...
//
// Measurement: "read" is the time in nanoseconds to read all messages, newest first: time, type, source and
// text of each.

#include <systemd/sd-journal.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "bench/turns.h"
#include "records/log_file_format.h"

namespace {

[[noreturn]] void Fail(const char* what, int result) {
  Bench::Fail(std::string(what) + " failed: " + std::strerror(-result));
}

class Journal {
 public:
  Journal(std::vector<const char*> files, std::size_t messages) : count(messages) {
    files.push_back(nullptr);
    const int result = sd_journal_open_files(&journal, files.data(), 0);
    if (result < 0) Fail("opening", result);
  }
  ~Journal() { sd_journal_close(journal); }
  Journal(const Journal&) = delete;
  Journal& operator=(const Journal&) = delete;

  double Read() {
    std::uint64_t seen = 0;
    std::size_t entries = 0;
    const double spent = Bench::Nanoseconds([&] {
      sd_journal_seek_tail(journal);
      while (sd_journal_previous(journal) > 0) {
        std::uint64_t time = 0;
        sd_journal_get_realtime_usec(journal, &time);
        seen += time + Field("TAMLOG_TYPE") + Field("SYSLOG_IDENTIFIER") + Field("MESSAGE");
        ++entries;
      }
    });
    Bench::sink = Bench::sink + seen;
    if (entries != count) Bench::Fail("entries are missing");
    return spent;
  }

 private:
  std::size_t Field(const char* name) {
    const void* data = nullptr;
    std::size_t size = 0;
    const int result = sd_journal_get_data(journal, name, &data, &size);
    if (result < 0) Fail(name, result);
    std::memcpy(&field, data, std::min(size, sizeof field));
    return size;
  }

  sd_journal* journal = nullptr;
  std::size_t count;
  char field[2 * kTextSize] = {};
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    Bench::Fail("usage: journal_bench MESSAGES FILE...");
  }
  Journal journal({argv + 2, argv + argc}, Bench::NumberIn(argc, argv, 1));
  return Bench::TakeTurns({{"read", [&] { return journal.Read(); }}});
}
