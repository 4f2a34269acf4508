#include "pipe/access_list.h"

#include <algorithm>

#include "util/exceptions.h"
#include "util/win32.h"

// Must follow windows.h.
#include <aclapi.h>

using TamLogUtil::Exceptions::ExceptionBase;
using TamLogUtil::Exceptions::ExceptionWindows;

namespace {

static_assert(static_cast<int>(AccessMode::Grant) == GRANT_ACCESS);
static_assert(static_cast<int>(AccessMode::Set) == SET_ACCESS);
static_assert(static_cast<int>(AccessMode::Deny) == DENY_ACCESS);
static_assert(static_cast<int>(AccessMode::Revoke) == REVOKE_ACCESS);
static_assert(static_cast<int>(TrusteeForm::Sid) == TRUSTEE_IS_SID);
static_assert(static_cast<int>(TrusteeForm::Name) == TRUSTEE_IS_NAME);
static_assert(static_cast<int>(TrusteeForm::BadForm) == TRUSTEE_BAD_FORM);
static_assert(static_cast<int>(TrusteeType::Unknown) == TRUSTEE_IS_UNKNOWN);
static_assert(static_cast<int>(TrusteeType::User) == TRUSTEE_IS_USER);
static_assert(static_cast<int>(TrusteeType::Group) == TRUSTEE_IS_GROUP);
static_assert(static_cast<int>(TrusteeType::WellKnownGroup) == TRUSTEE_IS_WELL_KNOWN_GROUP);
static_assert(sizeof(SECURITY_ATTRIBUTES) == 24);

}  // namespace

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

AclBuilder::AclBuilder() = default;

AclBuilder::~AclBuilder() {
  if (acl != nullptr) LocalFree(acl);
}

void AclBuilder::AddExplicitAccess(AccessMode mode, std::uint32_t accessMask, std::uint32_t inheritance,
                                   TrusteeForm form, TrusteeType type, void* trustee) {
  if (acl != nullptr) {
    throw ExceptionBase("Specifiying a new explicit access after calling GetACL(), object already finalized");
  }
  EXPLICIT_ACCESS_A entry{};
  entry.grfAccessPermissions = accessMask;
  entry.grfAccessMode = static_cast<ACCESS_MODE>(mode);
  entry.grfInheritance = inheritance;
  entry.Trustee.pMultipleTrustee = nullptr;
  entry.Trustee.MultipleTrusteeOperation = NO_MULTIPLE_TRUSTEE;
  entry.Trustee.TrusteeForm = static_cast<TRUSTEE_FORM>(form);
  entry.Trustee.TrusteeType = static_cast<TRUSTEE_TYPE>(type);
  entry.Trustee.ptstrName = static_cast<LPSTR>(trustee);
  entries.push_back(entry);
}

void AclBuilder::AddSidAccess(AccessMode mode, std::uint32_t accessMask, TrusteeType type,
                              SidBuilder& trustee) {
  AddExplicitAccess(mode, accessMask, NO_INHERITANCE, TrusteeForm::Sid, type, trustee.GetSID());
}

_ACL* AclBuilder::GetACL() {
  if (acl != nullptr) return acl;
  const DWORD result = SetEntriesInAclA(static_cast<ULONG>(entries.size()),
                                        entries.empty() ? nullptr : entries.data(), nullptr, &acl);
  if (result != ERROR_SUCCESS) throw ExceptionWindows("SetEntriesInAcl() failed", nullptr, result);
  return acl;
}

SecurityDescriptorBuilder::SecurityDescriptorBuilder()
    : descriptor(std::make_unique<SECURITY_DESCRIPTOR>()) {}

SecurityDescriptorBuilder::~SecurityDescriptorBuilder() = default;

void SecurityDescriptorBuilder::ProduceAttributes(TamLogUtil::SecurityAttributes& attributes) {
  if (!InitializeSecurityDescriptor(descriptor.get(), SECURITY_DESCRIPTOR_REVISION)) {
    throw ExceptionWindows("InitializeSecurityDescriptor() failed");
  }
  if (!SetSecurityDescriptorDacl(descriptor.get(), TRUE, dacl.GetACL(), FALSE)) {
    throw ExceptionWindows("SetSecurityDescriptorDacl() failed");
  }
  attributes.nLength = sizeof(attributes);
  attributes.lpSecurityDescriptor = descriptor.get();
  attributes.bInheritHandle = FALSE;
}
