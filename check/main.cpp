// tamlogcheck: tries on a real machine what the Torvane Log Server promises of Windows, and writes a report.
// docs/windows.md describes the checks; check/options.cpp has the help text.

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "check/checks.h"
#include "check/device.h"
#include "check/options.h"
#include "check/parts.h"
#include "check/report.h"
#include "check/session.h"
#include "check/system.h"
#include "client/message/win32.h"

namespace {

using namespace TamLogCheck;

std::atomic<bool> interrupted{false};

BOOL WINAPI OnInterrupt(DWORD event) {
  static_cast<void>(event);
  interrupted = true;  // settings and service are restored first
  return TRUE;
}

std::string RegistryText(const char* key, const char* value) {
  std::array<char, 256> text{};
  DWORD size = text.size() - 1;
  if (RegGetValueA(HKEY_LOCAL_MACHINE, key, value, RRF_RT_REG_SZ, nullptr, text.data(), &size) !=
      ERROR_SUCCESS)
    return "";
  return text.data();
}

std::string VersionText() {
  OSVERSIONINFOEXW version{};
  version.dwOSVersionInfoSize = sizeof(version);
  using Function = LONG(WINAPI*)(OSVERSIONINFOEXW*);
  const auto get = reinterpret_cast<Function>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA("ntdll.dll"), "RtlGetVersion")));
  if (get == nullptr || get(&version) != 0) return "unknown";
  return std::to_string(version.dwMajorVersion) + "." + std::to_string(version.dwMinorVersion) + "." +
         std::to_string(version.dwBuildNumber);
}

// Returns "2026-11-22 15:30:01"; with `dense`, "20261122-153001".
std::string TimeText(bool dense) {
  SYSTEMTIME now{};
  GetLocalTime(&now);
  std::array<char, 64> text{};
  static_cast<void>(std::snprintf(text.data(), text.size(), "%04u-%02u-%02u %02u:%02u:%02u", now.wYear,
                                  now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond));
  std::string time = text.data();
  if (dense) {
    std::erase_if(time, [](char each) { return each == '-' || each == ':'; });
    time[time.find(' ')] = '-';
  }
  return time;
}

std::string ComputerName() {
  std::array<char, 256> name{};
  DWORD size = name.size();
  return GetComputerNameA(name.data(), &size) != 0 ? std::string(name.data()) : "unknown";
}

std::string FileSystemOf(const std::string& directory) {
  std::array<char, 512> volume{};
  std::array<char, 64> name{};
  if (GetVolumePathNameA(directory.c_str(), volume.data(), static_cast<DWORD>(volume.size())) == 0 ||
      GetVolumeInformationA(volume.data(), nullptr, 0, nullptr, nullptr, nullptr, name.data(),
                            static_cast<DWORD>(name.size())) == 0) {
    return "unknown";
  }
  return name.data();
}

void AddFacts(Report& report) {
  constexpr char kNames[] = R"(SOFTWARE\Microsoft\Windows NT\CurrentVersion)";
  SYSTEM_INFO system{};
  GetNativeSystemInfo(&system);
  MEMORYSTATUSEX memory{};
  memory.dwLength = sizeof(memory);
  GlobalMemoryStatusEx(&memory);
  report.Fact("program", "tamlogcheck " TAMLOG_VERSION);
  report.Fact("time", TimeText(false));
  report.Fact("computer", ComputerName());
  report.Fact("system", RegistryText(kNames, "ProductName") + " " + VersionText());
  report.Fact("Wine", WineVersion().empty() ? "no" : WineVersion());
  report.Fact("language", std::to_string(GetSystemDefaultLangID()));
  report.Fact("code page", std::to_string(GetACP()));
  report.Fact("processors", std::to_string(system.dwNumberOfProcessors));
  report.Fact("memory", std::to_string(memory.ullTotalPhys >> 20U) + " MiB");
  report.Fact("time running", std::to_string(Ticks() / 1000) + " s");
  report.Fact("administrator", MayAdminister() ? "yes" : "no");
  report.Fact("time to stop",
              RegistryText(R"(SYSTEM\CurrentControlSet\Control)", "WaitToKillServiceTimeout") +
                  " ms at a shutdown (WaitToKillServiceTimeout)");
}

Verdict Try(const Check& check, Session& session, const Options& options, const std::string& noServer) {
  if (check.run == nullptr) return NotTried(check.reason);
  if (interrupted) return NotTried("interrupted");
  if (check.needs != Needs::Nothing && !noServer.empty()) return NotTried(noServer);
  if (check.needs == Needs::Minutes && options.quick) return NotTried("left out by --quick");
  try {
    return check.run(session);
  } catch (const std::exception& failure) {
    return Differs(failure.what());
  }
}

bool AnyNeedsServer(const std::vector<Check>& checks) {
  return std::ranges::any_of(checks, [](const Check& check) {
    return check.needs == Needs::Server || check.needs == Needs::Minutes;
  });
}

// Returns the system's error code; 0 when the file could be opened for writing. Creates a missing one.
std::uint32_t TryToWrite(const std::string& path) {
  const Handle file = OpenAt(path, GENERIC_WRITE, FILE_SHARE_READ, true);
  return file ? 0 : GetLastError();
}

// Returns the first argument with which no check's name begins; empty when there is none.
std::string FirstUnknown(const Options& options) {
  const std::vector<Check> checks = AllChecks();
  for (const std::string& begin : options.only) {
    const bool known = std::ranges::any_of(
        checks, [&begin](const Check& check) { return std::string(check.name).starts_with(begin); });
    if (!known) return begin;
  }
  return "";
}

int RunChecks(const Options& options) {
  const std::string unknown = FirstUnknown(options);
  if (!unknown.empty()) {
    std::cerr << "tamlogcheck: no check's name begins with " << unknown << "; see tamlogcheck --list\n";
    return kUsage;
  }
  std::vector<Check> checks;
  for (const Check& check : AllChecks()) {
    if (IsChosen(options, check.name)) checks.push_back(check);
  }
  const std::string path = options.report.empty()
                               ? "tamlogcheck-" + ComputerName() + "-" + TimeText(true) + ".txt"
                               : options.report;
  const bool isNew = !Exists(path);
  if (const std::uint32_t error = TryToWrite(path); error != 0) {
    std::cerr << "tamlogcheck: the report cannot be written to " << path << ": " << ErrorText(error) << "\n";
    return kUsage;
  }
  Report report;
  AddFacts(report);
  Session session(options);
  std::string noServer;
  if (AnyNeedsServer(checks)) {
    try {
      session.Prepare();
    } catch (const NoServer& failure) {
      if (failure.refused) {
        std::cerr << "tamlogcheck: " << failure.what() << "\n";
        if (isNew) DeleteFileA(path.c_str());
        return kRefused;
      }
      noServer = failure.what();
    } catch (const std::exception& failure) {
      noServer = failure.what();
    }
  }
  if (session.Prepared()) report.Fact("file system", FileSystemOf(session.Folder()));
  for (const Check& check : checks) {
    const std::uint64_t begin = Ticks();
    Result result{check.name, check.promise, Try(check, session, options, noServer), 0};
    result.milliseconds = Ticks() - begin;
    std::cout << LineOf(result) << std::endl;
    report.Add(std::move(result));
  }
  for (const std::string& problem : session.Restore()) {
    report.NotRestored(problem);
    std::cout << "NOT RESTORED: " << problem << "\n";
  }
  WriteTextFile(path, report.Text());
  std::cout << report.Summary() << "\nThe report is in " << path << "\n";
  if (!report.AllRestored()) return kNotRestored;
  if (report.Count(Outcome::Differs) > 0) return kSomeDiffer;
  return noServer.empty() ? kAllHold : kServerNotTried;
}

int RestoreRun(const std::string& folder) {
  const std::vector<std::string> problems = Session::RestoreFolder(folder);
  for (const std::string& problem : problems) std::cerr << "tamlogcheck: " << problem << "\n";
  if (problems.empty()) std::cout << "restored\n";
  return problems.empty() ? kAllHold : kNotRestored;
}

int Run(const std::vector<std::string>& arguments) {
  if (arguments.size() >= 2 && arguments[0] == "--part")
    return RunPart({arguments.begin() + 1, arguments.end()});
  if (arguments.size() == 2 && arguments[0] == "--device-service") return RunDeviceService(arguments[1]);
  Options options;
  const std::string mistake = ParseOptions(arguments, options);
  if (!mistake.empty()) {
    std::cerr << "tamlogcheck: " << mistake << "; see tamlogcheck --help\n";
    return kUsage;
  }
  if (options.help) {
    std::cout << HelpText();
    return kAllHold;
  }
  if (options.list) {
    for (const Check& check : AllChecks()) std::cout << check.name << ": " << check.promise << "\n";
    return kAllHold;
  }
  SetConsoleCtrlHandler(OnInterrupt, TRUE);
  return options.restore.empty() ? RunChecks(options) : RestoreRun(options.restore);
}

}  // namespace

int main(int count, char** arguments) {
  try {
    return Run({arguments + 1, arguments + count});
  } catch (const std::exception& failure) {
    std::cerr << "tamlogcheck: " << failure.what() << "\n";
    return kNotRestored;
  }
}
