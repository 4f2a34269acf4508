#pragma once

// Security attributes that open one kernel object to every user of the machine: an access list with a single
// entry, which grants one mask to the World SID (pipe/access_list.h).

#include <cstdint>
#include <memory>

#include "util/native_handle.h"

// Access masks of the objects that the server shares.
inline constexpr std::uint32_t kPipeAccess = 0x12019F;    // generic read and write on files
inline constexpr std::uint32_t kFileMapAccess = 0xF001F;  // all access to a section
inline constexpr std::uint32_t kEventAccess = 0x1F0003;   // all access to an event

// Security attributes for one object; must outlive the creating call only. Constructed, used and destroyed on
// one thread.
//
//   EveryoneSecurity security(kEventAccess);
//   CreateEventA(security.GetSecurityAttributes(), ...);
class EveryoneSecurity {
 public:
  // Throws what SidBuilder, AclBuilder and SecurityDescriptorBuilder throw.
  explicit EveryoneSecurity(std::uint32_t accessMask);
  ~EveryoneSecurity();
  EveryoneSecurity(const EveryoneSecurity&) = delete;
  EveryoneSecurity& operator=(const EveryoneSecurity&) = delete;

  // Returns the attributes for the creating call; owned by this object.
  TamLogUtil::SecurityAttributes* GetSecurityAttributes();

 private:
  struct Parts;
  std::unique_ptr<Parts> parts;
};
