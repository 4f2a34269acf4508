#include "packaging/setup/setup.h"

#include <algorithm>
#include <array>
#include <cwchar>
#include <optional>
#include <vector>

#include "client/message/win32.h"
#include "packaging/setup/file_set.h"
#include "packaging/setup/protected_directory.h"
#include "packaging/setup/registry.h"
#include "packaging/setup/service.h"
#include "packaging/setup/setup_error.h"
#include "packaging/setup/transaction.h"

namespace TamLogSetup {

namespace fs = std::filesystem;

namespace {

constexpr wchar_t kMaker[] = LR"(SOFTWARE\Brenmark VORTA)";
constexpr wchar_t kPackage[] = LR"(SOFTWARE\Brenmark VORTA\Torvane Log Server Package)";
constexpr wchar_t kMessages[] = L"Logs.dat";
constexpr wchar_t kSettings[] = LR"(SOFTWARE\Brenmark VORTA\Torvane Log Server)";
constexpr wchar_t kEventSource[] = LR"(SYSTEM\CurrentControlSet\Services\EventLog\Application\TamLogServer)";
constexpr wchar_t kPrograms[] = LR"(SOFTWARE\Microsoft\Windows\CurrentVersion\Uninstall\Torvane Log Server)";

// The values of a key that a step is about to write, so that they can come back.
class SavedValues {
 public:
  SavedValues(std::wstring path, std::vector<std::wstring> valueNames)
      : key(std::move(path)), names(std::move(valueNames)) {
    existed = KeyExists(key);
    for (const std::wstring& name : names) values.push_back(ReadValue(key, name));
  }

  void Restore() const {
    if (!existed) {
      DeleteTree(key);
      DeleteEmptyKey(kMaker);
      return;
    }
    for (std::size_t i = 0; i < names.size(); ++i) {
      if (values[i]) WriteValue(key, names[i], *values[i]);
    }
  }

 private:
  std::wstring key;
  std::vector<std::wstring> names;
  std::vector<std::optional<RegistryValue>> values;
  bool existed = false;
};

std::wstring Server(const fs::path& directory) {
  return (directory / L"TamLogServer.exe").wstring();
}

// The server's own log lies in its working directory, which is that of the system.
fs::path ServerLog() {
  std::array<wchar_t, MAX_PATH + 1> system{};
  GetSystemDirectoryW(system.data(), static_cast<UINT>(system.size()));
  return fs::path(system.data()) / L"TamLogServiceLog.txt";
}

std::wstring Quoted(const std::wstring& path) {
  return L"\"" + path + L"\"";
}

FileList Together(FileList files, const FileList& more) {
  files.insert(files.end(), more.begin(), more.end());
  std::sort(files.begin(), files.end());
  files.erase(std::unique(files.begin(), files.end()), files.end());
  return files;
}

const std::vector<std::wstring> kProgramNames{L"DisplayName",          L"DisplayVersion", L"Publisher",
                                              L"InstallLocation",      L"DisplayIcon",    L"UninstallString",
                                              L"QuietUninstallString", L"NoModify",       L"NoRepair"};
const std::vector<std::wstring> kEventNames{L"EventMessageFile", L"TypesSupported", L"CustomSource"};
const std::vector<std::wstring> kPackageNames{L"Version", L"Kind", L"Directory"};

void WriteProgramEntry(const Options& options) {
  const std::wstring uninstaller = (options.directory / L"uninstall.exe").wstring();
  WriteText(kPrograms, L"DisplayName", L"Torvane Log Server");
  WriteText(kPrograms, L"DisplayVersion", options.version);
  WriteText(kPrograms, L"Publisher", L"Brenmark VORTA");
  WriteText(kPrograms, L"InstallLocation", options.directory.wstring());
  WriteText(kPrograms, L"DisplayIcon", Server(options.directory));
  WriteText(kPrograms, L"UninstallString", Quoted(uninstaller));
  WriteText(kPrograms, L"QuietUninstallString", Quoted(uninstaller) + L" /S");
  WriteNumber(kPrograms, L"NoModify", 1);
  WriteNumber(kPrograms, L"NoRepair", 1);
  WriteText(kPackage, L"Version", options.version);
  WriteText(kPackage, L"Kind", L"setup");
  WriteText(kPackage, L"Directory", options.directory.wstring());
}

// The system's own file of messages that consist of the written text.
void WriteEventSource() {
  WriteExpandText(kEventSource, L"EventMessageFile", LR"(%SystemRoot%\System32\EventCreate.exe)");
  WriteNumber(kEventSource, L"TypesSupported", 7);
  WriteNumber(kEventSource, L"CustomSource", 1);
}

// Returns the code of the reason for which this package must not be installed; kDone without one.
int ReasonAgainst(const Options& options) {
  const std::wstring kind = ReadText(kPackage, L"Kind");
  const std::wstring present = ReadText(kPackage, L"Version");
  if (kind == L"msi") {
    Say("version " + Utf8(present) +
        " was installed from the MSI; upgrade it with an MSI, or remove it first");
    return kOtherPackage;
  }
  if (IsOlder(options.version, present)) {
    Say("the newer version " + Utf8(present) + " is installed; remove it before you install " +
        Utf8(options.version));
    return kDowngrade;
  }
  return kDone;
}

void RegisterSteps(Transaction& steps, const Options& options, const std::optional<ServiceEntry>& before) {
  const std::wstring server = Server(options.directory);
  if (before) {
    steps.Do(
        "change the service", [&] { SetCommand(Quoted(server)); },
        [entry = *before] { RestoreService(entry); });
  } else {
    steps.Do(
        "register the service", [&] { RegisterService(server); }, [] { DeleteService(); });
  }
  steps.Do(
      "set the service's restarts after failures", [] { SetRecovery(PackageRecovery()); },
      [entry = before] {
        if (entry) RestoreService(*entry);
      });
  steps.Do(
      "register the event source", [] { WriteEventSource(); },
      [old = SavedValues(kEventSource, kEventNames)] { old.Restore(); });
  if (options.addToPath && !IsOnPath(options.directory.wstring())) {
    steps.Do(
        "add the directory to PATH", [&] { AddToPath(options.directory.wstring()); },
        [directory = options.directory.wstring()] { RemoveFromPath(directory); });
  }
  steps.Do(
      "register the package", [&] { WriteProgramEntry(options); },
      [programs = SavedValues(kPrograms, kProgramNames), package = SavedValues(kPackage, kPackageNames)] {
        programs.Restore();
        package.Restore();
      });
}

void StartStep(Transaction& steps, const Options& options, const std::optional<ServiceEntry>& before) {
  if (before && !before->running) {
    Say("the service was stopped before; it stays stopped");
  } else if (!DriverDeviceExists()) {
    Say("The driver's device \\\\.\\TAMLOG does not exist, and the service cannot start without it. "
        "Everything is "
        "installed. Install the driver, then start the service: tamlogctl server start");
  } else {
    steps.Do(
        "start the service", [] { StartService(); },
        [directory = options.directory, kept = ExistingData(options.directory)] {
          StopService();
          DeleteData(directory, kept);
        });
  }
}

void InstallSteps(Transaction& steps, const Options& options) {
  const FileList files = ReadList(options.payload / kListName);
  if (files.empty()) throw SetupError("the package has no files");
  const FileList old = Together(files, ReadList(options.directory / kListName));
  const std::optional<ServiceEntry> before = QueryService();
  CheckDirectory(options.directory);
  FilesAside aside(options.directory);
  std::vector<fs::path> made;
  bool checked = false;
  if (before) {
    steps.Do(
        "stop the service", [] { StopService(); },
        [running = before->running] {
          if (running) StartService();
        });
  }
  steps.Do(
      "move the old files aside",
      [&] {
        CheckDirectory(options.directory);  // again: a user may have created it while the service stopped
        aside.Move(old);
      },
      [&] { aside.MoveBack(); });
  steps.Do(
      "copy the files to " + Utf8(options.directory.wstring()),
      [&] {
        MakeProtected(options.directory, made);
        checked = true;
        CopyFiles(files, options.payload, options.directory);
      },
      [&] {
        if (checked) DeleteFiles(files, options.directory);
        DeleteMade(made);
      });
  RegisterSteps(steps, options, before);
  StartStep(steps, options, before);
  steps.Commit();
  aside.Delete();
}

void RemoveSteps(Transaction& steps, const Options& options) {
  const FileList files = ReadList(options.directory / kListName);
  if (files.empty()) throw SetupError("no package is installed in " + Utf8(options.directory.wstring()));
  const std::optional<ServiceEntry> before = QueryService();
  const std::wstring directory = options.directory.wstring();
  const bool onPath = IsOnPath(directory);
  FilesAside aside(options.directory);
  const auto restart = [running = before && before->running] {
    if (running) StartService();
  };
  steps.Do(
      "stop the service", [] { StopService(); }, restart);
  steps.Do(
      "delete the service", [] { DeleteService(); },
      [&] {
        if (!before) return;
        if (!QueryService()) RegisterService(Server(options.directory));
        RestoreService(*before);
      });
  steps.Do(
      "delete the event source", [] { DeleteTree(kEventSource); },
      [old = SavedValues(kEventSource, kEventNames)] { old.Restore(); });
  if (onPath) {
    steps.Do(
        "remove the directory from PATH", [&] { RemoveFromPath(directory); }, [&] { AddToPath(directory); });
  }
  steps.Do(
      "delete the registration of the package",
      [] {
        DeleteTree(kPrograms);
        DeleteTree(kPackage);
        DeleteEmptyKey(kMaker);
      },
      [programs = SavedValues(kPrograms, kProgramNames), package = SavedValues(kPackage, kPackageNames)] {
        programs.Restore();
        package.Restore();
      });
  steps.Do(
      "delete the files", [&] { aside.Move(files); }, [&] { aside.MoveBack(); });
  steps.Commit();
  aside.Delete();
  if (options.deleteData) {
    Say("delete messages and settings");
    DeleteData(options.directory, {false, false, false});
  }
  DeleteEmptyDirectories(files, options.directory);
}

int Run(const Options& options, void (*steps)(Transaction&, const Options&)) {
  Transaction transaction(options.failAt);
  try {
    DeleteLeftAside(options.directory);
    steps(transaction, options);
    return kDone;
  } catch (const std::exception& failure) {
    if (transaction.IsIncomplete()) {
      Say(std::string("failed, and not everything could be undone: ") + failure.what());
      return kHalfUndone;
    }
    Say(std::string("failed; everything is as before: ") + failure.what());
    return kFailed;
  }
}

}  // namespace

bool IsOlder(const std::wstring& left, const std::wstring& right) {
  const wchar_t* a = left.c_str();
  const wchar_t* b = right.c_str();
  while (*a != L'\0' || *b != L'\0') {
    wchar_t* endA = nullptr;
    wchar_t* endB = nullptr;
    const unsigned long numberA = std::wcstoul(a, &endA, 10);
    const unsigned long numberB = std::wcstoul(b, &endB, 10);
    if (numberA != numberB) return numberA < numberB;
    if (endA == a && endB == b) return false;  // not a number
    a = *endA == L'.' ? endA + 1 : endA;
    b = *endB == L'.' ? endB + 1 : endB;
  }
  return false;
}

Data ExistingData(const fs::path& directory) {
  return {fs::exists(directory / kMessages), KeyExists(kSettings), fs::exists(ServerLog())};
}

void DeleteData(const fs::path& directory, const Data& kept) {
  // Only what has its name by default: every user may set the path of the log, to a file of somebody else
  // too.
  if (!kept.messages) DeleteFiles({kMessages}, directory);
  if (!kept.serverLog) DeleteFileW(ServerLog().c_str());
  if (!kept.settings) {
    DeleteTree(kSettings);
    DeleteEmptyKey(kMaker);
  }
}

int Install(const Options& options) {
  if (const int reason = ReasonAgainst(options); reason != kDone) return reason;
  return Run(options, &InstallSteps);
}

int Remove(const Options& options) {
  return Run(options, &RemoveSteps);
}

}  // namespace TamLogSetup
