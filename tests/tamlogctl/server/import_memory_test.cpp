// Files of any size are imported in little memory. A program of its own, because the peak is that of the
// process.

#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/server/import_reader.h"
#include "tests/support/peak_memory.h"
#include "tests/support/temp_dir.h"

// The sanitizer keeps 256 MB of released memory otherwise.
extern "C" const char* __asan_default_options();
extern "C" const char* __asan_default_options() {
  return "quarantine_size_mb=1";
}

namespace {

constexpr std::size_t kLines = 100000;

// A file: its beginning, what stands before and after the text of each message, and its end.
struct Form {
  const char* name;
  const char* head;
  const char* before;
  const char* after;
  const char* tail;
};

std::string TextOf(std::size_t number) {
  return std::to_string(number) + std::string(60, 'x');
}

class ImportMemory : public testing::TestWithParam<Form> {};

TEST_P(ImportMemory, IsBoundedForAnyNumberOfMessages) {
  static const std::size_t atStart = TestSupport::PeakMemory();
  const TestSupport::TempDir folder;
  const std::string path = folder.File(GetParam().name);
  {
    std::ofstream file(path, std::ios::binary);
    file << GetParam().head;
    for (std::size_t i = 0; i < kLines; ++i) file << GetParam().before << TextOf(i) << GetParam().after;
    file << GetParam().tail;
  }
  TamLogCtl::MessageSpool messages;
  TamLogCtl::ImportChoice choice;
  choice.once = true;
  ASSERT_EQ(ReadImports({path}, choice, messages), TamLogCtl::kDone);
  ASSERT_GE(messages.Size(), kLines);
  EXPECT_EQ(std::string(messages.At(kLines - 1).text), TextOf(kLines - 1));
  EXPECT_LT(TestSupport::PeakMemory() - atStart, 32U << 20U) << "the messages have 55 MB";
}

INSTANTIATE_TEST_SUITE_P(
    Formats, ImportMemory,
    testing::Values(Form{"a.log", "", "2026-01-02 03:04:05 ", "\n", ""},
                    Form{"a.csv", "time,text\n", "2026-01-02 03:04:05,", "\n", ""},
                    Form{"a.tsv", "", "2026-01-02 03:04:05.000\t0\tSource\t", "\n", ""},
                    Form{"a.json", "", "{\"time\":\"2026-01-02T03:04:05.000\",\"text\":\"", "\"}\n", ""},
                    Form{"b.json", "[", "{\"time\":\"2026-01-02T03:04:05.000\",\"text\":\"", "\"},",
                         "{\"time\":\"2026-01-02T03:04:05.000\",\"text\":\"end\"}]"},
                    Form{"a.txt", "", "__REALTIME_TIMESTAMP=1700000000000000\nMESSAGE=", "\n\n", ""}));

}  // namespace
