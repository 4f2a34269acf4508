#include "tamlogctl/server/log_path.h"

#include <algorithm>
#include <array>

#include "client/file/windows_names.h"
#include "client/message/utf8.h"
#include "records/pipe_protocol.h"

namespace TamLogCtl {

namespace {

using TamLogClient::LowerCase;

constexpr std::uint32_t kAccessDenied = 5;

bool IsSlash(char letter) {
  return letter == '\\' || letter == '/';
}

bool IsLetter(char letter) {
  const char lower = LowerCase(letter);
  return lower >= 'a' && lower <= 'z';
}

std::string Lower(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(), LowerCase);
  return lower;
}

std::string ComponentProblem(std::string_view component) {
  if (component == "." || component == "..") return "contains '.' or '..'; write it without them";
  if (TamLogClient::IsDeviceName(component)) return "names a device";
  if (component.find(':') != std::string_view::npos) return "contains a second colon";
  if (component.find_first_of("<>\"|?*") != std::string_view::npos)
    return "contains one of the characters < > \" | ? *";
  const bool control = std::any_of(component.begin(), component.end(),
                                   [](char letter) { return static_cast<unsigned char>(letter) < 0x20; });
  if (control) return "contains a control character";
  if (component.back() == '.' || component.back() == ' ') return "has a name that ends with a dot or a space";
  return "";
}

// Any directory may be the one that the service starts in.
bool IsDiagnosticLog(std::string_view path) {
  return Lower(path.substr(path.find_last_of("\\/") + 1)) == Lower(kDiagnosticFileName);
}

std::string BeginningProblem(std::string_view path) {
  if (path.size() >= 2 && IsSlash(path[0]) && IsSlash(path[1])) {
    const bool device = path.size() >= 3 && (path[2] == '.' || path[2] == '?');
    return device ? "is a device path" : "is a network path";
  }
  if (path.starts_with("\\??\\")) return "is a device path";
  const bool drive = path.size() >= 3 && IsLetter(path[0]) && path[1] == ':' && IsSlash(path[2]);
  return drive ? "" : "is not an absolute path of a drive";
}

}  // namespace

std::string PathTextProblem(std::string_view path, std::size_t bytes) {
  if (path.empty()) return "is empty";
  if (bytes > kLongestLogPath) {
    return "has " + std::to_string(bytes) + " bytes, " + std::to_string(kLongestLogPath) +
           " are allowed (with a longer one the server cannot start)";
  }
  if (std::string problem = BeginningProblem(path); !problem.empty()) return problem;
  std::string_view rest = path.substr(3);
  if (rest.empty() || IsSlash(rest.back())) return "names a directory, not a file";
  while (!rest.empty()) {
    const std::string_view component = rest.substr(0, rest.find_first_of("\\/"));
    rest.remove_prefix(std::min(rest.size(), component.size() + 1));
    if (component.empty()) continue;
    if (std::string problem = ComponentProblem(component); !problem.empty()) return problem;
  }
  if (IsDiagnosticLog(path))
    return "is the name of the server's own log of failures; the server would overwrite it";
  return "";
}

std::string DirectoryOf(const std::string& path) {
  const std::size_t slash = path.find_last_of("\\/");
  if (slash == std::string::npos) return "";
  return path.substr(0, slash < 3 ? slash + 1 : slash);
}

PathProblem PathProblemOf(const std::string& path, const PathFacts& facts, std::uint64_t bytes) {
  const std::string folder = DirectoryOf(path);
  if (facts.networkDrive) return {"the drive " + path.substr(0, 2) + " is a network drive", ""};
  if (!facts.driveThere) return {"there is no drive " + path.substr(0, 2), ""};
  if (facts.folderIsFile) return {folder + " is a file, not a directory", ""};
  if (!facts.folderThere)
    return {"the directory " + folder + " does not exist", "create it: mkdir \"" + folder + "\""};
  if (facts.file == PathFile::Directory) return {"is a directory", "name a file in it"};
  if (facts.readOnly) return {"the file is read-only", ""};
  if (facts.file == PathFile::InUse) return {"another program has the file open", "close that program"};
  if (facts.serviceMayCreate == false)
    return {"the access list of " + folder + " does not let the service (local system) create files", ""};
  // Of a user with fewer rights than the service a refusal says nothing.
  if (facts.createError != 0 && !(facts.createError == kAccessDenied && facts.serviceMayCreate == true))
    return {"the file cannot be created: " + facts.createText, ""};
  if (facts.freeBytes && *facts.freeBytes + facts.fileBytes < bytes) {
    return {"the log needs " + BytesText(bytes) + ", and only " + BytesText(*facts.freeBytes) +
                " are free on " + path.substr(0, 2),
            "free some space, or set a smaller capacity"};
  }
  return {};
}

std::string ExistingFileText(const PathFacts& facts) {
  switch (facts.file) {
    case PathFile::Missing:
      return "";
    case PathFile::Log:
      return "already exists and is a log with " + std::to_string(facts.messages) +
             " messages; the server would continue with it";
    case PathFile::Empty:
      return "already exists and is empty; the server would use it";
    default:
      return "already exists and is not a log; the server would empty it";
  }
}

std::string BytesText(std::uint64_t bytes) {
  if (bytes < 1024) return std::to_string(bytes) + " bytes";
  static constexpr std::array<const char*, 4> kUnits{" KiB", " MiB", " GiB", " TiB"};
  std::uint64_t tenths = bytes * 10 / 1024;
  std::size_t unit = 0;
  for (; tenths >= 10240 && unit + 1 < kUnits.size(); ++unit) tenths /= 1024;
  return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + kUnits[unit];
}

}  // namespace TamLogCtl
