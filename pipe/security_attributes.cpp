#include "pipe/security_attributes.h"

#include "pipe/access_list.h"
#include "util/win32.h"

// Destroyed in reverse order: the attributes point into the descriptor, which points into the SID only until
// the list is built.
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
