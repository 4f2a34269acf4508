#include "tamlogctl/base/program_search.h"

#include <algorithm>
#include <vector>

#include "client/message/win32.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/wide_text.h"

namespace TamLogCtl {

namespace {

bool IsSlash(wchar_t letter) {
  return letter == L'\\' || letter == L'/';
}

// A path of a drive or of another machine; C:x and \x depend on the current directory.
bool IsAbsolute(const std::wstring& path) {
  if (path.size() < 3) return false;
  return (IsSlash(path[0]) && IsSlash(path[1])) || (path[1] == L':' && IsSlash(path[2]));
}

bool IsFile(const std::wstring& path) {
  const DWORD attributes = GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

// Returns the parts of a list such as PATH, without quotes and empty ones.
std::vector<std::wstring> PartsOf(std::wstring list) {
  std::vector<std::wstring> parts;
  list.erase(std::remove(list.begin(), list.end(), L'"'), list.end());
  for (std::size_t begin = 0; begin < list.size();) {
    const std::size_t end = std::min(list.find(L';', begin), list.size());
    if (end > begin) parts.push_back(list.substr(begin, end - begin));
    begin = end + 1;
  }
  return parts;
}

std::vector<std::wstring> Extensions() {
  auto extensions = PartsOf(Utf8ToWide(EnvironmentValue("PATHEXT")));
  if (extensions.empty()) extensions = {L".COM", L".EXE", L".BAT", L".CMD"};
  return extensions;
}

// Returns the file of that path, with an extension unless it has one; empty when there is none.
std::wstring ProgramAt(const std::wstring& path) {
  const std::size_t name = path.find_last_of(L"\\/:") + 1;
  if (path.find(L'.', name) != std::wstring::npos && IsFile(path)) return path;
  for (const std::wstring& extension : Extensions()) {
    if (IsFile(path + extension)) return path + extension;
  }
  return L"";
}

std::wstring FindByName(const std::wstring& name) {
  if (IsAbsolute(name)) return ProgramAt(name);
  if (name.empty() || name.find_first_of(L"\\/:") != std::wstring::npos) return L"";
  for (std::wstring directory : PartsOf(Utf8ToWide(EnvironmentValue("PATH")))) {
    if (!IsAbsolute(directory)) continue;
    if (!IsSlash(directory.back())) directory += L'\\';
    if (std::wstring found = ProgramAt(directory + name); !found.empty()) return found;
  }
  return L"";
}

}  // namespace

std::optional<ProgramCommand> FindProgram(const std::wstring& command) {
  const std::size_t begin = std::min(command.find_first_not_of(L" \t"), command.size());
  const bool quoted = command[begin] == L'"';
  const std::size_t first = begin + (quoted ? 1 : 0);
  const std::size_t end = std::min(command.find_first_of(quoted ? L"\"" : L" \t", first), command.size());
  const std::wstring program = FindByName(command.substr(first, end - first));
  if (program.empty()) return std::nullopt;
  const std::size_t rest = std::min(end + (quoted ? 1 : 0), command.size());
  return ProgramCommand{program, L"\"" + program + L"\"" + command.substr(rest)};
}

}  // namespace TamLogCtl
