#include "tamlogctl/server/access_list_reader.h"

#include <memory>

#include "client/message/win32.h"

// Must follow windows.h.
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

}  // namespace

std::vector<AccessEntry> EntriesOf(const void* list) {
  if (list == nullptr) return {{true, false, kAllRights, kEveryoneSid}};
  auto* const acl = static_cast<ACL*>(const_cast<void*>(list));
  std::vector<AccessEntry> entries;
  for (DWORD i = 0; i < acl->AceCount; ++i) {
    void* raw = nullptr;
    if (GetAce(acl, i, &raw) == FALSE) continue;
    const auto& header = *static_cast<const ACE_HEADER*>(raw);
    if (header.AceType != ACCESS_ALLOWED_ACE_TYPE && header.AceType != ACCESS_DENIED_ACE_TYPE) continue;
    auto* const ace = static_cast<ACCESS_ALLOWED_ACE*>(raw);  // both kinds have the same layout
    entries.push_back({header.AceType == ACCESS_ALLOWED_ACE_TYPE, (header.AceFlags & INHERIT_ONLY_ACE) != 0,
                       ace->Mask, SidText(&ace->SidStart)});
  }
  return entries;
}

}  // namespace TamLogCtl
