#include "tamlogctl/server/object_holders.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <set>

#include "client/live/handle.h"
#include "client/message/win32.h"
#include "tamlogctl/base/wide_text.h"

namespace TamLogCtl {

namespace {

using TamLogClient::Handle;

// The system's list of all handles. The system documents neither these calls nor these records, and has kept
// them unchanged since they exist.
struct HandleEntry {
  void* object;
  ULONG_PTR processId;
  HANDLE handle;
  ULONG access;
  USHORT trace;
  USHORT type;
  ULONG attributes;
  ULONG reserved;
};

struct HandleList {
  ULONG_PTR count;
  ULONG_PTR reserved;
};

struct CountedText {
  USHORT bytes;
  USHORT capacity;
  wchar_t* text;
};

constexpr int kExtendedHandles = 64;
constexpr int kObjectName = 1;
constexpr int kObjectType = 2;
constexpr LONG kTooSmall = static_cast<LONG>(0xC0000004U);

using QuerySystem = LONG(WINAPI*)(int, void*, ULONG, ULONG*);
using QueryObject = LONG(WINAPI*)(HANDLE, int, void*, ULONG, ULONG*);

template <typename Function>
Function Find(const char* name) {
  const HMODULE module = GetModuleHandleW(L"ntdll.dll");
  return module == nullptr
             ? nullptr
             : reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(module, name)));
}

// Lets an administrator examine processes of other users; without the privilege they are left out.
void EnableDebugPrivilege() {
  HANDLE raw = nullptr;
  if (OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES, &raw) == FALSE) return;
  const Handle token(raw);
  TOKEN_PRIVILEGES wanted{};
  wanted.PrivilegeCount = 1;
  wanted.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;
  if (LookupPrivilegeValueA(nullptr, "SeDebugPrivilege", &wanted.Privileges[0].Luid) != FALSE)
    AdjustTokenPrivileges(token.Get(), FALSE, &wanted, 0, nullptr, nullptr);
}

std::vector<HandleEntry> AllHandles() {
  const auto query = Find<QuerySystem>("NtQuerySystemInformation");
  std::vector<HandleEntry> entries;
  if (query == nullptr) return entries;
  std::vector<std::byte> buffer(std::size_t{1} << 20U);
  LONG result = kTooSmall;
  for (int attempt = 0; attempt < 8; ++attempt) {
    ULONG needed = 0;
    result = query(kExtendedHandles, buffer.data(), static_cast<ULONG>(buffer.size()), &needed);
    if (result != kTooSmall) break;
    buffer.resize(std::max<std::size_t>(buffer.size() * 2, needed + needed / 4));
  }
  if (result != 0) return entries;
  HandleList list{};
  std::memcpy(&list, buffer.data(), sizeof(list));
  const std::size_t room = (buffer.size() - sizeof(list)) / sizeof(HandleEntry);
  entries.resize(std::min<std::size_t>(list.count, room));
  if (!entries.empty())
    std::memcpy(entries.data(), buffer.data() + sizeof(list), entries.size() * sizeof(HandleEntry));
  return entries;
}

class Examiner {
 public:
  // Returns the name of the object; empty for other kinds than the server's. A question for the name of a
  // file can wait for ever, so it is asked of no file.
  std::string NameOf(const HandleEntry& entry) {
    if (query == nullptr || !MayBeOurs(entry.type)) return "";
    const HANDLE source = ProcessOf(entry.processId);
    HANDLE raw = nullptr;
    if (source == nullptr || DuplicateHandle(source, entry.handle, GetCurrentProcess(), &raw, 0, FALSE,
                                             DUPLICATE_SAME_ACCESS) == FALSE)
      return "";
    const Handle copy(raw);
    if (!kinds.contains(entry.type)) kinds[entry.type] = Text(copy.Get(), kObjectType);
    return MayBeOurs(entry.type) ? Text(copy.Get(), kObjectName) : "";
  }

 private:
  bool MayBeOurs(USHORT type) const {
    const auto known = kinds.find(type);
    if (known == kinds.end()) return true;
    const std::string& kind = known->second;
    return kind == "Event" || kind == "Section" || kind == "Mutant" || kind == "Semaphore" || kind == "Timer";
  }

  HANDLE ProcessOf(ULONG_PTR id) {
    const auto [at, isNew] = processes.try_emplace(id);
    if (isNew) at->second = Handle(OpenProcess(PROCESS_DUP_HANDLE, FALSE, static_cast<DWORD>(id)));
    return at->second.Get();
  }

  std::string Text(HANDLE object, int what) const {
    alignas(void*) std::array<std::byte, 4096> buffer{};
    ULONG used = 0;
    if (query(object, what, buffer.data(), static_cast<ULONG>(buffer.size()), &used) != 0) return "";
    CountedText text{};
    std::memcpy(&text, buffer.data(), sizeof(text));
    return text.text == nullptr ? "" : WideToUtf8(std::wstring_view(text.text, text.bytes / sizeof(wchar_t)));
  }

  QueryObject query = Find<QueryObject>("NtQueryObject");
  std::map<USHORT, std::string> kinds;
  std::map<ULONG_PTR, Handle> processes;
};

}  // namespace

std::string ProcessText(std::uint32_t processId) {
  std::string text = "process " + std::to_string(processId);
  const Handle process(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, processId));
  std::array<wchar_t, 1024> path{};
  auto length = static_cast<DWORD>(path.size());
  if (!process || QueryFullProcessImageNameW(process.Get(), 0, path.data(), &length) == FALSE) return text;
  const std::wstring_view whole(path.data(), length);
  return text + " (" + WideToUtf8(whole.substr(whole.find_last_of(L'\\') + 1)) + ")";
}

std::map<std::string, std::vector<std::string>> HoldersOf(const std::vector<std::string>& names,
                                                          std::uint32_t except) {
  EnableDebugPrivilege();
  std::map<std::string, std::string> wanted;  // by the name in the system's directory of objects
  for (const std::string& name : names)
    wanted["\\BaseNamedObjects\\" + name.substr(name.find('\\') + 1)] = name;
  std::map<std::string, std::set<std::uint32_t>> found;
  Examiner examiner;
  for (const HandleEntry& entry : AllHandles()) {
    const auto processId = static_cast<std::uint32_t>(entry.processId);
    if (processId == GetCurrentProcessId() || processId == except) continue;
    if (const auto at = wanted.find(examiner.NameOf(entry)); at != wanted.end())
      found[at->second].insert(processId);
  }
  std::map<std::string, std::vector<std::string>> holders;
  for (const auto& [name, processIds] : found) {
    for (const std::uint32_t processId : processIds) holders[name].push_back(ProcessText(processId));
  }
  return holders;
}

}  // namespace TamLogCtl
