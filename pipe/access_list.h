#pragma once

// Builders of an access list and of the security descriptor that carries it. Same rules as in
// pipe/security_attributes.h: one thread, nothing caught, texts kept letter for letter.

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "util/native_handle.h"

struct _ACL;
struct _EXPLICIT_ACCESS_A;
struct _SECURITY_DESCRIPTOR;

// The system's numbers, so that users of this header need no header of the system.
enum class AccessMode : std::uint32_t { Grant = 1, Set = 2, Deny = 3, Revoke = 4 };
enum class TrusteeForm : std::uint32_t { Sid = 0, Name = 1, BadForm = 2 };
enum class TrusteeType : std::uint32_t { Unknown = 0, User = 1, Group = 2, WellKnownGroup = 5 };

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

// Builds one access list once.
class AclBuilder {
 public:
  AclBuilder();
  ~AclBuilder();
  AclBuilder(const AclBuilder&) = delete;
  AclBuilder& operator=(const AclBuilder&) = delete;

  // Adds an entry. `inheritance` is the system's bit mask, 0 for none. `trustee` is a SID or a name, as
  // `form` says; not owned, it has to live until GetACL. ExceptionBase "Specifiying a new explicit access
  // after calling GetACL(), object already finalized".
  void AddExplicitAccess(AccessMode mode, std::uint32_t accessMask, std::uint32_t inheritance,
                         TrusteeForm form, TrusteeType type, void* trustee);
  // An entry without inheritance for the SID of `trustee`, which this builds and which has to live until
  // GetACL. Throws what SidBuilder::GetSID and AddExplicitAccess throw.
  void AddSidAccess(AccessMode mode, std::uint32_t accessMask, TrusteeType type, SidBuilder& trustee);
  // The list, built by the first call; owned by this object. Null when the system makes no list of no
  // entries. ExceptionWindows "SetEntriesInAcl() failed" with the code that the call returned.
  _ACL* GetACL();

 private:
  _ACL* acl = nullptr;
  std::vector<_EXPLICIT_ACCESS_A> entries;
};

// Builds one absolute security descriptor that carries the list collected in Dacl().
class SecurityDescriptorBuilder {
 public:
  SecurityDescriptorBuilder();
  ~SecurityDescriptorBuilder();
  SecurityDescriptorBuilder(const SecurityDescriptorBuilder&) = delete;
  SecurityDescriptorBuilder& operator=(const SecurityDescriptorBuilder&) = delete;

  AclBuilder& Dacl() { return dacl; }

  // Fills `attributes`: not inheritable, pointing into this object, which has to outlive their use. Builds
  // the list. ExceptionWindows "InitializeSecurityDescriptor() failed", "SetSecurityDescriptorDacl() failed".
  void ProduceAttributes(TamLogUtil::SecurityAttributes& attributes);

 private:
  std::unique_ptr<_SECURITY_DESCRIPTOR> descriptor;
  AclBuilder dacl;
  // Never filled and never attached: nothing audits the shared objects. Kept as the place where it would go.
  AclBuilder sacl;
};
