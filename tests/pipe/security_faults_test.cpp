// The failures of the builders of the security attributes.

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "pipe/access_list.h"
#include "pipe/security_attributes.h"
#include "tests/pipe/call_faults.h"
#include "util/exceptions.h"
#include "util/win32.h"

using TamLogUtil::Exceptions::ExceptionWindows;
using TestSupport::Faults;

namespace {

class SecurityFaults : public ::testing::Test {
 protected:
  SecurityFaults() { Faults().Clear(); }
  ~SecurityFaults() override { Faults().Clear(); }

  static void ExpectWindowsFailure(const std::function<void()>& action, const std::string& text,
                                   std::uint32_t code) {
    try {
      action();
      FAIL() << "nothing was thrown";
    } catch (const ExceptionWindows& e) {
      EXPECT_EQ(e.ErrorCode(), code);
      const std::string expected = text + " - Error code : " + std::to_string(code) + " - ";
      EXPECT_EQ(e.GetMessage().substr(0, expected.size()), expected);
    }
  }
};

TEST_F(SecurityFaults, SidThatCannotBeAllocated) {
  SidBuilder builder(kWorldAuthority);
  builder.AddSubAuthority(0);
  Faults().allocateSid.Fail(ERROR_NOT_ENOUGH_MEMORY);
  ExpectWindowsFailure([&] { builder.GetSID(); }, "AllocateAndInitializeSid() failed",
                       ERROR_NOT_ENOUGH_MEMORY);
  EXPECT_NE(builder.GetSID(), nullptr);  // the failure left nothing behind
}

TEST_F(SecurityFaults, SidThatIsNullInSpiteOfSuccess) {
  SidBuilder builder(kWorldAuthority);
  builder.AddSubAuthority(0);
  Faults().allocateSid.Fail(0);
  EXPECT_THROW(builder.GetSID(), ExceptionWindows);
}

TEST_F(SecurityFaults, ListThatCannotBeMade) {
  AclBuilder builder;
  Faults().setEntriesInAcl.Fail(ERROR_NOT_ENOUGH_MEMORY);
  ExpectWindowsFailure([&] { builder.GetACL(); }, "SetEntriesInAcl() failed", ERROR_NOT_ENOUGH_MEMORY);
}

TEST_F(SecurityFaults, DescriptorThatCannotBeInitialised) {
  SecurityDescriptorBuilder builder;
  SECURITY_ATTRIBUTES attributes{};
  Faults().initializeDescriptor.Fail(ERROR_UNKNOWN_REVISION);
  ExpectWindowsFailure([&] { builder.ProduceAttributes(attributes); },
                       "InitializeSecurityDescriptor() failed", ERROR_UNKNOWN_REVISION);
}

TEST_F(SecurityFaults, ListThatCannotBeAttached) {
  SecurityDescriptorBuilder builder;
  SECURITY_ATTRIBUTES attributes{};
  Faults().setDescriptorDacl.Fail(ERROR_INVALID_SECURITY_DESCR);
  ExpectWindowsFailure([&] { builder.ProduceAttributes(attributes); }, "SetSecurityDescriptorDacl() failed",
                       ERROR_INVALID_SECURITY_DESCR);
}

TEST_F(SecurityFaults, EveryoneSecurityLetsAllOfThemOutAndLeaksNothing) {
  Faults().allocateSid.Fail(8);
  ExpectWindowsFailure([] { EveryoneSecurity(1U); }, "AllocateAndInitializeSid() failed", 8);
  Faults().Clear();
  Faults().setEntriesInAcl.Fail(8);
  ExpectWindowsFailure([] { EveryoneSecurity(1U); }, "SetEntriesInAcl() failed", 8);
  EXPECT_EQ(Faults().freeSid.Calls(), 1);
  Faults().Clear();
  Faults().initializeDescriptor.Fail(8);
  ExpectWindowsFailure([] { EveryoneSecurity(1U); }, "InitializeSecurityDescriptor() failed", 8);
  Faults().Clear();
  Faults().setDescriptorDacl.Fail(8);
  ExpectWindowsFailure([] { EveryoneSecurity(1U); }, "SetSecurityDescriptorDacl() failed", 8);
  EXPECT_EQ(Faults().freeSid.Calls(), 1);
}

TEST_F(SecurityFaults, BuilderWhoseSidWasNeverBuiltFreesNothing) {
  {
    SidBuilder builder(kWorldAuthority);
    builder.AddSubAuthority(0);
  }
  EXPECT_EQ(Faults().freeSid.Calls(), 0);
}

TEST_F(SecurityFaults, BuilderWhoseListWasNeverBuiltFreesNothing) {
  {
    AclBuilder builder;
    builder.AddExplicitAccess(AccessMode::Set, 1, 0, TrusteeForm::Sid, TrusteeType::Unknown, nullptr);
  }
  EXPECT_EQ(Faults().localFree.Calls(), 0);
}

TEST_F(SecurityFaults, WhatWasBuiltIsFreedOnce) {
  {
    SidBuilder everyone(kWorldAuthority);
    everyone.AddSubAuthority(0);
    AclBuilder builder;
    builder.AddSidAccess(AccessMode::Set, 1, TrusteeType::WellKnownGroup, everyone);
    builder.GetACL();
    builder.GetACL();
    everyone.GetSID();
    EXPECT_EQ(Faults().allocateSid.Calls(), 1);
    EXPECT_EQ(Faults().setEntriesInAcl.Calls(), 1);
  }
  EXPECT_EQ(Faults().freeSid.Calls(), 1);
  EXPECT_EQ(Faults().localFree.Calls(), 1);
}

TEST_F(SecurityFaults, SystemListOfADescriptorIsNeverBuilt) {
  { const EveryoneSecurity security(kEventAccess); }
  EXPECT_EQ(Faults().setEntriesInAcl.Calls(), 1);
  EXPECT_EQ(Faults().localFree.Calls(), 1);
}

}  // namespace
