#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/support/expect_failure.h"
#include "tests/support/real_call.h"
#include "tests/support/temp_dir.h"
#include "util/exceptions.h"
#include "util/service.h"
#include "util/service_handle.h"
#include "util/win32.h"

// Must follow windows.h.
#include <aclapi.h>
#include <sddl.h>

// Failing steps of an installation, and the access list that it passes to the system, which Wine neither
// returns nor keeps. All other calls go to the real service control manager.

namespace {

using TestSupport::RealCall;

enum class Call { None, OpenManager, Description, FirstQuery, SecondQuery, Merge, SetSecurity, CloseHandle };
Call failing = Call::None;

// The service's present list, as a self-relative descriptor; freed by LocalFree at the end.
PSECURITY_DESCRIPTOR currentDescriptor = nullptr;
int queries = 0;

struct Entry {
  BYTE type;
  BYTE flags;
  ACCESS_MASK mask;
  std::string sid;
  bool operator==(const Entry&) const = default;
};
// The arguments of the last call.
std::vector<Entry> applied;
int applications = 0;
SECURITY_INFORMATION appliedInformation = 0;
bool appliedPresent = false;
bool appliedDefaulted = true;

bool Fails(Call call, DWORD error) {
  if (failing != call) return false;
  SetLastError(error);
  return true;
}

std::vector<Entry> EntriesOf(ACL* list) {
  std::vector<Entry> entries;
  for (DWORD index = 0; index < list->AceCount; ++index) {
    void* entry = nullptr;
    if (GetAce(list, index, &entry) == 0) continue;
    auto* const allowed = static_cast<ACCESS_ALLOWED_ACE*>(entry);
    char* text = nullptr;
    ConvertSidToStringSidA(&allowed->SidStart, &text);
    entries.push_back({allowed->Header.AceType, allowed->Header.AceFlags, allowed->Mask, text});
    LocalFree(text);
  }
  return entries;
}

SC_HANDLE WINAPI FakeOpenManager(LPCSTR machine, LPCSTR database, DWORD access) {
  if (Fails(Call::OpenManager, ERROR_ACCESS_DENIED)) return nullptr;
  return RealCall<decltype(&OpenSCManagerA)>("advapi32", "OpenSCManagerA")(machine, database, access);
}

WINBOOL WINAPI FakeChangeConfig(SC_HANDLE service, DWORD level, LPVOID info) {
  if (Fails(Call::Description, ERROR_ACCESS_DENIED)) return FALSE;
  return RealCall<decltype(&ChangeServiceConfig2A)>("advapi32", "ChangeServiceConfig2A")(service, level,
                                                                                         info);
}

WINBOOL WINAPI FakeQuery(SC_HANDLE /*service*/, SECURITY_INFORMATION information, PSECURITY_DESCRIPTOR buffer,
                         DWORD size, LPDWORD needed) {
  ++queries;
  if (queries == 1 && Fails(Call::FirstQuery, ERROR_ACCESS_DENIED)) return FALSE;
  if (queries == 2 && Fails(Call::SecondQuery, ERROR_ACCESS_DENIED)) return FALSE;
  if (information != DACL_SECURITY_INFORMATION) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
  }
  *needed = GetSecurityDescriptorLength(currentDescriptor);
  if (size < *needed) {
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return FALSE;
  }
  const auto* const bytes = static_cast<const char*>(currentDescriptor);
  std::copy(bytes, bytes + *needed, static_cast<char*>(buffer));
  return TRUE;
}

WINBOOL WINAPI FakeSetSecurity(SC_HANDLE /*service*/, SECURITY_INFORMATION information,
                               PSECURITY_DESCRIPTOR descriptor) {
  if (Fails(Call::SetSecurity, ERROR_ACCESS_DENIED)) return FALSE;
  ++applications;
  appliedInformation = information;
  BOOL present = FALSE;
  BOOL defaulted = TRUE;
  ACL* list = nullptr;
  if (IsValidSecurityDescriptor(descriptor) == 0 ||
      GetSecurityDescriptorDacl(descriptor, &present, &list, &defaulted) == 0) {
    return FALSE;
  }
  appliedPresent = present != 0;
  appliedDefaulted = defaulted != 0;
  applied = EntriesOf(list);
  return TRUE;
}

DWORD WINAPI FakeMerge(ULONG count, PEXPLICIT_ACCESS_A entries, PACL old, PACL* merged) {
  if (Fails(Call::Merge, ERROR_INVALID_PARAMETER)) return ERROR_INVALID_PARAMETER;
  return RealCall<decltype(&SetEntriesInAclA)>("advapi32", "SetEntriesInAclA")(count, entries, old, merged);
}

WINBOOL WINAPI FakeClose(SC_HANDLE handle) {
  const WINBOOL closed = RealCall<decltype(&CloseServiceHandle)>("advapi32", "CloseServiceHandle")(handle);
  return Fails(Call::CloseHandle, ERROR_INVALID_HANDLE) ? FALSE : closed;
}

}  // namespace

extern "C" {
decltype(&OpenSCManagerA) __imp_OpenSCManagerA = FakeOpenManager;
decltype(&ChangeServiceConfig2A) __imp_ChangeServiceConfig2A = FakeChangeConfig;
decltype(&QueryServiceObjectSecurity) __imp_QueryServiceObjectSecurity = FakeQuery;
decltype(&SetServiceObjectSecurity) __imp_SetServiceObjectSecurity = FakeSetSecurity;
decltype(&SetEntriesInAclA) __imp_SetEntriesInAclA = FakeMerge;
decltype(&CloseServiceHandle) __imp_CloseServiceHandle = FakeClose;
}

namespace TamLogUtil::Services {
namespace {

using Exceptions::ExceptionWindows;
using TestSupport::ExpectFailure;
using TestSupport::WindowsText;

constexpr const char* kEveryone = "S-1-1-0";
constexpr const char* kSystem = "S-1-5-18";
constexpr const char* kAdministrators = "S-1-5-32-544";
constexpr ACCESS_MASK kAdministratorRights = 0xF01FF;
constexpr ACCESS_MASK kSystemRights = 0x200FD;
constexpr ACCESS_MASK kStartStopAndRead = 0x20030;

class InstallFaults : public testing::Test {
 protected:
  InstallFaults() {
    failing = Call::None;
    queries = 0;
    applications = 0;
    applied.clear();
    // A typical list of a service: the system's account and the administrators.
    ConvertStringSecurityDescriptorToSecurityDescriptorA("D:(A;;0x200fd;;;SY)(A;;0xf01ff;;;BA)",
                                                         SDDL_REVISION_1, &currentDescriptor, nullptr);
    service.SetServiceName(name);
    service.SetDisplayName(name);
    service.SetExecutablePath("C:\\service.exe");
  }
  ~InstallFaults() noexcept override {
    failing = Call::None;
    if (IsInstalled()) service.Remove();
    LocalFree(currentDescriptor);
  }

  bool IsInstalled() const {
    const ServiceHandle manager(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    const ServiceHandle installed(
        OpenServiceA(static_cast<SC_HANDLE>(manager.Get()), name.c_str(), SERVICE_ALL_ACCESS));
    return installed.Get() != nullptr;
  }

  const std::string name = "TamLogTestInstall" + TestSupport::ProcessSuffix();
  Service service;
};

TEST_F(InstallFaults, EveryoneMayStartAndStopAndTheOtherRightsAreKept) {
  service.Install();
  ASSERT_EQ(applications, 1);
  EXPECT_EQ(appliedInformation, 4U);
  EXPECT_TRUE(appliedPresent);
  EXPECT_FALSE(appliedDefaulted);
  const auto has = [](const Entry& entry) {
    return std::find(applied.begin(), applied.end(), entry) != applied.end();
  };
  EXPECT_EQ(applied.size(), 3U);
  EXPECT_TRUE(has({ACCESS_ALLOWED_ACE_TYPE, 0, kStartStopAndRead, kEveryone}));
  EXPECT_TRUE(has({ACCESS_ALLOWED_ACE_TYPE, 0, kSystemRights, kSystem}));
  EXPECT_TRUE(has({ACCESS_ALLOWED_ACE_TYPE, 0, kAdministratorRights, kAdministrators}));
}

TEST_F(InstallFaults, TheListIsQueriedForItsSizeFirst) {
  service.Install();
  EXPECT_EQ(queries, 2);
}

TEST_F(InstallFaults, AFailureToOpenToEveryoneIsSilent) {
  for (const Call call : {Call::FirstQuery, Call::SecondQuery, Call::Merge, Call::SetSecurity}) {
    failing = call;
    queries = 0;
    EXPECT_NO_THROW(service.Install());
    EXPECT_EQ(applications, 0);
    failing = Call::None;
    EXPECT_TRUE(IsInstalled());
    service.Remove();
  }
}

TEST_F(InstallFaults, AManagerThatCannotBeOpenedFailsInstallAndRemove) {
  failing = Call::OpenManager;
  const std::string text = WindowsText("OpenSCManager() failed", ERROR_ACCESS_DENIED);
  ExpectFailure<ExceptionWindows>([&] { service.Install(); }, text);
  ExpectFailure<ExceptionWindows>([&] { service.Remove(); }, text);
}

TEST_F(InstallFaults, AFailedDescriptionThrowsAlthoughTheServiceStays) {
  failing = Call::Description;
  ExpectFailure<ExceptionWindows>([&] { service.Install(); },
                                  WindowsText("ChangeServiceConfig2() failed", ERROR_ACCESS_DENIED));
  failing = Call::None;
  EXPECT_EQ(queries, 0);
  EXPECT_TRUE(IsInstalled());
}

TEST_F(InstallFaults, AHandleThatCannotBeClosedFailsTheInstallation) {
  failing = Call::CloseHandle;
  ExpectFailure<ExceptionWindows>([&] { service.Install(); },
                                  WindowsText("CloseServiceHandle() failed:", ERROR_INVALID_HANDLE));
  failing = Call::None;
  EXPECT_TRUE(IsInstalled());
}

TEST_F(InstallFaults, AFailedCloseDoesNotReplaceAnExceptionOnItsWay) {
  failing = Call::CloseHandle;
  ExpectFailure<ExceptionWindows>([&] { service.Remove(); },
                                  WindowsText("OpenService() failed", ERROR_SERVICE_DOES_NOT_EXIST));
}

class ServiceHandleTest : public InstallFaults {
 protected:
  static SC_HANDLE OpenManager() { return OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CONNECT); }
  const std::string text = WindowsText("CloseServiceHandle() failed:", ERROR_INVALID_HANDLE);
};

TEST_F(ServiceHandleTest, HoldsOneHandleOrNone) {
  const SC_HANDLE manager = OpenManager();
  ServiceHandle handle(manager);
  EXPECT_EQ(handle.Get(), manager);
  handle.Replace(nullptr);
  EXPECT_EQ(handle.Get(), nullptr);
  failing = Call::CloseHandle;
  EXPECT_NO_THROW(handle.Replace(nullptr));
}

TEST_F(ServiceHandleTest, AFailedCloseThrowsWhenTheHandleIsReplaced) {
  ServiceHandle handle(OpenManager());
  const SC_HANDLE next = OpenManager();
  failing = Call::CloseHandle;
  ExpectFailure<ExceptionWindows>([&] { handle.Replace(next); }, text);
  failing = Call::None;
  EXPECT_EQ(handle.Get(), next);
}

TEST_F(ServiceHandleTest, AFailedCloseThrowsOutOfTheDestructor) {
  ExpectFailure<ExceptionWindows>(
      [&] {
        const ServiceHandle handle(OpenManager());
        failing = Call::CloseHandle;
      },
      text);
}

}  // namespace
}  // namespace TamLogUtil::Services
