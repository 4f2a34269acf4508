#include "packaging/setup/protected_directory.h"

#include <algorithm>
#include <array>
#include <memory>
#include <string>
#include <vector>

#include "client/message/win32.h"
#include "packaging/setup/setup_error.h"

// Must follow windows.h.
#include <aclapi.h>
#include <sddl.h>

namespace TamLogSetup {

namespace fs = std::filesystem;

namespace {

// System and administrators: everything; users: read and execute. For the directory and what will be in it.
constexpr wchar_t kProtected[] = L"O:BAD:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICI;0x1200a9;;;BU)";

constexpr DWORD kReplace = DELETE | FILE_DELETE_CHILD | WRITE_DAC | WRITE_OWNER;
constexpr DWORD kWrite =
    kReplace | FILE_WRITE_DATA | FILE_APPEND_DATA | FILE_WRITE_ATTRIBUTES | FILE_WRITE_EA;

struct LocalDeleter {
  void operator()(void* memory) const { LocalFree(memory); }
};
using Memory = std::unique_ptr<void, LocalDeleter>;

struct HandleCloser {
  void operator()(HANDLE handle) const { CloseHandle(handle); }
};

std::string Name(const fs::path& path) {
  return Utf8(path.wstring());
}

// The system, administrators, the installer of Windows, and two placeholders for the owner, who is checked
// separately.
constexpr std::array<const wchar_t*, 5> kTrusted{
    L"S-1-5-18", L"S-1-5-32-544", L"S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464",
    L"S-1-3-0", L"S-1-3-4"};

std::wstring TextOf(PSID sid) {
  wchar_t* text = nullptr;
  if (ConvertSidToStringSidW(sid, &text) == FALSE) return L"";
  const Memory owner(text);
  return text;
}

// The user who runs this, an administrator.
std::wstring Caller() {
  HANDLE opened = nullptr;
  if (OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &opened) == FALSE) return L"";
  const std::unique_ptr<void, HandleCloser> token(opened);
  alignas(TOKEN_USER) std::array<BYTE, sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE> buffer{};
  DWORD size = 0;
  if (GetTokenInformation(opened, TokenUser, buffer.data(), static_cast<DWORD>(buffer.size()), &size) ==
      FALSE)
    return L"";
  return TextOf(reinterpret_cast<TOKEN_USER*>(buffer.data())->User.Sid);
}

bool IsTrusted(PSID sid) {
  const std::wstring text = TextOf(sid);
  return !text.empty() &&
         (text == Caller() || std::find(kTrusted.begin(), kTrusted.end(), text) != kTrusted.end());
}

std::string AccountOf(PSID sid) {
  std::array<wchar_t, 256> name{};
  std::array<wchar_t, 256> domain{};
  auto nameSize = static_cast<DWORD>(name.size());
  auto domainSize = static_cast<DWORD>(domain.size());
  SID_NAME_USE use{};
  if (LookupAccountSidW(nullptr, sid, name.data(), &nameSize, domain.data(), &domainSize, &use) != FALSE)
    return Utf8(name.data());
  return Utf8(TextOf(sid));
}

// Entries that are inherited can have generic rights.
DWORD FileRights(DWORD mask) {
  GENERIC_MAPPING mapping{FILE_GENERIC_READ, FILE_GENERIC_WRITE, FILE_GENERIC_EXECUTE, FILE_ALL_ACCESS};
  MapGenericMask(&mask, &mapping);
  return mask;
}

// The account of an entry that allows something; empty for one that is trusted and for entries that deny.
// The entries with a condition begin like those without one; whether the condition holds is not known here.
std::string Allowed(ACE_HEADER& entry) {
  switch (entry.AceType) {
    case ACCESS_ALLOWED_ACE_TYPE:
    case ACCESS_ALLOWED_CALLBACK_ACE_TYPE: {
      const PSID sid = &reinterpret_cast<ACCESS_ALLOWED_ACE*>(&entry)->SidStart;
      return IsTrusted(sid) ? "" : AccountOf(sid);
    }
    case ACCESS_DENIED_ACE_TYPE:
    case ACCESS_DENIED_OBJECT_ACE_TYPE:
    case ACCESS_DENIED_CALLBACK_ACE_TYPE:
    case ACCESS_DENIED_CALLBACK_OBJECT_ACE_TYPE:
      return "";
    default:
      return "an entry of the type " + std::to_string(entry.AceType) + " in the access list";
  }
}

// Returns the untrusted account that owns the directory or has one of `rights`; empty when there is none.
std::string Stranger(const fs::path& directory, DWORD rights, bool inherited) {
  PSID owner = nullptr;
  PACL list = nullptr;
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  const DWORD result = GetNamedSecurityInfoW(directory.c_str(), SE_FILE_OBJECT,
                                             OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION, &owner,
                                             nullptr, &list, nullptr, &descriptor);
  if (result != ERROR_SUCCESS) Fail("cannot read the access list of " + Name(directory), result);
  const Memory memory(descriptor);
  if (owner != nullptr && !IsTrusted(owner)) return AccountOf(owner);
  return StrangerIn(list, rights, inherited);
}

void CheckDrive(const fs::path& directory) {
  const std::wstring drive = directory.root_name().wstring();
  std::array<wchar_t, 1024> target{};
  if (drive.size() != 2 || GetDriveTypeW((drive + L"\\").c_str()) == DRIVE_REMOTE)
    throw SetupError(Name(directory) + " is not on a drive of this machine; choose another directory");
  const bool known = QueryDosDeviceW(drive.c_str(), target.data(), static_cast<DWORD>(target.size())) != 0;
  if (known && std::wstring(target.data()).starts_with(L"\\??\\"))
    throw SetupError("the drive of " + Name(directory) +
                     " stands for another directory; choose that directory");
}

// The directory and its parents, the drive's root first.
std::vector<fs::path> PartsOf(const fs::path& directory) {
  std::vector<fs::path> parts;
  fs::path path = directory.root_path();
  parts.push_back(path);
  for (const fs::path& part : directory.relative_path()) {
    if (part.empty()) continue;  // after a separator at the end
    path /= part;
    parts.push_back(path);
  }
  return parts;
}

void CheckPart(const fs::path& part, bool isRoot, bool isLast) {
  const DWORD attributes = GetFileAttributesW(part.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) return;
  const bool isLink = !isRoot && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;  // a root may be mounted
  if (isLink || (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0)
    throw SetupError(Name(part) + " is a link or a file; choose another directory");
  // A root cannot be deleted.
  const DWORD rights = isLast ? kWrite : isRoot ? kReplace & ~DWORD{DELETE} : kReplace;
  const std::string stranger = Stranger(part, rights, isLast);
  if (!stranger.empty())
    throw SetupError(
        stranger + " may change " + Name(part) +
        ", and with it a service that has the rights of the system; choose another directory, or let "
        "only administrators write there");
}

}  // namespace

std::string StrangerIn(ACL* list, DWORD rights, bool inherited) {
  if (list == nullptr) return "everyone";
  for (DWORD k = 0; k < list->AceCount; ++k) {
    void* entry = nullptr;
    if (GetAce(list, k, &entry) == FALSE) continue;
    auto& header = *static_cast<ACE_HEADER*>(entry);
    if (!inherited && (header.AceFlags & INHERIT_ONLY_ACE) != 0) continue;
    if ((FileRights(static_cast<ACCESS_ALLOWED_ACE*>(entry)->Mask) & rights) == 0) continue;
    std::string account = Allowed(header);
    if (!account.empty()) return account;
  }
  return "";
}

void CheckDirectory(const fs::path& directory) {
  CheckDrive(directory);
  const std::vector<fs::path> parts = PartsOf(directory);
  if (parts.size() < 2)
    throw SetupError(Name(directory) + " is the root of a drive; choose a directory below it");
  for (std::size_t k = 0; k < parts.size(); ++k) CheckPart(parts[k], k == 0, k + 1 == parts.size());
}

void MakeDirectories(const fs::path& directory, std::vector<fs::path>& made) {
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  if (ConvertStringSecurityDescriptorToSecurityDescriptorW(kProtected, SDDL_REVISION_1, &descriptor,
                                                           nullptr) == FALSE)
    FailLast("cannot make an access list");
  const Memory memory(descriptor);
  SECURITY_ATTRIBUTES strict{sizeof(SECURITY_ATTRIBUTES), descriptor, FALSE};
  for (const fs::path& part : PartsOf(directory)) {
    if (fs::exists(part)) continue;
    const bool inherits = Stranger(part.parent_path(), kWrite, true).empty();
    if (CreateDirectoryW(part.c_str(), inherits ? nullptr : &strict) == FALSE)
      FailLast("cannot create " + Name(part));
    made.push_back(part);
  }
}

void MakeProtected(const fs::path& directory, std::vector<fs::path>& made) {
  MakeDirectories(directory, made);
  CheckDirectory(directory);
}

void DeleteMade(const std::vector<fs::path>& made) {
  std::for_each(made.rbegin(), made.rend(), [](const fs::path& part) { RemoveDirectoryW(part.c_str()); });
}

}  // namespace TamLogSetup
