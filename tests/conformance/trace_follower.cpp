// Follows a log through copies of it, for conformance/judge.py: the follower of the client library as a
// program.
//
// usage: trace_follower FILE [--reopened] FILE...
//
// The first FILE is where following begins; each other one is a later visit. After each visit the new
// messages are printed as JSON lines, then the visit itself: conformance/README.md has the form. --reopened:
// the log was closed and opened again before the next visit.

#include <cstddef>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "client/file/log_file_reader.h"
#include "client/format/message_formatter.h"
#include "client/log/log_follower.h"

using namespace TamLogClient;

namespace {

void PrintVisit(std::size_t number, const LogSnapshot& snapshot, const FollowStep& step) {
  FormatOptions options;
  options.format = Format::Json;
  MessageFormatter formatter(options);
  std::string out;
  for (const NewMessage& message : step.messages) {
    formatter.Append(snapshot.slots[message.slot], message.late, out);
  }
  out += R"({"visit":)" + std::to_string(number) + R"(,"lost":{"least":)" + std::to_string(step.loss.least) +
         R"(,"most":)" + (step.loss.most ? std::to_string(*step.loss.most) : "null") + R"(},"cleared":)" +
         (step.cleared ? "true" : "false") + R"(,"rewritten":)" + (step.rewritten ? "true" : "false") + "}\n";
  std::fwrite(out.data(), 1, out.size(), stdout);
}

int Follow(const std::vector<std::string_view>& arguments) {
  LogFollower follower;
  std::size_t visits = 0;
  bool reopened = false;
  bool started = false;
  for (const std::string_view argument : arguments) {
    if (argument == "--reopened") {
      reopened = true;
      continue;
    }
    const LogFileContents file = ReadLogFile(std::string(argument));
    if (file.status != Status::Ok && file.status != Status::Damaged) return 1;
    if (started) {
      PrintVisit(++visits, file.snapshot, follower.Next(file.snapshot, std::exchange(reopened, false)));
    } else {
      follower.Start(file.snapshot);
    }
    started = true;
  }
  return visits > 0 ? 0 : 2;
}

}  // namespace

int main(int count, char** values) {
  return Follow({values + 1, values + count});
}
