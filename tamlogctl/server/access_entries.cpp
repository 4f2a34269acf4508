#include "tamlogctl/server/access_entries.h"

#include <algorithm>

namespace TamLogCtl {

const std::vector<std::string>& LocalSystemSids() {
  static const std::vector<std::string> sids{"S-1-5-18", "S-1-5-32-544", kEveryoneSid,
                                             "S-1-5-11", "S-1-5-6",      "S-1-2-0"};
  return sids;
}

std::uint32_t GrantedTo(const std::vector<AccessEntry>& entries, const std::vector<std::string>& sids) {
  std::uint32_t granted = 0;
  std::uint32_t denied = 0;
  for (const AccessEntry& entry : entries) {
    if (entry.inheritOnly || std::find(sids.begin(), sids.end(), entry.sid) == sids.end()) continue;
    if (entry.allow) {
      granted |= entry.mask & ~denied;
    } else {
      denied |= entry.mask & ~granted;
    }
  }
  return granted;
}

}  // namespace TamLogCtl
