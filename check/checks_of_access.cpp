// The rights of the server's objects, as docs/security.md states them.

#include <array>

#include "check/checks.h"
#include "check/less_rights.h"
#include "check/system.h"
#include "client/live/log_client.h"
#include "client/live/log_reader.h"
#include "client/message/win32.h"

namespace TamLogCheck {

namespace {

using TamLogClient::Status;

constexpr std::array<const char*, 3> kEvents{kHeaderLockName, kReadWaitEventName, kWriteWaitEventName};
constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

// Opens both pipes, the request pipe first: a client of one alone keeps all others waiting.
struct Pipes {
  explicit Pipes(DWORD extra) {
    Eventually(5000, [&] {
      requests = OpenAt(kRequestPipeName, GENERIC_WRITE | extra, 0);
      return static_cast<bool>(requests) || GetLastError() == ERROR_ACCESS_DENIED;
    });
    requestError = requests ? 0 : GetLastError();
    if (!requests) return;
    Eventually(5000, [&] {
      replies = OpenAt(std::string(kRequestPipeName) + kReplyPipeSuffix, GENERIC_READ | extra, 0);
      return static_cast<bool>(replies) || GetLastError() == ERROR_ACCESS_DENIED;
    });
    replyError = replies ? 0 : GetLastError();
  }

  Handle requests;
  Handle replies;
  std::uint32_t requestError = 0;
  std::uint32_t replyError = 0;
};

std::uint32_t ErrorOf(const Handle& opened) {
  return opened ? 0 : GetLastError();
}

Verdict ListsOfEvents(Session& session) {
  session.Fresh(100);
  Values values;
  bool same = true;
  for (const char* const name : kEvents) {
    const Handle event(OpenEventA(READ_CONTROL, FALSE, name));
    if (!event) Fail(std::string("opening ") + name);
    values.emplace_back(name, AccessListOf(event.Get(), ObjectKind::Kernel));
    same = same && values.back().second == "D:(A;;0x1f0003;;;WD)";
  }
  return HoldsIf(same, "a list is not D:(A;;0x1f0003;;;WD)", values);
}

Verdict KindsOfEvents(Session& session) {
  session.Fresh(100);
  struct EventState {
    LONG type;
    LONG set;
  };
  using QueryEvent = LONG(WINAPI*)(HANDLE, int, void*, ULONG, ULONG*);
  const auto query = reinterpret_cast<QueryEvent>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA("ntdll.dll"), "NtQueryEvent")));
  if (query == nullptr) return NotTried("this system does not report the kind of an event");
  Values values;
  bool right = true;
  for (const char* const name : kEvents) {
    const Handle event(OpenEventA(0x0001, FALSE, name));
    EventState state{};
    if (!event || query(event.Get(), 0, &state, sizeof(state), nullptr) < 0)
      Fail(std::string("asking for ") + name);
    const bool resetsItself = state.type == 1;
    values.emplace_back(name, std::string(resetsItself ? "resets itself" : "is reset by hand") +
                                  (state.set != 0 ? ", signalled" : ", not signalled"));
    right = right && resetsItself == (name == std::string(kHeaderLockName)) && state.set != 0;
  }
  return HoldsIf(right, "an event is of another kind, or not signalled at rest", values);
}

Verdict ListOfTheMapping(Session& session) {
  session.Fresh(100);
  const Handle mapping(OpenFileMappingA(READ_CONTROL, FALSE, kFileMapName));
  if (!mapping) Fail("OpenFileMapping");
  const std::string list = AccessListOf(mapping.Get(), ObjectKind::Kernel);
  return HoldsIf(list == "D:(A;;CCDCLCSWRPSDRCWDWO;;;WD)" || list == "D:(A;;0xf001f;;;WD)", "another list",
                 {{"access list", list}});
}

Verdict ListsOfPipes(Session& session) {
  session.Fresh(100);
  const Pipes pipes(READ_CONTROL);
  if (pipes.requestError != 0) Fail("opening the request pipe", pipes.requestError);
  if (pipes.replyError != 0) Fail("opening the reply pipe", pipes.replyError);
  const std::string requests = AccessListOf(pipes.requests.Get(), ObjectKind::Kernel);
  const std::string replies = AccessListOf(pipes.replies.Get(), ObjectKind::Kernel);
  // The system may write the same rights as letters.
  const auto right = [](const std::string& list) {
    return list == "D:(A;;0x12019f;;;WD)" || list == "D:(A;;FRDCLCRPDTCR;;;WD)";
  };
  return HoldsIf(right(requests) && right(replies), "another list",
                 {{"requests", requests}, {"replies", replies}});
}

Verdict FileInherits(Session& session) {
  session.Fresh(100);
  const std::string otherPath = PathIn(session.Folder(), "other.dat");
  WriteTextFile(otherPath, "another file of the directory");
  const Handle log = OpenAt(session.LogFile(), READ_CONTROL, kShareAll);
  const Handle other = OpenAt(otherPath, READ_CONTROL, kShareAll);
  if (!log || !other) Fail("opening the log file");
  const std::string list = AccessListOf(log.Get(), ObjectKind::File);
  const bool inherited = list.find("(A;;") == std::string::npos;  // each inherited entry carries the flag ID
  const bool same = list == AccessListOf(other.Get(), ObjectKind::File);
  return HoldsIf(inherited || same, "the log file has entries of its own", {{"access list", list}});
}

Verdict UsersReadSettingsOnly(Session& session) {
  session.Fresh(100);
  Values values{{"access list", SettingsAccessList()}};
  const LessRights asUser(LessRights::Kind::OrdinaryUser);
  const std::uint32_t error = TryToOpenSettingsForWriting();
  return HoldsIf(error == ERROR_ACCESS_DENIED, "opening the key for writing: " + ErrorText(error), values);
}

Verdict UsersSendAndRead(Session& session) {
  session.Fresh(100);
  const LessRights asUser(LessRights::Kind::OrdinaryUser);
  SubmitAll("ordinary user", 5);
  const bool read = WaitForTexts("ordinary user", 5);
  return HoldsIf(read, "an ordinary user does not read what it has sent");
}

Verdict UsersDoNotChangeThePipes(Session& session) {
  session.Fresh(100);
  const LessRights asUser(LessRights::Kind::OrdinaryUser);
  const Pipes pipes(WRITE_DAC);
  return HoldsIf(pipes.requestError == ERROR_ACCESS_DENIED,
                 "opening the request pipe to change its list: " + ErrorText(pipes.requestError));
}

Verdict LowIntegrityDoesNotSend(Session& session) {
  session.Fresh(100);
  Values values;
  std::uint32_t pipe = 0;
  std::uint32_t event = 0;
  std::uint32_t mapping = 0;
  std::uint32_t reading = 0;
  {
    const LessRights low(LessRights::Kind::LowIntegrity);
    pipe = Pipes(0).requestError;
    event = ErrorOf(Handle(OpenEventA(EVENT_MODIFY_STATE, FALSE, kReadWaitEventName)));
    mapping = ErrorOf(Handle(OpenFileMappingA(FILE_MAP_WRITE, FALSE, kFileMapName)));
    reading = ErrorOf(Handle(OpenFileMappingA(FILE_MAP_READ, FALSE, kFileMapName)));
  }
  values.emplace_back("mapping for reading", ErrorText(reading));
  return HoldsIf(
      pipe == ERROR_ACCESS_DENIED && event == ERROR_ACCESS_DENIED && mapping == ERROR_ACCESS_DENIED,
      "opening for writing: pipe " + ErrorText(pipe) + ", event " + ErrorText(event) + ", mapping " +
          ErrorText(mapping),
      values);
}

}  // namespace

const std::vector<Check>& ChecksOfAccess() {
  static const std::vector<Check> kChecks{
      {"access.lists-of-events", "The list of each event has one entry, which grants everyone 0x1f0003.",
       Needs::Server, ListsOfEvents},
      {"access.kinds-of-events", "The header lock resets itself, the other two events are reset by hand.",
       Needs::Server, KindsOfEvents},
      {"access.list-of-the-mapping", "The list of the mapping has one entry, which grants everyone 0xf001f.",
       Needs::Server, ListOfTheMapping},
      {"access.lists-of-pipes", "The list of both pipes has one entry, which grants everyone 0x12019f.",
       Needs::Server, ListsOfPipes},
      {"access.file-inherits", "The log file has the rights of its directory.", Needs::Server, FileInherits},
      {"access.users-read-settings-only", "An ordinary user cannot write the settings in the registry.",
       Needs::Server, UsersReadSettingsOnly},
      {"access.users-send-and-read", "An ordinary user sends messages and reads the log.", Needs::Server,
       UsersSendAndRead},
      {"access.users-do-not-change-the-pipes", "An ordinary user cannot change the access list of a pipe.",
       Needs::Server, UsersDoNotChangeThePipes},
      {"access.low-integrity-does-not-send",
       "A process of low integrity opens neither the request pipe nor an event or the mapping for writing.",
       Needs::Server, LowIntegrityDoesNotSend},
  };
  return kChecks;
}

}  // namespace TamLogCheck
