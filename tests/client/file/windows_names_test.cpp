#include "client/file/windows_names.h"

#include <gtest/gtest.h>

#include "client/file/atomic_file.h"
#include "tests/support/temp_dir.h"

namespace {

using TamLogClient::NamesNoOrdinaryFile;

TEST(WindowsNames, DevicesPipesAndStreamsAreNoOrdinaryFiles) {
  for (const char* const path : {"NUL",           "nul.txt",
                                 "C:\\Logs\\con", "COM1",
                                 "lpt9.log",      "aux ",
                                 "prn .x",        "com\xC2\xB2",
                                 "CONIN$",        "a/nul/b",
                                 R"(\\.\pipe\x)", R"(\\.\PhysicalDrive0)",
                                 "//./nul",       R"(\\?\GLOBALROOT\Device\Null)",
                                 R"(\\?\pipe\x)", R"(\\?\C:\a.log:b)",
                                 "a.log:b",       "C:\\a.log:b",
                                 "C:a:b",         "dir:x\\a"}) {
    EXPECT_TRUE(NamesNoOrdinaryFile(path)) << path;
  }
}

TEST(WindowsNames, AllOthersMayBe) {
  for (const char* const path : {"",
                                 "a.log",
                                 "C:\\Logs\\Logs.dat",
                                 "C:a.log",
                                 "C:",
                                 "C:\\",
                                 "\\",
                                 "..\\a",
                                 "com",
                                 "com0",
                                 "com10",
                                 "lpt",
                                 "console",
                                 "null",
                                 "nul1",
                                 "a.nul",
                                 R"(\\server\share\a.log)",
                                 R"(\\?\C:\a.log)",
                                 R"(\\?\UNC\server\share\a)",
                                 R"(\\?\unc\server\share\a)",
                                 "//",
                                 "\xC3\xA4.log"}) {
    EXPECT_FALSE(NamesNoOrdinaryFile(path)) << path;
  }
}

// Elsewhere these are names like any others.
TEST(WindowsNames, OutputToOneIsRefusedOnWindows) {
  const TestSupport::TempDir folder;
  for (const char* const name : {"nul.txt", "a.log:b"}) {
    TamLogClient::AtomicFile file;
    EXPECT_EQ(file.Open(folder.File(name), true) == TamLogClient::Status::NotAFile,
              TamLogClient::kWindowsNames)
        << name;
  }
}

}  // namespace
