#include "pipe/security_attributes.h"

#include <algorithm>

#include "pipe/access_list.h"
#include "util/exceptions.h"
#include "util/win32.h"

using TamLogUtil::Exceptions::ExceptionBase;
using TamLogUtil::Exceptions::ExceptionWindows;

SidBuilder::SidBuilder(const SidAuthority& identifierAuthority) : authority(identifierAuthority) {}

SidBuilder::~SidBuilder() {
  if (sid != nullptr) FreeSid(sid);
}

void SidBuilder::AddSubAuthority(std::uint32_t value) {
  if (count == kMaxSubAuthorities) {
    throw ExceptionBase("Specifiying more then 8 sub authorites is not supported");
  }
  if (sid != nullptr) {
    throw ExceptionBase("Specifiying a new authority after calling GetSID(), object already finalized");
  }
  subAuthorities.at(count) = value;
  ++count;
}

void* SidBuilder::GetSID() {
  if (sid != nullptr) return sid;
  if (count == 0) throw ExceptionBase("Calling GetSID before specifying atleast one sub authority");
  SID_IDENTIFIER_AUTHORITY systemAuthority{};
  std::copy(authority.begin(), authority.end(), systemAuthority.Value);
  const auto& sub = subAuthorities;
  PSID built = nullptr;
  if (!AllocateAndInitializeSid(&systemAuthority, count, sub[0], sub[1], sub[2], sub[3], sub[4], sub[5],
                                sub[6], sub[7], &built) ||
      built == nullptr) {
    throw ExceptionWindows("AllocateAndInitializeSid() failed");
  }
  sid = built;
  return sid;
}

// Destroyed last to first: the descriptor points into the SID only while the list is built, the attributes
// point into the descriptor.
struct EveryoneSecurity::Parts {
  SidBuilder everyone{kWorldAuthority};
  SecurityDescriptorBuilder descriptor;
  SECURITY_ATTRIBUTES attributes{};
};

EveryoneSecurity::EveryoneSecurity(std::uint32_t accessMask) : parts(std::make_unique<Parts>()) {
  parts->everyone.AddSubAuthority(SECURITY_WORLD_RID);
  parts->descriptor.Dacl().AddSidAccess(AccessMode::Set, accessMask, TrusteeType::WellKnownGroup,
                                        parts->everyone);
  parts->descriptor.ProduceAttributes(parts->attributes);
}

EveryoneSecurity::~EveryoneSecurity() = default;

TamLogUtil::SecurityAttributes* EveryoneSecurity::GetSecurityAttributes() {
  return &parts->attributes;
}
