#pragma once

// Security attributes that open one kernel object to every user of the machine: the access list holds a
// single entry, which grants one mask to the World SID.
//
// Every object here is built, used and destroyed on one thread. Nothing catches; the texts are matched by
// support scripts and keep their spelling.

#include <cstdint>
#include <memory>

#include "util/native_handle.h"

// Masks of the objects that the server shares.
inline constexpr std::uint32_t kPipeAccess = 0x12019F;    // generic read and write on files
inline constexpr std::uint32_t kFileMapAccess = 0xF001F;  // all access to a section
inline constexpr std::uint32_t kEventAccess = 0x1F0003;   // all access to an event

// Builds one SID once.
class SidBuilder {
 public:
  // `authority` is the six-byte identifier authority.
  explicit SidBuilder(const std::uint8_t (&identifierAuthority)[6]);
  ~SidBuilder();
  SidBuilder(const SidBuilder&) = delete;
  SidBuilder& operator=(const SidBuilder&) = delete;

  // ExceptionBase "Specifiying more then 8 sub authorites is not supported" (tested first), "Specifiying a
  // new authority after calling GetSID(), object already finalized".
  void AddSubAuthority(std::uint32_t value);
  // The SID, built by the first call; owned by this object. ExceptionBase "Calling GetSID before specifying
  // atleast one sub authority", ExceptionWindows "AllocateAndInitializeSid() failed".
  void* GetSID();

 private:
  void* sid = nullptr;
  std::uint8_t authority[6];
  std::uint8_t count = 0;
  std::uint32_t subAuthorities[8] = {};
};

// AclBuilder, SecurityDescriptorBuilder: pipe/access_list.h.

// Security attributes for one object; has to outlive the creating call only.
class EveryoneSecurity {
 public:
  explicit EveryoneSecurity(std::uint32_t accessMask);
  ~EveryoneSecurity();
  EveryoneSecurity(const EveryoneSecurity&) = delete;
  EveryoneSecurity& operator=(const EveryoneSecurity&) = delete;

  TamLogUtil::SecurityAttributes* GetSecurityAttributes();

 private:
  struct Parts;
  std::unique_ptr<Parts> parts;
};
