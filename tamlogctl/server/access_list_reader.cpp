#include "tamlogctl/server/access_list_reader.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <memory>

#include "client/live/handle.h"
#include "client/message/win32.h"
#include "tamlogctl/base/wide_text.h"
#include "tamlogctl/server/log_path.h"

// Must follow windows.h.
#include <aclapi.h>
#include <sddl.h>

namespace TamLogCtl {

namespace {

constexpr std::uint32_t kAllRights = 0xFFFFFFFFU;

std::string SidText(PSID sid) {
  char* text = nullptr;
  if (ConvertSidToStringSidA(sid, &text) == FALSE) return "";
  const std::unique_ptr<char, decltype(&LocalFree)> owner(text, &LocalFree);
  return text;
}

// Returns the sid of the user that runs this program; that user may do all of this anyway.
std::string OwnSid() {
  HANDLE raw = nullptr;
  if (OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &raw) == FALSE) return "";
  const TamLogClient::Handle token(raw);
  alignas(TOKEN_USER) std::array<std::byte, 256> buffer{};
  DWORD used = 0;
  if (GetTokenInformation(token.Get(), TokenUser, buffer.data(), static_cast<DWORD>(buffer.size()), &used) ==
      FALSE)
    return "";
  return SidText(reinterpret_cast<const TOKEN_USER*>(buffer.data())->User.Sid);
}

// Returns the sid as it is when it has no name.
std::string AccountName(const std::string& sid) {
  PSID raw = nullptr;
  if (ConvertStringSidToSidA(sid.c_str(), &raw) == FALSE) return sid;
  const std::unique_ptr<void, decltype(&LocalFree)> owner(raw, &LocalFree);
  std::array<wchar_t, 256> name{};
  std::array<wchar_t, 256> domain{};
  auto nameLength = static_cast<DWORD>(name.size());
  auto domainLength = static_cast<DWORD>(domain.size());
  SID_NAME_USE use{};
  if (LookupAccountSidW(nullptr, raw, name.data(), &nameLength, domain.data(), &domainLength, &use) == FALSE)
    return sid;
  return WideToUtf8(std::wstring_view(name.data(), nameLength));
}

std::vector<std::string> OthersAt(const std::string& path, std::uint32_t rights, const std::string& self) {
  std::wstring name = Utf8ToWide(path);
  ACL* list = nullptr;
  PSID owner = nullptr;
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  if (GetNamedSecurityInfoW(name.data(), SE_FILE_OBJECT,
                            DACL_SECURITY_INFORMATION | OWNER_SECURITY_INFORMATION, &owner, nullptr, &list,
                            nullptr, &descriptor) != ERROR_SUCCESS)
    return {};
  const std::unique_ptr<void, decltype(&LocalFree)> keeper(descriptor, &LocalFree);
  return OthersWith(rights, EntriesOf(list), owner == nullptr ? "" : SidText(owner), self);
}

}  // namespace

std::vector<std::string> OthersWhoMayChange(const std::string& program) {
  const std::string self = OwnSid();
  std::vector<std::string> names;
  std::string path = program;
  for (std::uint32_t rights = kChangesFile;;) {
    for (const std::string& sid : OthersAt(path, rights, self)) {
      const std::string name = AccountName(sid);
      if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
    }
    rights = rights == kChangesFile ? kFillsDirectory : kMovesDirectory;
    const std::string directory = DirectoryOf(path);
    if (directory.empty() || directory == path) return names;
    path = directory;
  }
}

std::vector<AccessEntry> EntriesOf(const void* list) {
  if (list == nullptr) return {{true, false, kAllRights, kEveryoneSid}};
  auto* const acl = static_cast<ACL*>(const_cast<void*>(list));
  std::vector<AccessEntry> entries;
  for (DWORD i = 0; i < acl->AceCount; ++i) {
    void* raw = nullptr;
    if (GetAce(acl, i, &raw) == FALSE) continue;
    const auto& header = *static_cast<const ACE_HEADER*>(raw);
    // Of the entries with a condition those that allow count as if it held, and those that deny as if it did
    // not.
    const bool allows =
        header.AceType == ACCESS_ALLOWED_ACE_TYPE || header.AceType == ACCESS_ALLOWED_CALLBACK_ACE_TYPE;
    if (!allows && header.AceType != ACCESS_DENIED_ACE_TYPE) continue;
    auto* const ace = static_cast<ACCESS_ALLOWED_ACE*>(raw);  // all of these kinds have the same layout
    entries.push_back(
        {allows, (header.AceFlags & INHERIT_ONLY_ACE) != 0, ace->Mask, SidText(&ace->SidStart)});
  }
  return entries;
}

}  // namespace TamLogCtl
