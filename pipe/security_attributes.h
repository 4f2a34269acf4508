#pragma once

// Security attributes that open one kernel object to every user of the machine: the access list holds a
// single entry, which grants one mask to the World SID. The builders that it is put together from are here
// (the SID) and in pipe/access_list.h (the list and the descriptor).
//
// Every object here is built, used and destroyed on one thread. Nothing catches: the creator of the object
// decides. Support scripts look for the texts, so they keep their spelling.

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "util/native_handle.h"

// Masks of the objects that the server shares.
inline constexpr std::uint32_t kPipeAccess = 0x12019F;    // generic read and write on files
inline constexpr std::uint32_t kFileMapAccess = 0xF001F;  // all access to a section
inline constexpr std::uint32_t kEventAccess = 0x1F0003;   // all access to an event

using SidAuthority = std::array<std::uint8_t, 6>;
inline constexpr SidAuthority kWorldAuthority = {0, 0, 0, 0, 0, 1};

// Builds one SID once.
class SidBuilder {
 public:
  static constexpr std::size_t kMaxSubAuthorities = 8;

  explicit SidBuilder(const SidAuthority& identifierAuthority);
  ~SidBuilder();
  SidBuilder(const SidBuilder&) = delete;
  SidBuilder& operator=(const SidBuilder&) = delete;

  // ExceptionBase "Specifiying more then 8 sub authorites is not supported" (tested first, also once the SID
  // is built), "Specifiying a new authority after calling GetSID(), object already finalized".
  void AddSubAuthority(std::uint32_t value);
  // The SID, built by the first call; owned by this object. ExceptionBase "Calling GetSID before specifying
  // atleast one sub authority", ExceptionWindows "AllocateAndInitializeSid() failed".
  void* GetSID();

 private:
  void* sid = nullptr;
  SidAuthority authority;
  std::uint8_t count = 0;
  std::array<std::uint32_t, kMaxSubAuthorities> subAuthorities{};
};

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
