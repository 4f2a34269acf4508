// A reader as a separate process, started by tests: ACTION MAP HEADER_LOCK READ_WAIT WRITE_WAIT.
//
//   map           maps the file and stays until it is killed
//   stay          takes read access and stays until it is killed
//   die           takes read access and ends inside
//   expect:TEXT   ends with 0 when the newest message has that text

#include <string>

#include "tests/store/messages.h"
#include "tests/store/test_reader.h"
#include "util/win32.h"

namespace {

constexpr DWORD kLongestStayMs = 60000;
constexpr int kBadUsage = 2;
constexpr int kNoAccess = 3;

int Act(const std::string& action, StoreTest::TestReader& reader) {
  if (action == "map") {
    Sleep(kLongestStayMs);
    return 0;
  }
  if (!reader.Enter(kLongestStayMs)) return kNoAccess;
  if (action == "die") ExitProcess(0);
  if (action == "stay") Sleep(kLongestStayMs);
  const auto messages = reader.Messages();
  reader.Leave();
  const std::string newest = messages.empty() ? "" : StoreTest::TextOf(messages.front().body);
  return "expect:" + newest == action ? 0 : 1;
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 6) return kBadUsage;
  StoreTest::TestReader reader(
      {.map = arguments[2], .headerLock = arguments[3], .readWait = arguments[4], .writeWait = arguments[5]});
  return Act(arguments[1], reader);
}
