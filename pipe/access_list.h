#pragma once

// Builders of a SID, an access list and the security descriptor that carries the list.
//
// Every object is constructed, used and destroyed on one thread. Exceptions are not caught here. Support
// scripts search for the texts, so these keep their spelling.

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "util/native_handle.h"

struct _ACL;
struct _EXPLICIT_ACCESS_A;
struct _SECURITY_DESCRIPTOR;

// The system's numbers, so that users of this header need no system header.
enum class AccessMode : std::uint32_t { Grant = 1, Set = 2, Deny = 3, Revoke = 4 };
enum class TrusteeForm : std::uint32_t { Sid = 0, Name = 1, BadForm = 2 };
enum class TrusteeType : std::uint32_t { Unknown = 0, User = 1, Group = 2, WellKnownGroup = 5 };

using SidAuthority = std::array<std::uint8_t, 6>;
inline constexpr SidAuthority kWorldAuthority = {0, 0, 0, 0, 0, 1};

// Builds one SID.
class SidBuilder {
 public:
  static constexpr std::size_t kMaxSubAuthorities = 8;

  explicit SidBuilder(const SidAuthority& identifierAuthority);
  ~SidBuilder();
  SidBuilder(const SidBuilder&) = delete;
  SidBuilder& operator=(const SidBuilder&) = delete;

  // ExceptionBase "Specifiying more then 8 sub authorites is not supported" (checked first, also after the
  // SID was built), "Specifiying a new authority after calling GetSID(), object already finalized".
  void AddSubAuthority(std::uint32_t value);
  // Returns the SID, which the first call builds; owned by this object. ExceptionBase "Calling GetSID before
  // specifying atleast one sub authority", ExceptionWindows "AllocateAndInitializeSid() failed".
  void* GetSID();

 private:
  void* sid = nullptr;
  SidAuthority authority;
  std::uint8_t count = 0;
  std::array<std::uint32_t, kMaxSubAuthorities> subAuthorities{};
};

// Builds one access list.
class AclBuilder {
 public:
  AclBuilder();
  ~AclBuilder();
  AclBuilder(const AclBuilder&) = delete;
  AclBuilder& operator=(const AclBuilder&) = delete;

  // Adds an entry. `inheritance` is the system's bit mask, 0 for none. `trustee` is a SID or a name,
  // depending on `form`; not owned, it must live until GetACL. ExceptionBase "Specifiying a new explicit
  // access after calling GetACL(), object already finalized".
  void AddExplicitAccess(AccessMode mode, std::uint32_t accessMask, std::uint32_t inheritance,
                         TrusteeForm form, TrusteeType type, void* trustee);
  // Adds an entry without inheritance for the SID of `trustee`, which must live until GetACL. Throws what
  // SidBuilder::GetSID and AddExplicitAccess throw.
  void AddSidAccess(AccessMode mode, std::uint32_t accessMask, TrusteeType type, SidBuilder& trustee);
  // Returns the list, which the first call builds; owned by this object. Null when the system returns no list
  // for no entries. ExceptionWindows "SetEntriesInAcl() failed" with the code that the call returned.
  _ACL* GetACL();

 private:
  _ACL* acl = nullptr;
  std::vector<_EXPLICIT_ACCESS_A> entries;
};

// Builds one absolute security descriptor with the list in Dacl().
class SecurityDescriptorBuilder {
 public:
  SecurityDescriptorBuilder();
  ~SecurityDescriptorBuilder();
  SecurityDescriptorBuilder(const SecurityDescriptorBuilder&) = delete;
  SecurityDescriptorBuilder& operator=(const SecurityDescriptorBuilder&) = delete;

  AclBuilder& Dacl() { return dacl; }

  // Builds the list and fills `attributes`: not inheritable, pointing into this object, which must outlive
  // their use. ExceptionWindows "InitializeSecurityDescriptor() failed", "SetSecurityDescriptorDacl()
  // failed".
  void ProduceAttributes(TamLogUtil::SecurityAttributes& attributes);

 private:
  std::unique_ptr<_SECURITY_DESCRIPTOR> descriptor;
  AclBuilder dacl;
  // Always empty and never attached: access to the shared objects is not audited.
  AclBuilder sacl;
};
