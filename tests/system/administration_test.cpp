// Tests of tamlogctl's administrative commands against the real service: filters, settings, clearing, control
// of the service, and the diagnosis of a server that a dead reader blocks.

#include <cstddef>
#include <cstring>
#include <filesystem>

#include "tests/system/administration.h"
#include "util/win32.h"

// Requires windows.h.
#include <aclapi.h>

#undef StartService  // would rename the fixture's operation

using namespace std::chrono_literals;

TEST_F(Administration, FiltersAreListedTestedAndRemovedOneByOne) {
  RunService();
  Expect("filter list", 0, "rule: every source is kept");
  Expect("filter add -x Heartbeat -x Poll", 0, "");
  Expect("filter list", 0, "  2  exclude  Poll\n");
  Expect("filter test heart 1", 1, "type 1  dropped by exclude filter 'Heartbeat' (1)");
  Expect("filter test Camera", 0, "type 3  kept: no filter matches");
  Expect("filter remove 1", 0, "messages that arrived meanwhile were filtered by a partial list");
  Expect("filter list -o tsv", 0, "exclude\tPoll\n");
  Expect("filter remove -x Heartbeat", 1, "there is no exclude filter 'Heartbeat'");
  Expect("filter remove 7", 1, "there is no filter 7");
  Expect("filter add -x POLL -x Laser -x Laser", 0, "'POLL' is already a filter; not added again");
  Expect("filter list -o tsv", 0, "exclude\tPoll\nexclude\tLaser\n");
  Expect("filter remove 2", 0, "");
  Expect("filter add -i C", 0, "very short");
  Expect("filter list", 0, "exclude  Poll  (ignored while there are include filters)");
  Expect("filter test Poll 0", 1, "dropped: no include filter matches");
  Expect("filter set -", 0, "'laser' occurs twice; stored once", "include\tLaser\ninclude\tlaser\n");
  Expect("filter list -o tsv", 0, "include\tLaser\n");
  Expect("filter clear", 0, "");
  Expect("filter", 0, "rule: every source is kept\n");
}

TEST_F(Administration, EmptyFilterIsRefusedUnlessItIsAllowed) {
  RunService();
  Expect("filter add -x Good -x \"\"", 2,
         "every message would be dropped; it usually comes from an unset variable");
  Expect("filter set -", 2, "add --allow-empty", "exclude\t\n");
  Expect("filter list", 0, "rule: every source is kept\n");
  Expect("filter add -x \"\" --allow-empty", 0, "matches every source");
  Expect("filter test Camera 1", 1, "dropped by exclude filter ''");
  Expect("filter remove -x \"\"", 0, "");
  Expect("filter list", 0, "rule: every source is kept\n");
}

TEST_F(Administration, WhatWouldHarmTheServerIsRefusedBeforeItIsSent) {
  RunService();
  Expect("filter add -x Good -x " + std::string(128, 'f'), 2, "128 bytes, 127 are allowed");
  Expect("filter list", 0, "rule: every source is kept\n");
  Expect("settings path C:\\" + std::string(253, 'p'), 2, "256 bytes, 255 are allowed");
  Expect("settings path Logs.dat", 2,
         "is not an absolute path of a drive; expected a file on a drive of this machine");
  Expect("settings set --poll 0", 2, "--poll");
  Expect("settings set -", 2, "poll_ms: expected a number from 1", "{\"poll_ms\":0}");
  Expect("settings set", 2, "name a setting to change");
  Expect("clear", 2, "add --yes");
}

TEST_F(Administration, FilterThatWouldEndTheServerIsNotAskedFor) {
  Settings({});
  ServerRegistry::WriteFilter("Filters0", "e" + std::string(130, 'f'));
  InstallService();
  StartService();
  Expect("filter list", 6, "a stored filter has 130 bytes");
  Expect("doctor", 1, "fail  filters  one has 130 bytes");
  Expect("status", 0, "filters   unknown");
  EXPECT_TRUE(ServiceProcess().Alive());
}

TEST_F(Administration, ConfirmSaysWhatBecameOfTheMessage) {
  RunService({.typeFilter = 7});
  Expect("send --confirm -s Camera hello", 0, "stored as 0");
  Expect("send --confirm -s Camera -t 3 hello", 1, "dropped by type: 3 is switched off");
  Expect("filter add -x Cam", 0, "");
  Expect("send --confirm -s Camera hello", 1, "dropped by exclude filter 'Cam' (1)");
}

TEST_F(Administration, LargerCapacitySavesTheMessagesAndSendsThemAgain) {
  RunService({.maxMessage = 20});
  const std::string input = "one\ntwo\nthree\nfour\nfive";
  Expect("send -s Demo", 0, "", input);
  ASSERT_TRUE(WaitForMessageCount(5, 20s));
  const std::string backup = ScratchFile("saved.dat");
  Expect("settings set --capacity 40 --backup \"" + backup + "\"", 0, "capacity 40 requested, 40 in effect");
  Expect("show -o cat", 0, "one\ntwo\nthree\nfour\nfive\n");
  Expect("show -o cat --file \"" + backup + "\"", 0, "one\ntwo\nthree\nfour\nfive\n");
  Expect("settings get -o json", 0, "\"capacity_in_effect\": 40");
  Expect("settings set --capacity 40", 0, "nothing to change");
  EXPECT_EQ(CurrentSettings().devicePollRate, 100U);  // settings that were not named stay
  Expect("clear --yes --backup \"" + backup + "\"", 2, "saved.dat: already exists; give another name");
  ASSERT_TRUE(WaitForMessageCount(5, 20s));
  Expect("clear --yes --backup \"" + backup + "2\"", 0, "emptied");
  Expect("show -o cat --file \"" + backup + "2\"", 0, "one\ntwo\nthree\nfour\nfive\n");
  EXPECT_EQ(Header().messageCount, 0);
  Expect("doctor", 0, "ok    section");
}

TEST_F(Administration, SmallerCapacityNamesTheWayBack) {
  RunService({.maxMessage = 40});
  Expect("send -s Demo", 0, "", "one\ntwo\nthree");
  ASSERT_TRUE(WaitForMessageCount(3, 20s));
  const std::string backup = ScratchFile("saved.dat");
  Expect("settings set --capacity 20 --backup \"" + backup + "\"", 0,
         "the log is empty now; it had 3 messages; to bring them back: tamlogctl import \"" + backup + "\"");
  EXPECT_EQ(Header().messageCount, 0);
  Expect("import \"" + backup + "\"", 0, "");
  Expect("show -o cat", 0, "one\ntwo\nthree\n");
  Expect("settings set --capacity 30 --no-keep --no-backup", 0, "they were not saved (--no-backup)");
  EXPECT_EQ(Header().messageCount, 0);
}

TEST_F(Administration, EverySettingThatChangedIsReported) {
  RunService();
  const std::string output = Expect("settings set --types 0,1 --save 301", 0, "types 0,1,2,3 -> 0,1\n");
  EXPECT_NE(output.find("save 300 s -> 301 s\n"), std::string::npos) << output;
  EXPECT_EQ(output.find("capacity"), std::string::npos) << output;
  Expect("settings", 0, "types     0,1\n");
}

// A reader that keeps the log open across a restart makes the server continue with the old section, which has
// the old size.
TEST_F(Administration, SenderThatConfirmsDoesNotHoldTheLogWhileItWaitsForItsNextLine) {
  RunService({.maxMessage = 40});
  ChildProcess sender("\"" + OwnDirectory() + "\\tamlogctl.exe\" send -s Demo --confirm");
  sender.WriteLine("one");
  const auto stored = sender.ReadLine(20s);
  ASSERT_TRUE(stored);
  EXPECT_NE(stored->find("stored as"), std::string::npos) << *stored;
  Expect("settings set --capacity 20 --no-backup", 0, "capacity 20 requested, 20 in effect");
  sender.WriteLine("two");
  auto after = sender.ReadLine(20s);
  // It may report first that it waits for the server.
  if (after && after->find("waiting for the server") != std::string::npos) after = sender.ReadLine(20s);
  ASSERT_TRUE(after);
  EXPECT_NE(after->find("stored as"), std::string::npos) << *after;
  sender.CloseInput();
  EXPECT_EQ(sender.WaitForEnd(20s), 0U);
}

TEST_F(Administration, FollowerWhoseOutputIsNotTakenLetsGoOfTheLogAtARestart) {
  RunService({.maxMessage = 2000});
  std::string input;
  for (int i = 0; i < 1500; ++i) input += std::string(250, 'x') + (i < 1499 ? "\n" : "");
  Expect("send -s Demo", 0, "", input);
  ASSERT_TRUE(WaitForMessageCount(1500, 20s));
  ChildProcess follower("\"" + OwnDirectory() + "\\tamlogctl.exe\" follow -n all");
  ASSERT_TRUE(follower.ReadLine(20s));  // it writes more than a pipe holds, and nobody reads it
  Expect("settings set --capacity 1000 --no-backup", 0, "capacity 1000 requested, 1000 in effect");
  follower.Kill();
}

TEST_F(Administration, StoredPathIsAppliedBeforeACapacityThatAFollowerCouldHoldUp) {
  RunService({.maxMessage = 400});
  Expect("send -s Demo one", 0, "");
  ASSERT_TRUE(WaitForMessageCount(1, 20s));
  ChildProcess follower("\"" + OwnDirectory() + "\\tamlogctl.exe\" follow");
  ASSERT_TRUE(follower.ReadLine(20s));
  const std::string path = ScratchFile("moved.dat");
  Expect("settings path \"" + path + "\"", 0, "stored");
  Expect("settings set --capacity 200 --no-backup", 0, "capacity 200 requested, 200 in effect");
  Expect("settings path", 0, path);
  follower.Kill();
}

// After a change of path the server does not wait for readers: it closes its log and reopens it at once.
TEST_F(Administration, ChangesOfPathAreSeenWhileTheLogIsNotHeldOpenOverThem) {
  RunService();
  Expect("send -s Demo one", 0, "");
  ASSERT_TRUE(WaitForMessageCount(1, 20s));
  for (const char* const name : {"first.dat", "second.dat", "third.dat"}) {
    const std::string path = ScratchFile(name);
    Expect("settings path \"" + path + "\" --apply", 0, "in effect");
    Expect("settings path", 0, path);
    Expect("show --file \"" + path + "\" -o cat", 0, "one\n");
  }
  Expect("show -o cat", 0, "one\n");
}

TEST_F(Administration, ServiceIsInstalledStartedLookedAtStoppedAndRemoved) {
  Expect("server state", 3, "not installed");
  Expect("server start", 3, "the service is not installed; as an administrator: tamlogctl server install");
  Expect("server stop", 3, "server stop: the service is not installed\n");
  Expect("server remove", 3, "server remove: the service is not installed\n");
  Expect("doctor", 3, "warn  service  not installed");
  Settings({});
  Expect("server install --program C:\\none.exe", 6, "'C:\\none.exe' cannot be run: ");
  const bool isInOwnDirectory = ServerPath() == OwnDirectory() + "\\TamLogServer.exe";
  Expect(isInOwnDirectory ? "server install" : "server install --program \"" + ServerPath() + "\"", 0,
         "start it: tamlogctl server start");
  Expect("server install", 2, "already installed");
  EXPECT_EQ(ServiceControl::Registration().value().commandLine, '"' + ServerPath() + '"');
  Expect("server", 1, "stopped");
  Expect("server start", 0, "the server is running");
  AdoptService();
  Expect("server state", 0, "running, process ");
  Expect("doctor --restore-rights", 0, "done: every user may start and stop the service");
  Expect("status", 0, "capacity 100 requested, 100 in effect");
  Expect("send --time !2026,13,40,25,0,0,0 -s Demo odd --confirm", 0, "stored as");
  Expect("status -o json", 0, "\"newest\": null");
  Expect("status -o json", 0, "\"newest_words\": [");
  Expect("server stop", 0, "the server is stopped");
  Expect("doctor", 3, "fail  service  installed, but stopped");
  Expect("server remove", 0, "the service is removed");
  Expect("server state", 3, "not installed");
}

// The service would run, as local system, any program that they put there.
TEST_F(Administration, InstallingAProgramThatOthersMayChangeIsWarnedOf) {
  Settings({});
  UseCopyOfServer();
  const std::string install = "server install --program \"" + ServerPath() + "\"";
  const std::string output = Expect(install, 0, "start it");
  EXPECT_EQ(output.find("warning"), std::string::npos) << output;
  Expect("server remove", 0, "removed");
  std::string path = ServerPath();
  ASSERT_EQ(SetNamedSecurityInfoA(path.data(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr,
                                  nullptr, nullptr),
            ERROR_SUCCESS);
  Expect(install, 0,
         "warning: " + path + " can be changed or replaced by Everyone, and runs as local system");
  Expect("server remove", 0, "removed");
}

// All slots hold the same message of zeros, so that the file takes no room on the disk.
TEST_F(Administration, HealthyServerWithAMillionMessagesIsHealthy) {
  constexpr std::int32_t kMessages = 1000000;
  Settings({.maxMessage = kMessages});
  LogFileHeader header{};
  header.messageCount = header.maxMessages = kMessages;
  WriteWholeFile(logFile, std::string(reinterpret_cast<const char*>(&header), sizeof(header)));
  std::filesystem::resize_file(logFile, LogFileSize(kMessages));
  InstallService();
  StartService();
  ASSERT_EQ(Header().messageCount, kMessages);
  Expect("doctor", 0, "ok    header   1000000 of 1000000 messages");
  Expect("doctor", 0, "ok    read     the newest messages were copied in ");
}

TEST_F(Administration, StopOfAServiceThatIsRemovedMeanwhileEndsAtOnce) {
  RunService();
  ReaderProcess reader("hold", ScratchFile("held"));
  ASSERT_EQ(reader.NextLine(), "holding");
  ChildProcess stop("\"" + OwnDirectory() + "\\tamlogctl.exe\" server stop --wait 120");
  ASSERT_TRUE(Eventually(20s, [] { return ServiceControl::State() == ServiceState::StopPending; }));
  ASSERT_EQ(ServiceControl::Delete(), 0U);
  const auto exitCode = stop.WaitForEnd(40s);
  ASSERT_TRUE(exitCode);
  EXPECT_TRUE(*exitCode == 0 || *exitCode == 3) << *exitCode;
  reader.Kill();
  ServiceProcess().WaitForEnd(30s);
  TakeDiagnostics();
}

TEST_F(Administration, DoctorSeesAReaderThatDiedInsideAndUnsticksTheServer) {
  RunService();
  SubmitOverPipe(Message("before", 0));
  ExpectTexts({"before"});
  Expect("doctor", 0, "ok    readers  none is stuck");
  KillAReaderInside();
  SubmitOverPipe(Message("held up", 1));
  const std::string found = Expect("doctor", 1, "readCount is 1 and has not changed for ");
  EXPECT_NE(found.find(" s: a reader died or hangs"), std::string::npos) << found;
  Expect("doctor -o json --watch 500", 1, "\"check\": \"readers\",\n      \"state\": \"fail\"");
  EXPECT_EQ(TextsOfFile(), std::vector<std::string>{"before"});
  Expect("doctor --unstick", 1, "unstick: set readCount to 0");
  ExpectTexts({"held up", "before"});
  Expect("doctor", 0, "ok    readers  none is stuck");
  SubmitOverPipe(Message("after", 2));
  ExpectTexts({"after", "held up", "before"});
}

TEST_F(Administration, UnstickBeforeAnythingIsPendingLeavesNoCountBehind) {
  RunService();
  KillAReaderInside();
  Expect("doctor --unstick", 1, "the server will wait for it at the next message");
  EXPECT_EQ(Header().readCount, 0);
  Expect("status", 0, "running");  // runs one reader that enters and leaves
  SubmitOverPipe(Message("after", 0));
  ExpectTexts({"after"});
}

TEST_F(Administration, UnstickDoesNothingWhereNothingIsStuck) {
  RunService();
  SubmitOverPipe(Message("one", 0));
  ExpectTexts({"one"});
  Expect("doctor --unstick", 0, "unstick: nothing is stuck; nothing was done");
}

// Every user may create instances of the pipes. Clients get those of both processes in turn.
TEST_F(Administration, DoctorNamesAProcessThatOffersThePipeWhileTheServiceServesItToo) {
  RunService();
  const OwnedHandle offered = Own(CreateNamedPipeA(kRequestPipeName, PIPE_ACCESS_INBOUND, PIPE_TYPE_MESSAGE,
                                                   PIPE_UNLIMITED_INSTANCES, 4096, 4096, 0, nullptr));
  ASSERT_TRUE(offered);
  Expect("doctor", 1,
         "fail  pipe     served by process " + std::to_string(GetCurrentProcessId()) +
             " (administration_tests.exe), which is not the service");
  // The server still serves the clients that reach it.
  EXPECT_EQ(AskForCode(RequestOf(RequestCode::Ping)), ReplyCode::Alive);
}

// The events outlive the reader, because another program has them open.
TEST_F(Administration, DoctorUnsticksAStartThatWaitsForAReaderThatDied) {
  RunService();
  SubmitOverPipe(Message("kept", 0));
  ExpectTexts({"kept"});
  StopService();
  const OwnedHandle headerLock = Own(CreateEventA(nullptr, FALSE, FALSE, kHeaderLockName));
  const OwnedHandle readWait = Own(CreateEventA(nullptr, TRUE, TRUE, kReadWaitEventName));
  const OwnedHandle writeWait = Own(CreateEventA(nullptr, TRUE, TRUE, kWriteWaitEventName));
  ASSERT_TRUE(headerLock && readWait && writeWait);
  const std::uint32_t starts = Starts();
  ASSERT_EQ(ServiceControl::Start(), 0U);
  OwnedHandle mapping;
  ASSERT_TRUE(Eventually(20s, [&mapping] {
    mapping = Own(OpenFileMappingA(FILE_MAP_READ | FILE_MAP_WRITE, FALSE, kFileMapName));
    return mapping != nullptr;
  }));
  auto* const view = static_cast<std::byte*>(
      MapViewOfFile(mapping.get(), FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, kSlotsOffset));
  ASSERT_NE(view, nullptr);
  Expect("doctor --timeout 1000", 1, "fail  lock     the header lock was not free for 1 s: its holder died");

  // The server's check waits for the lock. The reader counts itself in and dies.
  constexpr std::int32_t kOneInside = 1;
  std::memcpy(view + offsetof(LogFileHeader, readCount), &kOneInside, sizeof(kOneInside));
  UnmapViewOfFile(view);
  mapping.reset();
  ResetEvent(writeWait.get());
  SetEvent(headerLock.get());
  EXPECT_FALSE(Eventually(1s, [] { return ServiceControl::State() == ServiceState::Running; }));
  Expect("doctor --timeout 1000", 1, "a reader died or hangs; the server waits for it and does not start");
  Expect("doctor --timeout 1000 --unstick", 1,
         "unstick: set readCount to 0 and signalled the write-wait event");
  AdoptService();
  WaitForStarts(starts + 1);
  SubmitOverPipe(Message("after", 1));
  ExpectTexts({"after"});  // the check gives up a log with a reader inside
}

// A server that cannot create its pipes starts without them.
TEST_F(Administration, DoctorSaysWhenNoInstanceOfThePipeBecomesFree) {
  Settings({});
  InstallService();
  const OwnedHandle squatted = Own(
      CreateNamedPipeA(kRequestPipeName, PIPE_ACCESS_INBOUND, PIPE_TYPE_MESSAGE, 1, 4096, 4096, 0, nullptr));
  ASSERT_TRUE(squatted);
  const OwnedHandle only =
      Own(CreateFileA(kRequestPipeName, GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
  ASSERT_TRUE(only);
  // Without --wait it waits a minute for an answer.
  Expect("server start --wait 3", 5,
         "the service is running, but does not answer yet; see: tamlogctl doctor");
  Expect("doctor", 1,
         "fail  pipe     busy all the time, and the server waits for no client: another process");
  Expect("server stop --wait 30", 0, "stopped");
}

TEST_F(Administration, DoctorSeesABlockedListenerAndFreesIt) {
  RunService();
  ServerConnection half;
  ASSERT_TRUE(Eventually(20s, [&half] { return half.OpenRequestPipe() == 0; }));
  Expect("doctor --timeout 1000", 1, "fail  pipe     busy all the time");
  Expect("doctor --timeout 1000 --unstick", 1, "unstick: opened and closed the reply pipe");
  Expect("doctor", 0, "ok    pipe     answers");
}
