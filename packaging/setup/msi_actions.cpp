// The steps that the tables of the MSI cannot express. They refuse a directory that users may change, report
// that the driver's device is missing, quote the path of the service, set its restarts after failures, and
// delete messages and settings on request, or those that a failed installation wrote.

#include <exception>
#include <filesystem>
#include <string>
#include <vector>

#include "client/message/win32.h"
#include "packaging/setup/protected_directory.h"
#include "packaging/setup/service.h"
#include "packaging/setup/setup.h"

// Must follow windows.h.
#include <msi.h>
#include <msiquery.h>

namespace {

void Report(MSIHANDLE session, INSTALLMESSAGE kind, const wchar_t* text) {
  const MSIHANDLE record = MsiCreateRecord(1);
  if (record == 0) return;
  MsiRecordSetStringW(record, 0, text);
  MsiProcessMessage(session, kind, record);
  MsiCloseHandle(record);
}

// In the installer's log; on the screen too, when it shows one.
void Tell(MSIHANDLE session, const wchar_t* text) {
  Report(session, INSTALLMESSAGE_WARNING, text);
}

std::wstring Property(MSIHANDLE session, const wchar_t* name) {
  DWORD length = 0;
  wchar_t none[1] = {};
  if (MsiGetPropertyW(session, name, none, &length) != ERROR_MORE_DATA) return L"";
  std::vector<wchar_t> text(++length);
  if (MsiGetPropertyW(session, name, text.data(), &length) != ERROR_SUCCESS) return L"";
  return {text.data(), length};
}

std::wstring Wide(const std::string& text) {
  std::wstring wide(text.size(), L'\0');
  const int length = MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), wide.data(),
                                         static_cast<int>(wide.size()));
  wide.resize(static_cast<std::size_t>(length));
  return wide;
}

}  // namespace

// Sets DEVICEMISSING, by which the service is not started.
extern "C" __declspec(dllexport) UINT __stdcall CheckDevice(MSIHANDLE session) {
  if (TamLogSetup::DriverDeviceExists()) return ERROR_SUCCESS;
  MsiSetPropertyW(session, L"DEVICEMISSING", L"1");
  Tell(session,
       L"The driver's device \\\\.\\TAMLOG does not exist, and the service cannot start without it. "
       L"Everything is "
       L"installed. Install the driver, then start the service: tamlogctl server start");
  return ERROR_SUCCESS;
}

// Some versions of the installer register the path of the server without quotation marks. The manager would
// then try C:\Program.exe first. CustomActionData is the directory of the package. A failure undoes the
// installation.
extern "C" __declspec(dllexport) UINT __stdcall QuoteCommand(MSIHANDLE session) {
  try {
    TamLogSetup::SetCommand(L"\"" + Property(session, L"CustomActionData") + L"TamLogServer.exe\"");
    return ERROR_SUCCESS;
  } catch (const std::exception&) {
    Tell(session, L"The command of the service could not be set.");
    return ERROR_INSTALL_FAILURE;
  }
}

// The installer's own action for the table MsiServiceConfigFailureActions "is not working as expected" by its
// documentation, which advises an action like this one. A failure undoes the installation.
extern "C" __declspec(dllexport) UINT __stdcall SetRestarts(MSIHANDLE session) {
  try {
    TamLogSetup::SetRecovery(TamLogSetup::PackageRecovery());
    Report(session, INSTALLMESSAGE_INFO, L"The restarts of the service after failures are set.");
    return ERROR_SUCCESS;
  } catch (const std::exception& failure) {
    Tell(session, Wide(failure.what()).c_str());
    return ERROR_INSTALL_FAILURE;
  }
}

// CustomActionData is the directory of the package. Runs as the system account, which is then the trusted
// caller: a directory owned by the user who started the installation counts as owned by another user.
extern "C" __declspec(dllexport) UINT __stdcall MakeDirectory(MSIHANDLE session) {
  try {
    const std::filesystem::path directory = Property(session, L"CustomActionData");
    std::vector<std::filesystem::path> made;
    TamLogSetup::CheckDirectory(directory);
    TamLogSetup::MakeProtected(directory, made);
    return ERROR_SUCCESS;
  } catch (const std::exception& failure) {
    Tell(session, Wide(failure.what()).c_str());
    return ERROR_INSTALL_FAILURE;
  }
}

// Runs when an installation fails. CustomActionData is the directory of the package if it did not exist.
extern "C" __declspec(dllexport) UINT __stdcall RemoveNewDirectory(MSIHANDLE session) {
  RemoveDirectoryW(Property(session, L"CustomActionData").c_str());  // fails where it is not empty
  return ERROR_SUCCESS;
}

// Sets the CustomActionData of the actions that run when the installation fails. RemoveNewDirectory: the
// directory of the package if it does not exist. DeleteNewData: for messages, settings and the server's own
// log, 1 if they exist before the installation, otherwise 0; then the directory of the package.
extern "C" __declspec(dllexport) UINT __stdcall RememberData(MSIHANDLE session) {
  const std::wstring directory = Property(session, L"INSTALLDIR");
  if (directory.empty()) return ERROR_INSTALL_FAILURE;
  const TamLogSetup::Data present = TamLogSetup::ExistingData(directory);
  std::error_code error;
  if (!std::filesystem::exists(directory, error))
    MsiSetPropertyW(session, L"RemoveNewDirectory", directory.c_str());
  std::wstring data;
  for (const bool exists : {present.messages, present.settings, present.serverLog})
    data += exists ? L'1' : L'0';
  return MsiSetPropertyW(session, L"DeleteNewData", (data + directory).c_str());
}

// Runs when an installation fails: a server that was started has written messages and settings. The installer
// has stopped it by now, but its process may still exist for a moment.
extern "C" __declspec(dllexport) UINT __stdcall DeleteNewData(MSIHANDLE session) {
  const std::wstring data = Property(session, L"CustomActionData");
  if (data.size() < 4) return ERROR_SUCCESS;
  try {
    TamLogSetup::StopService();
    TamLogSetup::DeleteData(data.substr(3), {data[0] != L'0', data[1] != L'0', data[2] != L'0'});
  } catch (const std::exception&) {
    Tell(session, L"Messages and settings of the failed installation could not be deleted.");
  }
  return ERROR_SUCCESS;
}

// CustomActionData is the directory of the package.
extern "C" __declspec(dllexport) UINT __stdcall DeleteData(MSIHANDLE session) {
  const std::wstring directory = Property(session, L"CustomActionData");
  try {
    if (!directory.empty()) TamLogSetup::DeleteData(directory, {false, false, false});
  } catch (const std::exception&) {
    Tell(session, L"Messages and settings could not be deleted.");
  }
  return ERROR_SUCCESS;
}
