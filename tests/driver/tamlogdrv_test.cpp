// The real executable with arguments, standard input and exit code.

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "driver/driver_double.h"
#include "util/win32.h"

namespace {

std::string Directory() {
  const std::string path = DriverDouble::PathBesideExecutable();
  return path.substr(0, path.rfind('\\') + 1);
}

struct Outcome {
  DWORD exitCode = 0;
  std::string output;  // standard output and error together
};

// A file that can be a standard handle of a child process.
HANDLE OpenInheritable(const std::string& path, DWORD access, DWORD disposition) {
  SECURITY_ATTRIBUTES inherit{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
  return CreateFileA(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherit, disposition,
                     FILE_ATTRIBUTE_NORMAL, nullptr);
}

std::string ReadWhole(const std::string& path) {
  std::ifstream file(path);  // text mode: CR LF becomes LF
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

Outcome Tool(const std::string& arguments, const std::string& input = "") {
  std::array<char, MAX_PATH> temporary{};
  GetTempPathA(MAX_PATH, temporary.data());
  const std::string base =
      std::string(temporary.data()) + "tamlogdrv_" + std::to_string(GetCurrentProcessId());
  std::ofstream(base + ".in", std::ios::binary) << input;

  STARTUPINFOA start{};
  start.cb = sizeof(start);
  start.dwFlags = STARTF_USESTDHANDLES;
  start.hStdInput = OpenInheritable(base + ".in", GENERIC_READ, OPEN_EXISTING);
  start.hStdOutput = OpenInheritable(base + ".out", GENERIC_WRITE, CREATE_ALWAYS);
  start.hStdError = start.hStdOutput;
  PROCESS_INFORMATION process{};
  std::string command = "\"" + Directory() + "tamlogdrv.exe\" " + arguments;
  Outcome outcome;
  const BOOL created =
      CreateProcessA(nullptr, command.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &start, &process);
  EXPECT_TRUE(created) << command << ": " << GetLastError();
  if (created != 0) {
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(process.hProcess, 30000));
    GetExitCodeProcess(process.hProcess, &outcome.exitCode);
    CloseHandle(process.hProcess);
    CloseHandle(process.hThread);
  }
  CloseHandle(start.hStdInput);
  CloseHandle(start.hStdOutput);
  outcome.output = ReadWhole(base + ".out");
  DeleteFileA((base + ".in").c_str());
  DeleteFileA((base + ".out").c_str());
  return outcome;
}

bool Says(const Outcome& outcome, const std::string& text) {
  return outcome.output.find(text) != std::string::npos;
}

TEST(DriverTool, InstallsPutsCountsAndRemoves) {
  DriverDouble::Remove();
  EXPECT_EQ(0U, Tool("install \"" + DriverDouble::PathBesideExecutable() + "\"").exitCode);
  const Outcome put =
      Tool("put", "2026-01-02 03:04:05\t1\tCamera\topen\n2026-01-02 03:04:06.007\t2\tStage\tmoved\n");
  EXPECT_EQ(0U, put.exitCode) << put.output;
  EXPECT_TRUE(Says(put, "Handed 2 messages to the driver.")) << put.output;
  EXPECT_TRUE(Says(Tool("counts"), "queued  2\nserved  0\nfailed  0\n"));

  DriverDouble driver;
  LogMessageBody body{};
  ASSERT_TRUE(driver.Get(body));
  EXPECT_STREQ("Camera", body.source);
  ASSERT_TRUE(driver.Get(body));
  EXPECT_STREQ("moved", body.text);
  EXPECT_EQ(7, body.timestamp[6]);

  EXPECT_EQ(0U, Tool("remove").exitCode);
  EXPECT_EQ(3U, Tool("remove").exitCode);
}

TEST(DriverTool, ReadsAFile) {
  LoadedDriverDouble loaded;
  const std::string file = Directory() + "tamlogdrv_lines_" + std::to_string(GetCurrentProcessId()) + ".tsv";
  std::ofstream(file, std::ios::binary) << "2026-01-02 03:04:05\t1\tCamera\topen\x1A door\n";
  EXPECT_EQ(0U, Tool("put \"" + file + "\"").exitCode);
  DeleteFileA(file.c_str());
  LogMessageBody body{};
  ASSERT_TRUE(DriverDouble().Get(body));
  EXPECT_STREQ("open\x1A door", body.text);
}

TEST(DriverTool, SetsAndEndsAFailure) {
  LoadedDriverDouble loaded;
  DriverDouble driver;
  driver.Put(std::vector<LogMessageBody>(1));
  EXPECT_EQ(0U, Tool("fail 0xC0000001").exitCode);
  LogMessageBody body{};
  EXPECT_FALSE(driver.Get(body));
  EXPECT_EQ(0U, Tool("fail 0").exitCode);
  EXPECT_TRUE(driver.Get(body));
}

TEST(DriverTool, ResetEmptiesTheDriver) {
  LoadedDriverDouble loaded;
  DriverDouble driver;
  driver.Put(std::vector<LogMessageBody>(3));
  EXPECT_EQ(0U, Tool("reset").exitCode);
  EXPECT_EQ(0U, driver.Counters().queued);
}

TEST(DriverTool, WithoutTheDriverEveryCommandThatNeedsItExitsWith3) {
  DriverDouble::Remove();
  for (const char* command : {"put", "fail 0", "counts", "reset"}) {
    const Outcome outcome = Tool(command);
    EXPECT_EQ(3U, outcome.exitCode) << command;
    EXPECT_TRUE(Says(outcome, "the driver is not loaded")) << outcome.output;
  }
}

TEST(DriverTool, AFaultyLineIsNamedAndNothingIsSent) {
  LoadedDriverDouble loaded;
  const std::string lines =
      "2026-01-02 03:04:05\t1\tCamera\tok\n2026-01-02 03:04:05\t1\tCamera\t" + std::string(257, 'x');
  const Outcome refused = Tool("put", lines);
  EXPECT_EQ(2U, refused.exitCode);
  EXPECT_TRUE(
      Says(refused, "standard input, line 2: the text has 257 bytes; at most 256 fit (--truncate cuts it)"))
      << refused.output;
  EXPECT_EQ(0U, DriverDouble().Counters().put);
  EXPECT_EQ(0U, Tool("put --truncate -", lines).exitCode);
  EXPECT_EQ(2U, DriverDouble().Counters().put);
}

TEST(DriverTool, WrongUsageExitsWith2) {
  LoadedDriverDouble loaded;
  for (const char* arguments :
       {"", "frobnicate", "install", "install a b", "remove x", "put --fast", "put a b", "fail", "fail x",
        "fail 1", "fail 0x", "fail 0x1FFFFFFFF", "counts x", "reset x"}) {
    EXPECT_EQ(2U, Tool(arguments).exitCode) << arguments;
  }
}

TEST(DriverTool, FilesThatCannotBeReadExitWith8) {
  LoadedDriverDouble loaded;
  const Outcome put = Tool(R"(put Z:\no\such\file.tsv)");
  EXPECT_EQ(8U, put.exitCode);
  EXPECT_TRUE(Says(put, R"(cannot open "Z:\no\such\file.tsv")")) << put.output;
  EXPECT_EQ(8U, Tool(R"(install Z:\no\such\driver.sys)").exitCode);
}

TEST(DriverTool, HelpSaysWhatItIsForAndExitsWith0) {
  const Outcome help = Tool("help");
  EXPECT_EQ(0U, help.exitCode);
  EXPECT_TRUE(Says(help, "It is for development, demonstration and tests."));
}

}  // namespace
