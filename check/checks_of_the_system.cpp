// The behaviour of Windows on which server and tools rely, tried on objects of this program. Needs neither a
// server nor administrator rights.

#include <array>
#include <cstring>
#include <thread>

#include "check/checks.h"
#include "check/less_rights.h"
#include "check/system.h"
#include "client/message/win32.h"

// Requires windows.h.
#include <sddl.h>

namespace TamLogCheck {

namespace {

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

std::string NameOfOwn(const std::string& kind) {
  return "tamlogcheck-" + kind + "-" + std::to_string(GetCurrentProcessId());
}

// A file in the temporary directory, deleted at the end.
class TemporaryFile {
 public:
  explicit TemporaryFile(std::uint32_t bytes) {
    std::array<char, 512> directory{};
    if (GetTempPathA(static_cast<DWORD>(directory.size()), directory.data()) == 0) Fail("GetTempPath");
    path = directory.data() + NameOfOwn("file");
    const Handle file(CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE, kShareAll, nullptr,
                                  CREATE_ALWAYS, 0, nullptr));
    if (!file ||
        SetFilePointer(file.Get(), static_cast<LONG>(bytes), nullptr, FILE_BEGIN) ==
            INVALID_SET_FILE_POINTER ||
        SetEndOfFile(file.Get()) == 0) {
      Fail("creating " + path);
    }
  }
  ~TemporaryFile() { DeleteFileA(path.c_str()); }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  Handle Open(DWORD sharing = kShareAll) const { return OpenAt(path, GENERIC_READ | GENERIC_WRITE, sharing); }

 private:
  std::string path;
};

// A view of a file; the handles of file and mapping are closed.
class View {
 public:
  View(const TemporaryFile& file, const char* name) {
    const Handle open = file.Open();
    const Handle mapping(CreateFileMappingA(open.Get(), nullptr, PAGE_READWRITE, 0, 0, name));
    if (!mapping) Fail("CreateFileMapping");
    view = MapViewOfFile(mapping.Get(), FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, 0);
    if (view == nullptr) Fail("MapViewOfFile");
  }
  ~View() { UnmapViewOfFile(view); }
  View(const View&) = delete;
  View& operator=(const View&) = delete;

  char* Bytes() const { return static_cast<char*>(view); }

 private:
  void* view = nullptr;
};

// An access list for Everyone.
class ListForEveryone {
 public:
  explicit ListForEveryone(const std::string& rights) {
    if (ConvertStringSecurityDescriptorToSecurityDescriptorA(("D:(A;;" + rights + ";;;WD)").c_str(),
                                                             SDDL_REVISION_1, &descriptor, nullptr) == 0) {
      Fail("ConvertStringSecurityDescriptorToSecurityDescriptor");
    }
    attributes = {sizeof(attributes), descriptor, FALSE};
  }
  ~ListForEveryone() { LocalFree(descriptor); }
  ListForEveryone(const ListForEveryone&) = delete;
  ListForEveryone& operator=(const ListForEveryone&) = delete;

  SECURITY_ATTRIBUTES* Get() { return &attributes; }

 private:
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  SECURITY_ATTRIBUTES attributes{};
};

std::uint32_t ErrorOf(const Handle& opened) {
  return opened ? 0 : GetLastError();
}

Verdict MappedFileIsFree(Session&) {
  const TemporaryFile file(65536);
  const View view(file, nullptr);
  const Handle alone = file.Open(0);
  const std::uint32_t error = ErrorOf(alone);
  return HoldsIf(error == 0, "opening it without sharing failed with " + ErrorText(error));
}

Verdict MappedFileKeepsItsSize(Session&) {
  const TemporaryFile file(65536);
  const View view(file, nullptr);
  const Handle open = file.Open();
  SetFilePointer(open.Get(), 4096, nullptr, FILE_BEGIN);
  const std::uint32_t error = SetEndOfFile(open.Get()) != 0 ? 0 : GetLastError();
  return HoldsIf(error == ERROR_USER_MAPPED_FILE, "SetEndOfFile: " + ErrorText(error));
}

Verdict SectionLivesOn(Session&) {
  const TemporaryFile file(65536);
  const std::string name = "Local\\" + NameOfOwn("section");
  const View view(file, name.c_str());
  const Handle open = file.Open();
  SetLastError(0);
  const Handle again(CreateFileMappingA(open.Get(), nullptr, PAGE_READWRITE, 0, 0, name.c_str()));
  // The name is gone with the last handle; a view alone keeps the bytes, not the name.
  const std::uint32_t withView = GetLastError();
  SetLastError(0);
  const Handle third(CreateFileMappingA(open.Get(), nullptr, PAGE_READWRITE, 0, 0, name.c_str()));
  const std::uint32_t withHandle = GetLastError();
  return HoldsIf(
      again && third && withHandle == ERROR_ALREADY_EXISTS,
      "creating it a second time: " + ErrorText(withHandle),
      {{"with a view only", withView == ERROR_ALREADY_EXISTS ? "the old section" : "a new section"}});
}

Verdict ViewAndReadsAgree(Session&) {
  const TemporaryFile file(65536);
  const View view(file, nullptr);
  const Handle open = file.Open();
  for (int i = 0; i < 1000; ++i) {
    const std::string text = "written " + std::to_string(i);
    std::memcpy(view.Bytes() + 560, text.c_str(), text.size() + 1);
    std::array<char, 64> read{};
    DWORD count = 0;
    SetFilePointer(open.Get(), 560, nullptr, FILE_BEGIN);
    if (ReadFile(open.Get(), read.data(), static_cast<DWORD>(read.size()), &count, nullptr) == 0)
      Fail("ReadFile");
    if (text != read.data()) return Differs("ReadFile returned older bytes at write " + std::to_string(i));
  }
  return Holds();
}

Verdict EventKeepsItsKind(Session&) {
  const std::string name = "Local\\" + NameOfOwn("event");
  const Handle first(CreateEventA(nullptr, FALSE, TRUE, name.c_str()));  // resets itself
  SetLastError(0);
  const Handle second(CreateEventA(nullptr, TRUE, FALSE, name.c_str()));
  const std::uint32_t error = GetLastError();
  const bool set = WaitForSingleObject(second.Get(), 0) == WAIT_OBJECT_0;
  const bool reset = WaitForSingleObject(first.Get(), 0) == WAIT_TIMEOUT;
  return HoldsIf(error == ERROR_ALREADY_EXISTS && set && reset,
                 "creating it again: " + ErrorText(error) + (set ? "" : ", it was reset") +
                     (reset ? "" : ", it does not reset itself any more"));
}

Verdict EventsAskRights(Session&) {
  const std::string name = "Local\\" + NameOfOwn("rights");
  ListForEveryone waiting("0x100000");
  const Handle event(CreateEventA(waiting.Get(), TRUE, FALSE, name.c_str()));
  const Handle wait(OpenEventA(SYNCHRONIZE, FALSE, name.c_str()));
  const std::uint32_t waitError = ErrorOf(wait);
  const Handle set(OpenEventA(EVENT_MODIFY_STATE, FALSE, name.c_str()));
  const std::uint32_t setError = ErrorOf(set);
  return HoldsIf(waitError == 0 && setError == ERROR_ACCESS_DENIED,
                 "opening to wait: " + ErrorText(waitError) + ", to set: " + ErrorText(setError));
}

Handle MakePipe(const std::string& name, SECURITY_ATTRIBUTES* attributes) {
  Handle pipe(CreateNamedPipeA(name.c_str(), PIPE_ACCESS_DUPLEX, PIPE_TYPE_MESSAGE | PIPE_WAIT, 4, 1028, 1028,
                               0, attributes));
  if (!pipe) Fail("CreateNamedPipe");
  return pipe;
}

Verdict PipesAskRights(Session&) {
  const std::string name = "\\\\.\\pipe\\" + NameOfOwn("rights");
  ListForEveryone reading("FR");
  const Handle pipe = MakePipe(name, reading.Get());
  const Handle client = OpenAt(name, GENERIC_READ | GENERIC_WRITE, 0);
  const std::uint32_t error = ErrorOf(client);
  return HoldsIf(error == ERROR_ACCESS_DENIED,
                 "writing to a pipe that Everyone may only read: " + ErrorText(error));
}

Verdict ServersLearnOnlyTheName(Session&) {
  const std::string name = "\\\\.\\pipe\\" + NameOfOwn("identity");
  const Handle pipe = MakePipe(name, nullptr);
  std::thread clientThread([&name] {
    const Handle client(CreateFileA(name.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                    SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION, nullptr));
    DWORD count = 0;
    WriteFile(client.Get(), "x", 1, &count, nullptr);
    ReadFile(client.Get(), &count, 1, &count, nullptr);  // until the server closes the pipe
  });
  ConnectNamedPipe(pipe.Get(), nullptr);
  char byte = 0;
  DWORD count = 0;
  ReadFile(pipe.Get(), &byte, 1, &count, nullptr);
  const BOOL acting = ImpersonateNamedPipeClient(pipe.Get());
  const Handle file = OpenAt(OwnPath(), GENERIC_READ, kShareAll);
  const std::uint32_t error = ErrorOf(file);
  RevertToSelf();
  DisconnectNamedPipe(pipe.Get());
  clientThread.join();
  return HoldsIf(
      acting != 0 && error != 0,
      acting == 0 ? "the server cannot identify the client" : "the server opened a file in the client's name",
      {{"error", std::to_string(error)}});
}

Verdict KeysAskRights(Session&) {
  const LessRights asUser(LessRights::Kind::OrdinaryUser);
  HKEY key = nullptr;
  const LSTATUS result = RegOpenKeyExA(HKEY_LOCAL_MACHINE, "SOFTWARE", 0, KEY_SET_VALUE, &key);
  if (key != nullptr) RegCloseKey(key);
  return HoldsIf(result == ERROR_ACCESS_DENIED,
                 "opening HKLM\\SOFTWARE for writing: " + ErrorText(static_cast<std::uint32_t>(result)));
}

Verdict LowIntegrityDoesNotWrite(Session&) {
  const std::string name = "Local\\" + NameOfOwn("integrity");
  ListForEveryone all("0x1f0003");
  const Handle event(CreateEventA(all.Get(), TRUE, FALSE, name.c_str()));
  const LessRights low(LessRights::Kind::LowIntegrity);
  const Handle set(OpenEventA(EVENT_MODIFY_STATE, FALSE, name.c_str()));
  const std::uint32_t error = ErrorOf(set);
  return HoldsIf(error == ERROR_ACCESS_DENIED, "opening an event for everyone: " + ErrorText(error));
}

Verdict ValuesKeepTheirOrder(Session&) {
  const std::string path = "Software\\" + NameOfOwn("values");
  HKEY key = nullptr;
  const LSTATUS made = RegCreateKeyExA(HKEY_CURRENT_USER, path.c_str(), 0, nullptr, 0, KEY_READ | KEY_WRITE,
                                       nullptr, &key, nullptr);
  if (made != ERROR_SUCCESS) Fail("RegCreateKeyEx", static_cast<std::uint32_t>(made));
  std::string written;
  std::string listed;
  for (int i = 0; i < 12; ++i) {
    const std::string name = "Filters" + std::to_string(i);
    RegSetValueExA(key, name.c_str(), 0, REG_SZ, reinterpret_cast<const BYTE*>("+x"), 3);
    written += name + " ";
  }
  for (DWORD i = 0; i < 12; ++i) {
    std::array<char, 64> name{};
    DWORD size = name.size();
    if (RegEnumValueA(key, i, name.data(), &size, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) break;
    listed += std::string(name.data()) + " ";
  }
  RegCloseKey(key);
  RegDeleteKeyA(HKEY_CURRENT_USER, path.c_str());
  return HoldsIf(written == listed, "twelve values are listed as " + listed);
}

Verdict TicksCountSleep(Session&) {
  ULONGLONG awake = 0;
  if (QueryUnbiasedInterruptTime(&awake) == 0) Fail("QueryUnbiasedInterruptTime");
  const std::uint64_t ticks = Ticks();
  const std::uint64_t awakeMs = awake / 10000;
  Values values{{"ticks", std::to_string(ticks)}, {"awake_ms", std::to_string(awakeMs)}};
  if (awakeMs > ticks + 1000) return Differs("there are fewer ticks than milliseconds awake", values);
  if (ticks - std::min(ticks, awakeMs) < 1000)
    return NotTried("the machine has not slept since its start", values);
  return Holds(values);
}

Verdict EveryoneHasItsName(Session&) {
  std::array<std::uint64_t, 32> sid{};
  DWORD sidSize = sizeof(sid);
  std::array<char, 256> domain{};
  DWORD domainSize = domain.size();
  SID_NAME_USE use{};
  const BOOL found =
      LookupAccountNameA(nullptr, "EVERYONE", sid.data(), &sidSize, domain.data(), &domainSize, &use);
  const std::uint32_t error = found != 0 ? 0 : GetLastError();
  std::array<std::uint64_t, 32> world{};
  DWORD worldSize = sizeof(world);
  std::array<char, 256> name{};
  DWORD nameSize = name.size();
  domainSize = domain.size();
  if (CreateWellKnownSid(WinWorldSid, nullptr, world.data(), &worldSize) == 0) Fail("CreateWellKnownSid");
  LookupAccountSidA(nullptr, world.data(), name.data(), &nameSize, domain.data(), &domainSize, &use);
  Values values{{"name here", name.data()}};
  if (found == 0) return Differs("the name is not known here: " + ErrorText(error), values);
  return HoldsIf(EqualSid(sid.data(), world.data()) != 0, "the name is another account", values);
}

}  // namespace

const std::vector<Check>& ChecksOfTheSystem() {
  static const std::vector<Check> kChecks{
      {"system.mapped-file-is-free",
       "A file that a program only has mapped can be opened without sharing: a stop does not wait for "
       "readers.",
       Needs::Nothing, MappedFileIsFree},
      {"system.mapped-file-keeps-its-size", "A mapped file cannot be made smaller: error 1224.",
       Needs::Nothing, MappedFileKeepsItsSize},
      {"system.section-lives-on", "Creating a section under a name that exists opens the old one: error 183.",
       Needs::Nothing, SectionLivesOn},
      {"system.view-and-reads-agree",
       "A read of the file returns what was written through a view just before.", Needs::Nothing,
       ViewAndReadsAgree},
      {"system.event-keeps-its-kind",
       "Creating an event that exists opens it, and changes neither state nor kind.", Needs::Nothing,
       EventKeepsItsKind},
      {"system.events-ask-rights", "The access list of an event is enforced.", Needs::Nothing,
       EventsAskRights},
      {"system.pipes-ask-rights", "The access list of a pipe is enforced.", Needs::Nothing, PipesAskRights},
      {"system.keys-ask-rights", "An ordinary user cannot write to the registry of the machine.",
       Needs::Nothing, KeysAskRights},
      {"system.low-integrity-does-not-write",
       "A process of low integrity cannot change an object whose list grants it to everyone.", Needs::Nothing,
       LowIntegrityDoesNotWrite},
      {"system.servers-learn-only-the-name",
       "The server of a pipe that was opened for identification cannot act in the client's name.",
       Needs::Nothing, ServersLearnOnlyTheName},
      {"system.values-keep-their-order", "The registry lists values in the order in which they were written.",
       Needs::Nothing, ValuesKeepTheirOrder},
      {"system.ticks-count-sleep",
       "The clock of time-outs and timers counts the time that the machine sleeps.", Needs::Nothing,
       TicksCountSleep},
      {"system.everyone-has-its-name", "The account name EVERYONE is known in the language of this system.",
       Needs::Nothing, EveryoneHasItsName},
  };
  return kChecks;
}

}  // namespace TamLogCheck
