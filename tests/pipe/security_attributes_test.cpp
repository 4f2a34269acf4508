#include "pipe/security_attributes.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "pipe/access_list.h"
#include "tests/support/pipe_client.h"
#include "util/exceptions.h"
#include "util/win32.h"

// Both must follow windows.h.
#include <aclapi.h>
#include <sddl.h>

using TamLogUtil::Exceptions::ExceptionBase;
using TamLogUtil::Exceptions::ExceptionWindows;

namespace {

std::string SidText(PSID sid) {
  char* text = nullptr;
  if (!ConvertSidToStringSidA(sid, &text)) return "no text";
  std::string result = text;
  LocalFree(text);
  return result;
}

// The text of the ExceptionBase that `action` throws; empty when it throws none.
std::string TextThrownBy(const std::function<void()>& action) {
  try {
    action();
  } catch (const ExceptionBase& e) {
    return e.GetMessage();
  }
  return "";
}

struct Entry {
  BYTE type;
  BYTE flags;
  ACCESS_MASK mask;
  std::string sid;
};

std::vector<Entry> EntriesOf(PACL acl) {
  std::vector<Entry> entries;
  ACL_SIZE_INFORMATION size{};
  if (!GetAclInformation(acl, &size, sizeof(size), AclSizeInformation)) return entries;
  for (DWORD i = 0; i < size.AceCount; ++i) {
    void* raw = nullptr;
    if (!GetAce(acl, i, &raw)) continue;
    auto* ace = static_cast<ACCESS_ALLOWED_ACE*>(raw);
    entries.push_back({ace->Header.AceType, ace->Header.AceFlags, ace->Mask, SidText(&ace->SidStart)});
  }
  return entries;
}

void ExpectOnlyEveryone(PACL acl, std::uint32_t mask) {
  ASSERT_NE(acl, nullptr);
  const std::vector<Entry> entries = EntriesOf(acl);
  ASSERT_EQ(entries.size(), 1U);
  EXPECT_EQ(entries[0].type, ACCESS_ALLOWED_ACE_TYPE);
  EXPECT_EQ(entries[0].flags, 0);
  EXPECT_EQ(entries[0].mask, mask);
  EXPECT_EQ(entries[0].sid, "S-1-1-0");
}

// The system's own view of an object that was created with the attributes.
void ExpectObjectOpenToEveryone(HANDLE object, std::uint32_t mask) {
  PACL acl = nullptr;
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  ASSERT_EQ(GetSecurityInfo(object, SE_KERNEL_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr, &acl,
                            nullptr, &descriptor),
            static_cast<DWORD>(ERROR_SUCCESS));
  ExpectOnlyEveryone(acl, mask);
  LocalFree(descriptor);
}

TEST(SidBuilder, BuildsTheWorldSid) {
  SidBuilder builder(kWorldAuthority);
  builder.AddSubAuthority(0);
  EXPECT_EQ(SidText(builder.GetSID()), "S-1-1-0");
}

TEST(SidBuilder, GetSIDTwiceReturnsTheSameSid) {
  SidBuilder builder(kWorldAuthority);
  builder.AddSubAuthority(0);
  EXPECT_EQ(builder.GetSID(), builder.GetSID());
}

TEST(SidBuilder, KeepsTheSubAuthoritiesInOrder) {
  SidBuilder builder({0, 0, 0, 0, 0, 5});
  builder.AddSubAuthority(32);
  builder.AddSubAuthority(544);
  EXPECT_EQ(SidText(builder.GetSID()), "S-1-5-32-544");
}

TEST(SidBuilder, SubAuthorityAfterGetSIDThrows) {
  SidBuilder builder(kWorldAuthority);
  builder.AddSubAuthority(0);
  builder.GetSID();
  EXPECT_EQ(TextThrownBy([&] { builder.AddSubAuthority(1); }),
            "Specifiying a new authority after calling GetSID(), object already finalized");
  EXPECT_EQ(SidText(builder.GetSID()), "S-1-1-0");
}

TEST(SidBuilder, EightSubAuthoritiesAreAcceptedTheNinthThrows) {
  SidBuilder builder({0, 0, 0, 0, 0, 5});
  for (std::uint32_t i = 1; i <= 8; ++i) builder.AddSubAuthority(i);
  EXPECT_EQ(TextThrownBy([&] { builder.AddSubAuthority(9); }),
            "Specifiying more then 8 sub authorites is not supported");
  EXPECT_EQ(SidText(builder.GetSID()), "S-1-5-1-2-3-4-5-6-7-8");
}

TEST(SidBuilder, NinthSubAuthorityIsReportedAsTooManyEvenWhenTheSidIsBuilt) {
  SidBuilder builder({0, 0, 0, 0, 0, 5});
  for (std::uint32_t i = 1; i <= 8; ++i) builder.AddSubAuthority(i);
  builder.GetSID();
  EXPECT_EQ(TextThrownBy([&] { builder.AddSubAuthority(9); }),
            "Specifiying more then 8 sub authorites is not supported");
}

TEST(SidBuilder, GetSIDWithoutASubAuthorityThrows) {
  SidBuilder builder(kWorldAuthority);
  EXPECT_EQ(TextThrownBy([&] { builder.GetSID(); }),
            "Calling GetSID before specifying atleast one sub authority");
  builder.AddSubAuthority(0);
  EXPECT_NE(builder.GetSID(), nullptr);
}

TEST(SidBuilder, MisuseIsAPlainException) {
  SidBuilder builder(kWorldAuthority);
  try {
    builder.GetSID();
    FAIL() << "nothing was thrown";
  } catch (const ExceptionBase& e) {
    EXPECT_EQ(dynamic_cast<const ExceptionWindows*>(&e), nullptr);
  }
}

TEST(AclBuilder, EntriesKeepModeMaskInheritanceAndTrustee) {
  SidBuilder everyone(kWorldAuthority);
  everyone.AddSubAuthority(0);
  AclBuilder builder;
  builder.AddExplicitAccess(AccessMode::Grant, 0x120089, CONTAINER_INHERIT_ACE, TrusteeForm::Sid,
                            TrusteeType::WellKnownGroup, everyone.GetSID());
  const std::vector<Entry> entries = EntriesOf(builder.GetACL());
  ASSERT_EQ(entries.size(), 1U);
  EXPECT_EQ(entries[0].flags, CONTAINER_INHERIT_ACE);
  EXPECT_EQ(entries[0].mask, 0x120089U);
  EXPECT_EQ(entries[0].sid, "S-1-1-0");
}

TEST(AclBuilder, TakesEntriesForSeveralTrustees) {
  SidBuilder everyone(kWorldAuthority);
  everyone.AddSubAuthority(0);
  SidBuilder administrators({0, 0, 0, 0, 0, 5});
  administrators.AddSubAuthority(32);
  administrators.AddSubAuthority(544);
  AclBuilder builder;
  builder.AddSidAccess(AccessMode::Set, 0x1F0003, TrusteeType::WellKnownGroup, everyone);
  builder.AddSidAccess(AccessMode::Set, 0x1F0001, TrusteeType::Group, administrators);
  EXPECT_EQ(EntriesOf(builder.GetACL()).size(), 2U);
}

TEST(AclBuilder, AddSidAccessBuildsTheSid) {
  SidBuilder everyone(kWorldAuthority);
  everyone.AddSubAuthority(0);
  AclBuilder builder;
  builder.AddSidAccess(AccessMode::Set, 1, TrusteeType::WellKnownGroup, everyone);
  EXPECT_EQ(TextThrownBy([&] { everyone.AddSubAuthority(1); }),
            "Specifiying a new authority after calling GetSID(), object already finalized");
}

TEST(AclBuilder, GetACLTwiceReturnsTheSameList) {
  SidBuilder everyone(kWorldAuthority);
  everyone.AddSubAuthority(0);
  AclBuilder builder;
  builder.AddSidAccess(AccessMode::Set, 1, TrusteeType::WellKnownGroup, everyone);
  EXPECT_EQ(builder.GetACL(), builder.GetACL());
}

TEST(AclBuilder, EntryAfterGetACLThrows) {
  SidBuilder everyone(kWorldAuthority);
  everyone.AddSubAuthority(0);
  AclBuilder builder;
  builder.AddSidAccess(AccessMode::Set, 1, TrusteeType::WellKnownGroup, everyone);
  builder.GetACL();
  EXPECT_EQ(
      TextThrownBy([&] { builder.AddSidAccess(AccessMode::Set, 2, TrusteeType::WellKnownGroup, everyone); }),
      "Specifiying a new explicit access after calling GetACL(), object already finalized");
}

TEST(AclBuilder, NoEntriesMakeAListOfNothing) {
  AclBuilder builder;
  PACL const acl = builder.GetACL();
  EXPECT_TRUE(acl == nullptr || EntriesOf(acl).empty());
}

TEST(AclBuilder, SystemsRefusalIsReportedWithTheCodeThatTheCallReturned) {
  AclBuilder builder;
  builder.AddExplicitAccess(AccessMode::Set, 1, 0, TrusteeForm::BadForm, TrusteeType::Unknown, nullptr);
  SetLastError(4711);  // The call returns its code and does not set the last error.
  try {
    builder.GetACL();
    FAIL() << "nothing was thrown";
  } catch (const ExceptionWindows& e) {
    EXPECT_EQ(e.ErrorCode(), static_cast<std::uint32_t>(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(e.GetMessage().rfind("SetEntriesInAcl() failed - Error code : 87 - ", 0), 0U) << e.GetMessage();
  }
}

TEST(SecurityDescriptorBuilder, AttributesAreNotInheritableAndCarryTheList) {
  SidBuilder everyone(kWorldAuthority);
  everyone.AddSubAuthority(0);
  SecurityDescriptorBuilder builder;
  builder.Dacl().AddSidAccess(AccessMode::Set, 0x1F0003, TrusteeType::WellKnownGroup, everyone);
  SECURITY_ATTRIBUTES attributes{};
  attributes.bInheritHandle = TRUE;
  builder.ProduceAttributes(attributes);
  EXPECT_EQ(attributes.nLength, 24U);
  EXPECT_FALSE(attributes.bInheritHandle);
  ASSERT_NE(attributes.lpSecurityDescriptor, nullptr);
  EXPECT_TRUE(IsValidSecurityDescriptor(attributes.lpSecurityDescriptor));
}

TEST(EveryoneSecurity, DescriptorHasExactlyOneEntryForEveryoneWithTheMask) {
  EveryoneSecurity security(0x12019F);
  SECURITY_ATTRIBUTES* const attributes = security.GetSecurityAttributes();
  EXPECT_EQ(attributes->nLength, 24U);
  EXPECT_FALSE(attributes->bInheritHandle);
  BOOL present = FALSE;
  BOOL defaulted = TRUE;
  PACL acl = nullptr;
  ASSERT_TRUE(GetSecurityDescriptorDacl(attributes->lpSecurityDescriptor, &present, &acl, &defaulted));
  EXPECT_TRUE(present);
  EXPECT_FALSE(defaulted);
  ExpectOnlyEveryone(acl, 0x12019F);
}

TEST(EveryoneSecurity, SystemAccessListIsNotAttached) {
  EveryoneSecurity security(kEventAccess);
  BOOL present = TRUE;
  BOOL defaulted = FALSE;
  PACL acl = nullptr;
  ASSERT_TRUE(GetSecurityDescriptorSacl(security.GetSecurityAttributes()->lpSecurityDescriptor, &present,
                                        &acl, &defaulted));
  EXPECT_FALSE(present);
}

TEST(EveryoneSecurity, MasksOfTheSharedObjects) {
  EXPECT_EQ(kPipeAccess, 0x12019FU);
  EXPECT_EQ(kFileMapAccess, 0xF001FU);
  EXPECT_EQ(kEventAccess, 0x1F0003U);
}

TEST(EveryoneSecurity, EventIsOpenToEveryone) {
  EveryoneSecurity security(kEventAccess);
  const HANDLE event = CreateEventA(security.GetSecurityAttributes(), TRUE, FALSE, nullptr);
  ASSERT_NE(event, nullptr);
  ExpectObjectOpenToEveryone(event, kEventAccess);
  CloseHandle(event);
}

TEST(EveryoneSecurity, FileMappingIsOpenToEveryone) {
  EveryoneSecurity security(kFileMapAccess);
  const HANDLE mapping = CreateFileMappingA(INVALID_HANDLE_VALUE, security.GetSecurityAttributes(),
                                            PAGE_READWRITE, 0, 4096, nullptr);
  ASSERT_NE(mapping, nullptr);
  ExpectObjectOpenToEveryone(mapping, kFileMapAccess);
  CloseHandle(mapping);
}

TEST(EveryoneSecurity, PipeIsOpenToEveryone) {
  EveryoneSecurity security(kPipeAccess);
  const HANDLE pipe =
      CreateNamedPipeA(TestSupport::PipeNameForThisProcess("TamLogTestSecurity").c_str(), PIPE_ACCESS_INBOUND,
                       PIPE_TYPE_MESSAGE, 1, 4096, 4096, 0, security.GetSecurityAttributes());
  ASSERT_NE(pipe, INVALID_HANDLE_VALUE);
  ExpectObjectOpenToEveryone(pipe, kPipeAccess);
  CloseHandle(pipe);
}

TEST(EveryoneSecurity, ObjectOutlivesTheAttributes) {
  auto security = std::make_unique<EveryoneSecurity>(kEventAccess);
  const HANDLE event = CreateEventA(security->GetSecurityAttributes(), TRUE, FALSE, nullptr);
  security.reset();
  ExpectObjectOpenToEveryone(event, kEventAccess);
  CloseHandle(event);
}

}  // namespace
