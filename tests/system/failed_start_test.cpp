// Tests of paths for the log file with which a server cannot start: refused before they are sent, named after
// a start that failed, put right while the server is stopped. And of what else keeps a server from working:
// a missing driver, names and access lists in the hands of others.

#include "tests/system/administration.h"
#include "util/win32.h"

using namespace std::chrono_literals;

class FailedStart : public Administration {
 protected:
  std::string Quoted(const std::string& name) const { return "\"" + ScratchFile(name) + "\""; }
  void ExpectDiagnostic(const std::string& words) {
    const std::string diagnostics = TakeDiagnostics();
    EXPECT_NE(diagnostics.find(words), std::string::npos) << diagnostics;
  }
};

TEST_F(FailedStart, PathThatNoServerCanUseIsRefusedBeforeItIsSent) {
  RunService();
  WriteWholeFile(ScratchFile("text.dat"), "no log");
  Expect("settings path Q:\\Logs\\Logs.dat --apply", 2, "there is no drive Q:");
  Expect("settings path " + Quoted("none\\Logs.dat") + " --apply", 2, "does not exist; create it: mkdir");
  Expect("settings path " + Quoted("text.dat\\Logs.dat") + " --apply", 2, "is a file, not a directory");
  Expect("settings path \"" + OwnDirectory() + "\" --force", 2, "is a directory");
  Expect("settings path " + Quoted("text.dat"), 2,
         "already exists and is not a log; the server would empty it");
  for (const char* const path : {R"(\\host\share\x.dat)", R"(\\.\pipe\x)", R"(\\?\C:\x.dat)", "C:x.dat"})
    Expect("settings path " + std::string(path) + " --force", 2, path);
  Expect("settings path", 0, logFile);
  EXPECT_FALSE(FileExists(ScratchFile("none")));
}

TEST_F(FailedStart, TriedPathLeavesNoFileBehind) {
  RunService();
  Expect("settings path " + Quoted("new.dat"), 0, "stored");
  EXPECT_FALSE(FileExists(ScratchFile("new.dat")));
}

TEST_F(FailedStart, CapacityWithoutRoomIsRefused) {
  RunService();
  const std::string path = ScratchFile("new.dat");
  ULARGE_INTEGER free{};
  ASSERT_NE(GetDiskFreeSpaceExA(OwnDirectory().c_str(), nullptr, nullptr, &free), 0);
  if (free.QuadPart < LogFileSize(1000000)) {
    Expect("settings set --capacity 1000000", 6, "the server could not start again");
  } else {
    Expect("settings set --capacity 1000000 --no-wait", 0, "");
  }
}

TEST_F(FailedStart, IsNamedWithItsReasonAndPutRightOffline) {
  Settings({});
  const std::string wrong = ScratchFile("none") + "\\Logs.dat";
  ServerRegistry::Write("LogFile", wrong);
  InstallService();
  Expect("server start", 6,
         "the start failed: Failed to open log file, CreateFile() failed - Error code : 3");
  const std::string found = Expect("doctor", 3, "fail  service  the last start failed (");
  EXPECT_NE(found.find("fail  path     " + wrong + ": the directory "), std::string::npos) << found;
  EXPECT_NE(found.find("tamlogctl settings path --offline FILE"), std::string::npos) << found;
  EXPECT_NE(found.find("TamLogServiceLog.txt, "), std::string::npos) << found;
  Expect("settings path --offline", 0, wrong);
  Expect("settings path --offline " + Quoted("none\\other.dat"), 2, "does not exist");
  const std::string right = ScratchFile("right.dat");
  Expect("settings path --offline \"" + right + "\"", 0,
         "stored; start the server with it: tamlogctl server start");
  EXPECT_EQ(ServerRegistry::Text("LogFile"), right);
  ExpectDiagnostic("Failed to open log file");
  Expect("server start", 0, "the server is running");
  AdoptService();
  Expect("doctor", 0, "ok    path     " + right);
  Expect("settings path --offline " + Quoted("again.dat"), 6, "the server is not stopped");
}

// The code page of the tool is UTF-8, that of the server is the machine's.
TEST_F(FailedStart, PathBeyondAsciiIsStoredAsTheServerReadsIt) {
  Settings({});
  InstallService();
  const std::string path = ScratchFile("K\xE4se.dat");
  Expect("settings path --offline \"" + path + "\"", 0, "stored");
  EXPECT_EQ(ServerRegistry::Text("LogFile"), path);
  Expect("server start", 0, "the server is running");
  AdoptService();
  EXPECT_TRUE(FileExists(path));
  Expect("settings path", 0, "K\xC3\xA4se.dat");
  Expect("doctor", 0, "K\xC3\xA4se.dat");
}

TEST_F(FailedStart, LogThatStaysBehindIsNamedWithTheWayBack) {
  RunService();
  Expect("send -s Demo", 0, "", "one\ntwo");
  ASSERT_TRUE(WaitForMessageCount(2, 20s));
  WriteWholeFile(ScratchFile("empty.dat"), "");
  Expect("settings path " + Quoted("empty.dat") + " --apply", 2, "already exists and is empty");
  const std::string output =
      Expect("settings path " + Quoted("empty.dat") + " --apply --force", 0, "is in effect");
  EXPECT_NE(output.find("a log with 2 messages stays at " + logFile), std::string::npos) << output;
  const std::string command = "import \"" + logFile + "\"";
  EXPECT_NE(output.find("tamlogctl " + command), std::string::npos) << output;
  Expect(command, 0, "");
  Expect("show -o cat", 0, "one\ntwo\n");
}

TEST_F(FailedStart, RestartThatFailsIsReportedAtOnce) {
  RunService();
  // Over the pipe anybody may set a path that the tool refuses.
  PipeRequest request{};
  request.code = static_cast<std::uint32_t>(RequestCode::SetLogFile);
  const std::string wrong = ScratchFile("none") + "\\Logs.dat";
  std::copy(wrong.begin(), wrong.end(), reinterpret_cast<char*>(request.bytes));
  ASSERT_EQ(AskForCode(request), ReplyCode::Done);
  const auto begin = std::chrono::steady_clock::now();
  Expect("settings set --types 0", 6, "the start failed: Failed to open log file, CreateFile() failed");
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 30s);
  Expect("doctor", 3, "fail  service  running, but its last restart failed (");
  Expect("server stop", 0, "stopped");
  Expect("settings path --offline " + Quoted("right.dat"), 0, "stored");
  Expect("server start", 0, "running");
  AdoptService();
  ExpectDiagnostic("Failed to open log file");
}

TEST_F(FailedStart, PathOverThePipeIsJudgedByItsTextAlone) {
  RunService();
  PipeRequest request{};
  request.code = static_cast<std::uint32_t>(RequestCode::SetLogFile);
  const std::string network = R"(\\host.invalid\share\Logs.dat)";
  std::copy(network.begin(), network.end(), reinterpret_cast<char*>(request.bytes));
  ASSERT_EQ(AskForCode(request), ReplyCode::Done);
  Expect("doctor", 1, "fail  path     " + network + ": is a network path");
  Expect("settings path", 0, network);
  Expect("settings path " + Quoted("right.dat") + " --apply", 0, "is in effect");
  Expect("doctor", 0, "ok    path");
}

TEST_F(FailedStart, MissingDriverIsNamed) {
  RunService();
  Expect("doctor", 0, "ok    driver   its device exists");
  StopService();
  UnloadDriver();
  Expect("server start", 6, "the start failed: Failed to get access to the Tamlog device driver");
  const std::string found = Expect("doctor", 3, R"(fail  driver   there is no device \\.\TAMLOG)");
  EXPECT_NE(found.find("load the driver, then: tamlogctl server start"), std::string::npos) << found;
  LoadDriver();
  ExpectDiagnostic("Failed to get access to the Tamlog device driver");
}

TEST_F(FailedStart, NameThatAnotherProcessHoldsIsNamedWithItsHolder) {
  Settings({});
  InstallService();
  const OwnedHandle squatted = Own(CreateMutexA(nullptr, FALSE, kReadWaitEventName));
  Expect("server start", 6, "the start failed: ");
  const std::string holder =
      "held by process " + std::to_string(GetCurrentProcessId()) + " (administration_tests.exe)";
  Expect("doctor", 3,
         std::string("fail  names    ") + kReadWaitEventName + " exists although the server does not run; " +
             holder);
  TakeDiagnostics();
}

TEST_F(FailedStart, EventWhoseAccessListWasEmptiedIsNamed) {
  RunService();
  Expect("doctor", 0, "ok    access");
  const OwnedHandle event = Own(OpenEventA(WRITE_DAC, FALSE, kWriteWaitEventName));
  ASSERT_TRUE(event);
  SECURITY_DESCRIPTOR empty{};
  ACL list{};
  ASSERT_NE(InitializeAcl(&list, sizeof(list), ACL_REVISION), 0);
  ASSERT_NE(InitializeSecurityDescriptor(&empty, SECURITY_DESCRIPTOR_REVISION), 0);
  ASSERT_NE(SetSecurityDescriptorDacl(&empty, TRUE, &list, FALSE), 0);
  ASSERT_NE(SetKernelObjectSecurity(event.get(), DACL_SECURITY_INFORMATION, &empty), 0);
  const std::string found = Expect("doctor", 4, std::string("access denied to ") + kWriteWaitEventName);
  EXPECT_NE(found.find("held by process " + std::to_string(GetCurrentProcessId())), std::string::npos)
      << found;
}
