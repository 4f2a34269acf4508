// The recovery that the setup program configures. Wine accepts the calls and stores nothing, so they reach a
// fake service manager.

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <vector>

#include "client/message/win32.h"
#include "packaging/setup/service.h"
#include "packaging/setup/setup_error.h"

namespace {

using TamLogSetup::PackageRecovery;
using TamLogSetup::QueryService;
using TamLogSetup::Recovery;
using TamLogSetup::RestoreService;
using TamLogSetup::ServiceEntry;
using TamLogSetup::SetCommand;
using TamLogSetup::SetRecovery;

struct Manager {
  DWORD access = 0;  // of the last handle
  std::optional<Recovery> recovery;
  bool keepsRecovery = true;
  DWORD startType = SERVICE_AUTO_START;
  std::wstring command = L"\"C:\\old.exe\"";
};
Manager manager;

SC_HANDLE Handle() {
  return reinterpret_cast<SC_HANDLE>(&manager);
}

SC_HANDLE WINAPI FakeOpenManager(LPCWSTR, LPCWSTR, DWORD) {
  return Handle();
}

SC_HANDLE WINAPI FakeOpenService(SC_HANDLE, LPCWSTR name, DWORD access) {
  EXPECT_STREQ(name, L"TamLogServer");
  manager.access = access;
  return Handle();
}

BOOL WINAPI FakeClose(SC_HANDLE) {
  return TRUE;
}

BOOL WINAPI FakeChange2(SC_HANDLE, DWORD level, LPVOID info) {
  EXPECT_EQ(level, DWORD{SERVICE_CONFIG_FAILURE_ACTIONS});
  // The manager requires these rights, and a list, for these actions.
  EXPECT_TRUE(manager.access & SERVICE_CHANGE_CONFIG);
  EXPECT_TRUE(manager.access & SERVICE_START);
  const auto* const wanted = static_cast<const SERVICE_FAILURE_ACTIONSW*>(info);
  EXPECT_NE(wanted->lpsaActions, nullptr);
  Recovery recovery{wanted->dwResetPeriod, wanted->lpRebootMsg, wanted->lpCommand, {}};
  for (DWORD k = 0; k < wanted->cActions; ++k)
    recovery.actions.push_back({wanted->lpsaActions[k].Type, wanted->lpsaActions[k].Delay});
  manager.recovery = recovery;
  return TRUE;
}

BOOL WINAPI FakeQuery2(SC_HANDLE, DWORD, LPBYTE buffer, DWORD size, LPDWORD needed) {
  if (!manager.keepsRecovery) {
    *needed = 0;
    SetLastError(ERROR_INVALID_LEVEL);
    return FALSE;
  }
  const Recovery kept = manager.recovery.value_or(Recovery{});
  *needed = static_cast<DWORD>(sizeof(SERVICE_FAILURE_ACTIONSW) + kept.actions.size() * sizeof(SC_ACTION));
  if (size < *needed) {
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return FALSE;
  }
  // Texts that are not set are null.
  auto* const found = new (buffer) SERVICE_FAILURE_ACTIONSW{};
  found->dwResetPeriod = kept.resetPeriod;
  found->cActions = static_cast<DWORD>(kept.actions.size());
  found->lpsaActions = reinterpret_cast<SC_ACTION*>(buffer + sizeof *found);
  for (DWORD k = 0; k < found->cActions; ++k)
    found->lpsaActions[k] = {static_cast<SC_ACTION_TYPE>(kept.actions[k].type), kept.actions[k].delay};
  return TRUE;
}

BOOL WINAPI FakeQuery(SC_HANDLE, LPQUERY_SERVICE_CONFIGW buffer, DWORD size, LPDWORD needed) {
  const std::size_t text = (manager.command.size() + 1) * sizeof(wchar_t);
  *needed = static_cast<DWORD>(sizeof *buffer + text);
  if (size < *needed) {
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return FALSE;
  }
  new (buffer) QUERY_SERVICE_CONFIGW{};
  buffer->dwStartType = manager.startType;
  buffer->lpBinaryPathName = reinterpret_cast<wchar_t*>(buffer + 1);
  std::memcpy(buffer->lpBinaryPathName, manager.command.c_str(), text);
  return TRUE;
}

BOOL WINAPI FakeStatus(SC_HANDLE, SC_STATUS_TYPE,
                       LPBYTE buffer,  // NOLINT(readability-non-const-parameter): the system's signature
                       DWORD, LPDWORD) {
  (new (buffer) SERVICE_STATUS_PROCESS{})->dwCurrentState = SERVICE_STOPPED;
  return TRUE;
}

BOOL WINAPI FakeChange(SC_HANDLE, DWORD, DWORD startType, DWORD, LPCWSTR command, LPCWSTR, LPDWORD, LPCWSTR,
                       LPCWSTR, LPCWSTR, LPCWSTR) {
  if (startType != SERVICE_NO_CHANGE) manager.startType = startType;
  manager.command = command;
  return TRUE;
}

class RecoveryTest : public testing::Test {
 protected:
  void SetUp() override { manager = Manager{}; }
};

TEST_F(RecoveryTest, ServiceIsRestartedAfter5And30And60SecondsAndADayWithoutFailureBeginsAgain) {
  SetRecovery(PackageRecovery());
  ASSERT_TRUE(manager.recovery);
  EXPECT_EQ(manager.recovery->resetPeriod, 86'400U);
  EXPECT_EQ(manager.recovery->actions,
            (std::vector<Recovery::Action>{
                {SC_ACTION_RESTART, 5'000}, {SC_ACTION_RESTART, 30'000}, {SC_ACTION_RESTART, 60'000}}));
  EXPECT_EQ(manager.recovery->command, L"");
}

TEST_F(RecoveryTest, WhatTheManagerKeptBeforeComesBackWithCommandAndStartType) {
  const Recovery customised{3600, L"", L"", {{SC_ACTION_REBOOT, 1'000}}};
  manager.recovery = customised;
  manager.startType = SERVICE_DEMAND_START;
  const std::optional<ServiceEntry> before = QueryService();
  ASSERT_TRUE(before);
  SetCommand(L"\"C:\\new.exe\"");
  SetRecovery(PackageRecovery());
  manager.startType = SERVICE_AUTO_START;
  RestoreService(*before);
  EXPECT_EQ(manager.recovery, customised);
  EXPECT_EQ(manager.startType, DWORD{SERVICE_DEMAND_START});
  EXPECT_EQ(manager.command, L"\"C:\\old.exe\"");
}

TEST_F(RecoveryTest, ServiceWithoutActionsIsRestoredToNone) {
  manager.recovery = Recovery{};
  const std::optional<ServiceEntry> before = QueryService();
  SetRecovery(PackageRecovery());
  RestoreService(*before);
  EXPECT_EQ(manager.recovery, Recovery{});
}

TEST_F(RecoveryTest, SystemThatKeepsNoneIsNoFailure) {
  manager.keepsRecovery = false;
  const std::optional<ServiceEntry> before = QueryService();
  ASSERT_TRUE(before);
  EXPECT_FALSE(before->recovery);
  RestoreService(*before);
  EXPECT_FALSE(manager.recovery);
}

}  // namespace

extern "C" {
decltype(&FakeOpenManager) __imp_OpenSCManagerW = FakeOpenManager;
decltype(&FakeOpenService) __imp_OpenServiceW = FakeOpenService;
decltype(&FakeClose) __imp_CloseServiceHandle = FakeClose;
decltype(&FakeChange) __imp_ChangeServiceConfigW = FakeChange;
decltype(&FakeChange2) __imp_ChangeServiceConfig2W = FakeChange2;
decltype(&FakeQuery) __imp_QueryServiceConfigW = FakeQuery;
decltype(&FakeQuery2) __imp_QueryServiceConfig2W = FakeQuery2;
decltype(&FakeStatus) __imp_QueryServiceStatusEx = FakeStatus;
}
