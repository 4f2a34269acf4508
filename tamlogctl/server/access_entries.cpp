#include "tamlogctl/server/access_entries.h"

#include <algorithm>
#include <iterator>

namespace TamLogCtl {

const std::vector<std::string>& LocalSystemSids() {
  static const std::vector<std::string> sids{"S-1-5-18", "S-1-5-32-544", kEveryoneSid,
                                             "S-1-5-11", "S-1-5-6",      "S-1-2-0"};
  return sids;
}

std::vector<std::string> OthersWith(std::uint32_t rights, const std::vector<AccessEntry>& entries,
                                    const std::string& owner, const std::string& trusted) {
  static constexpr const char* kTrusted[] = {
      "S-1-5-18",                                                        // the system
      "S-1-5-32-544",                                                    // administrators
      "S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464",  // the system's installer
  };
  std::vector<std::string> others;
  const auto add = [&](const std::string& sid) {
    const bool known = std::find(std::begin(kTrusted), std::end(kTrusted), sid) != std::end(kTrusted);
    if (known || sid.empty() || sid == trusted) return;
    if (std::find(others.begin(), others.end(), sid) == others.end()) others.push_back(sid);
  };
  add(owner);
  for (const AccessEntry& entry : entries) {
    if (entry.allow && !entry.inheritOnly && (entry.mask & rights) != 0) add(entry.sid);
  }
  return others;
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
