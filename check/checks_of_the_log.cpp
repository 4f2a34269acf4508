// Messages from the sender to the reader, and the log across restarts, with and without readers.

#include <algorithm>

#include "check/checks.h"
#include "check/child.h"
#include "check/pipe_claims.h"
#include "check/system.h"
#include "client/file/log_file_image.h"
#include "client/file/log_file_verify.h"
#include "client/live/log_client.h"
#include "client/live/log_reader.h"
#include "client/message/win32.h"

namespace TamLogCheck {

namespace {

using TamLogClient::FilterEntry;
using TamLogClient::LogClient;
using TamLogClient::Status;

constexpr int kChanges = 8;

void MustBeOk(Status status, const std::string& doing) {
  if (status != Status::Ok) throw std::runtime_error(doing + ": " + TamLogClient::StatusText(status));
}

void SetCapacity(std::uint32_t capacity) {
  LogClient client;
  SettingsBody settings{};
  MustBeOk(client.GetSettings(settings), "reading the settings");
  settings.maxMessage = capacity;
  MustBeOk(client.SetSettings(settings), "writing the settings");
}

// Returns the capacity of the shared log; 0 when none is shared.
std::int32_t SharedCapacity() {
  TamLogClient::LogReader reader;
  LogFileHeader header{};
  return reader.Open() == Status::Ok && reader.Look(header) == Status::Ok ? header.maxMessages : 0;
}

Verdict PipesHoldTheirClaims(Session& session) {
  session.Fresh(100);
  ClaimList claims;
  if (!RunPipeClaims(claims)) return Differs("no server has its pipes open");
  Values values;
  std::string failed;
  for (const Claim& claim : claims) {
    values.emplace_back(claim.name, claim.holds ? "holds" : "FAILS: " + claim.about);
    if (!claim.holds) failed += " " + claim.name;
  }
  return HoldsIf(failed.empty() && claims.size() > 20, "these claims fail:" + failed, values);
}

Verdict SentIsRead(Session& session) {
  constexpr std::uint32_t kMessages = 1000;
  session.Fresh(2 * kMessages);
  const std::uint64_t begin = Ticks();
  SubmitAll("sent", kMessages);
  const std::uint64_t sent = Ticks() - begin;
  WaitForTexts("sent", kMessages);
  const std::vector<std::string> texts = SharedTexts("sent");
  Values values{{"ms", std::to_string(sent)}, {"read", std::to_string(texts.size())}};
  for (std::uint32_t i = 0; i < kMessages; ++i) {
    if (i >= texts.size() || texts[i] != "text " + std::to_string(i)) {
      return Differs("message " + std::to_string(i) + " is missing or not in its place", values);
    }
  }
  return Holds(values);
}

Verdict BytesAreKept(Session& session) {
  session.Fresh(100);
  std::string bytes;
  for (int byte = 1; byte < 256; ++byte) bytes += static_cast<char>(byte);
  LogClient client;
  MustBeOk(client.Submit(MessageOf("bytes", bytes)), "sending");
  WaitForTexts("bytes", 1);
  const std::vector<std::string> texts = SharedTexts("bytes");
  return HoldsIf(texts.size() == 1 && texts[0] == bytes, "the text was changed");
}

// Returns the fault of the closed log file; empty when it has none.
std::string FaultOfFile(const std::string& path, std::int32_t messages) {
  const std::string bytes = ReadTextFile(path);
  const TamLogClient::LogFileImage image(bytes);
  const TamLogClient::VerifyReport report = TamLogClient::VerifyLogFile(image);
  if (report.Damage() > 0) return "the file is damaged: " + std::string(RuleName(report.findings[0].rule));
  if (!report.Accepted()) return "a server would empty the file";
  if (report.header.messageCount != messages) {
    return "the file has " + std::to_string(report.header.messageCount) + " messages instead of " +
           std::to_string(messages);
  }
  return "";
}

Verdict FileAfterAStop(Session& session) {
  session.Fresh(300);
  SubmitAll("file", 200);
  WaitForTexts("file", 200);
  session.Stop();
  const std::string fault = FaultOfFile(session.LogFile(), 200);
  return HoldsIf(fault.empty() && SizeOf(session.LogFile()) == LogFileSize(300),
                 fault.empty() ? "another size" : fault,
                 {{"bytes", std::to_string(SizeOf(session.LogFile()))}});
}

Verdict FileIsShared(Session& session) {
  session.Fresh(100);
  constexpr DWORD kAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
  const Handle alone = OpenAt(session.LogFile(), GENERIC_READ, 0);
  const std::uint32_t aloneError = alone ? 0 : GetLastError();
  const Handle copying = OpenAt(session.LogFile(), GENERIC_READ, kAll);
  const std::uint32_t copyingError = copying ? 0 : GetLastError();
  const std::uint32_t deleting = DeleteFileA(session.LogFile().c_str()) != 0 ? 0 : GetLastError();
  return HoldsIf(aloneError == ERROR_SHARING_VIOLATION && copyingError == 0 && deleting != 0,
                 "opening it alone: " + ErrorText(aloneError) + ", for copying: " + ErrorText(copyingError) +
                     ", deleting it: " + ErrorText(deleting));
}

Verdict StopIsFastWhileMapped(Session& session) {
  session.Fresh(100);
  Child reader(PartCommand("map"));
  if (reader.ReadLine(15000) != "ready") return NotTried("the reader does not map the log");
  const std::uint64_t took = session.Stop();
  return HoldsIf(took < 8000, "the stop took " + std::to_string(took) + " ms",
                 {{"stop_ms", std::to_string(took)}});
}

// A program that examines each file for a moment, as virus scanners do, only delays a stop.
Verdict StopWaitsForAnOpenFile(Session& session) {
  session.Fresh(100);
  SubmitAll("scanned", 10);
  WaitForTexts("scanned", 10);
  constexpr std::uint64_t kOpenMs = 3000;
  Child scanner(PartCommand("open " + std::to_string(kOpenMs) + " \"" + session.LogFile() + "\""));
  if (scanner.ReadLine(15000) != "ready") return NotTried("the file cannot be opened");
  const std::uint64_t took = session.Stop();
  Values values{{"open_ms", std::to_string(kOpenMs)}, {"stop_ms", std::to_string(took)}};
  if (took + 1000 < kOpenMs)
    return Differs("the stop did not wait for a program that has the file open", values);
  const std::string fault = FaultOfFile(session.LogFile(), 10);
  return HoldsIf(took < kOpenMs + 8000 && fault.empty(), fault.empty() ? "the stop took longer" : fault,
                 values);
}

Verdict ChangesWithAReader(Session& session, bool growing) {
  session.Fresh(growing ? 100 : 2000);
  Child reader(PartCommand("follow"));
  if (!reader.ReadLine(15000)) return NotTried("the reader does not open the log");
  std::int32_t capacity = SharedCapacity();
  std::uint64_t longest = 0;
  for (int i = 0; i < kChanges; ++i) {
    capacity += growing ? 100 : -100;
    longest = std::max(
        longest, session.OverRestart([capacity] { SetCapacity(static_cast<std::uint32_t>(capacity)); }));
    if (!Eventually(5000, [capacity] { return SharedCapacity() == capacity; })) {
      return Differs("change " + std::to_string(i + 1) + " left a log of " +
                     std::to_string(SharedCapacity()) + " messages instead of " + std::to_string(capacity));
    }
  }
  SubmitAll("after", 5);
  WaitForTexts("after", 5);
  Eventually(1500, [] { return false; });  // the reader looks at the log ten times a second
  reader.CloseInput();
  const std::string output = reader.ReadAll(10000);
  return HoldsIf(
      output.find("messages ") != std::string::npos && output.find("messages 0") == std::string::npos,
      "the reader no longer follows: " + output,
      {{"changes", std::to_string(kChanges)}, {"longest_pause_ms", std::to_string(longest)}});
}

Verdict GrowsWithAReader(Session& session) {
  return ChangesWithAReader(session, true);
}

Verdict ShrinksWithAReader(Session& session) {
  return ChangesWithAReader(session, false);
}

Verdict MovesWithAReader(Session& session) {
  session.Fresh(100);
  SubmitAll("moved", 20);
  WaitForTexts("moved", 20);
  Child reader(PartCommand("follow"));
  if (!reader.ReadLine(15000)) return NotTried("the reader does not open the log");
  const std::string other = PathIn(session.Folder(), "moved.dat");
  session.OverRestart([&other] {
    LogClient client;
    MustBeOk(client.SetLogFile(other), "setting the path");
    SettingsBody settings{};
    MustBeOk(client.GetSettings(settings), "reading the settings");
    MustBeOk(client.SetSettings(settings), "writing the settings");
  });
  const bool kept = WaitForTexts("moved", 20);
  return HoldsIf(kept && Exists(other) && !Exists(session.LogFile()),
                 "the log was not moved with its messages");
}

Verdict FiltersKeepTheirOrder(Session& session) {
  session.Fresh(100);
  LogClient client;
  std::vector<std::string> wanted;
  for (int i = 0; i < 12; ++i) {
    wanted.push_back("filter " + std::to_string(i));
    MustBeOk(client.AddFilter({wanted.back(), true}), "adding a filter");
  }
  client.Disconnect();
  session.Stop();
  session.Start();
  std::vector<FilterEntry> found;
  MustBeOk(client.GetFilters(found), "reading the filters");
  std::string order;
  bool same = found.size() == wanted.size();
  for (std::size_t i = 0; i < found.size(); ++i) {
    order += found[i].text + ", ";
    same = same && found[i].text == wanted[i];
  }
  return HoldsIf(same, "after a restart: " + order);
}

Verdict KillKeepsWhatWasWritten(Session& session) {
  constexpr int kKills = 3;
  session.Fresh(20000);
  Values values;
  for (int i = 0; i < kKills; ++i) {
    const std::string source = "kill " + std::to_string(i);
    SubmitAll(source, 100);
    if (!WaitForTexts(source, 100)) return Differs("the messages did not reach the log", values);
    Child load(PartCommand("submit"));
    load.ReadLine(5000);
    Eventually(700, [] { return false; });
    session.Kill();
    load.Kill();
    const std::string bytes = ReadTextFile(session.LogFile());
    const TamLogClient::LogFileImage image(bytes);
    const bool accepted = TamLogClient::VerifyLogFile(image).Accepted();
    // The manager may have started the server by itself.
    if (!Eventually(8000, [&session] { return session.Alive(); })) session.Start();
    Eventually(30000, [] { return SharedCapacity() > 0; });
    const std::size_t left = SharedTexts(source).size();
    values.emplace_back(source, std::to_string(left) + " of 100 kept" + (accepted ? "" : ", inside a write"));
    if (accepted && left != 100) return Differs("messages of a sound file are missing", values);
  }
  return Holds(values);
}

}  // namespace

const std::vector<Check>& ChecksOfTheLog() {
  static const std::vector<Check> kChecks{
      {"pipe.claims", "A running server behaves as docs/pipe_protocol.md says, claim by claim.",
       Needs::Minutes, PipesHoldTheirClaims},
      {"log.sent-is-read", "A thousand messages that are sent are read back, all of them and in order.",
       Needs::Server, SentIsRead},
      {"log.bytes-are-kept", "All bytes but zero are stored unchanged, whatever the code page is.",
       Needs::Server, BytesAreKept},
      {"log.file-after-a-stop", "After a stop the file breaks no rule, and holds every message.",
       Needs::Server, FileAfterAStop},
      {"log.file-is-shared", "The file of a running server can be copied, and neither locked nor deleted.",
       Needs::Server, FileIsShared},
      {"log.stop-is-fast-while-mapped", "A stop does not wait for a program that only has the file mapped.",
       Needs::Server, StopIsFastWhileMapped},
      {"log.stop-waits-for-an-open-file",
       "A stop waits until another program closes the file, and loses nothing.", Needs::Server,
       StopWaitsForAnOpenFile},
      {"log.grows-with-a-reader", "The capacity grows while tamlogctl follows the log.", Needs::Minutes,
       GrowsWithAReader},
      {"log.shrinks-with-a-reader", "The capacity shrinks while tamlogctl follows the log.", Needs::Minutes,
       ShrinksWithAReader},
      {"log.moves-with-a-reader", "The log is moved to another path while tamlogctl follows it.",
       Needs::Server, MovesWithAReader},
      {"log.filters-keep-their-order", "Twelve filters have the same order after a restart.", Needs::Server,
       FiltersKeepTheirOrder},
      {"log.kill-keeps-what-was-written",
       "A server whose process is ended under load keeps what it had written, unless it was inside a write.",
       Needs::Server, KillKeepsWhatWasWritten},
  };
  return kChecks;
}

const std::vector<Check>& ChecksByAPerson() {
  static const std::vector<Check> kChecks{
      {"person.shutdown", "A shutdown of the machine loses at most what was sent in its last moments.",
       Needs::Person, nullptr,
       "send messages, shut the machine down, start it, and look for them with tamlogctl show"},
      {"person.power-failure", "After a power failure the log has what was forced to disk, or is empty.",
       Needs::Person, nullptr, "only by switching a machine off"},
      {"person.sleep", "After sleep the driver is read and the file is forced to disk at once.",
       Needs::Person, nullptr,
       "put the machine to sleep for ten minutes, wake it, and run this program again: "
       "system.ticks-count-sleep"},
      {"person.network-path",
       "A network path for the log makes the server connect with the machine's account.", Needs::Person,
       nullptr, "it would touch another machine"},
      {"person.disk-full", "On a full disk server and sending continue, and written messages stay.",
       Needs::Person, nullptr, "it would fill a disk; put the log on a small volume and fill that"},
      {"person.failed-upgrade", "A failed upgrade by the MSI brings the old version back.", Needs::Person,
       nullptr, "it needs two versions of the MSI; docs/windows.md has the steps"},
      {"person.upgrade-with-a-follower",
       "An upgrade by the MSI does not restart the machine, and tamlogctl follow continues.", Needs::Person,
       nullptr,
       "run tamlogctl follow in a console and msiexec /i NEW.msi /qn in another one; the exit code is 0 or "
       "3010"},
      {"person.slow-stop",
       "A stop during a restart that hangs takes at most 25 s, and the manager reports no error.",
       Needs::Person, nullptr,
       "it keeps the service busy for a minute and needs three programs; see docs/windows.md"},
  };
  return kChecks;
}

std::vector<Check> AllChecks() {
  std::vector<Check> all;
  for (const auto* const group : {&ChecksOfTheSystem(), &ChecksOfTheService(), &ChecksOfAccess(),
                                  &ChecksOfTheLog(), &ChecksByAPerson()}) {
    all.insert(all.end(), group->begin(), group->end());
  }
  return all;
}

}  // namespace TamLogCheck
