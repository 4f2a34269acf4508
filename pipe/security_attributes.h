#pragma once

// Security attributes that open one kernel object to every user of the machine: the access list holds a
// single entry, which grants one mask to the World SID. The builders that it is put together from are here
// (the SID) and in pipe/access_list.h (the list and the descriptor).
//
// Every object here is built, used and destroyed on one thread. Nothing catches: the creator of the object
// decides. Support scripts look for the texts, so they keep their spelling.

#include <cstdint>
#include <memory>

#include "util/native_handle.h"

// Masks of the objects that the server shares.
inline constexpr std::uint32_t kPipeAccess = 0x12019F;    // generic read and write on files
inline constexpr std::uint32_t kFileMapAccess = 0xF001F;  // all access to a section
inline constexpr std::uint32_t kEventAccess = 0x1F0003;   // all access to an event

// Security attributes for one object; has to outlive the creating call only.
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

  // To be passed to the creating call; owned by this object.
  TamLogUtil::SecurityAttributes* GetSecurityAttributes();

 private:
  struct Parts;
  std::unique_ptr<Parts> parts;
};
