#include "client/file/windows_names.h"

#include <algorithm>
#include <array>
#include <string>

#include "client/message/utf8.h"

namespace TamLogClient {

namespace {

bool IsSlash(char letter) {
  return letter == '\\' || letter == '/';
}

// Whether the rest of a literal path is that of a share: "UNC\...".
bool IsShare(std::string_view path) {
  std::string begin(path.substr(0, 4));
  std::transform(begin.begin(), begin.end(), begin.begin(), LowerCase);
  return begin == "unc\\";
}

}  // namespace

bool IsDeviceName(std::string_view component) {
  std::string name(component.substr(0, component.find_first_of(".:")));
  std::transform(name.begin(), name.end(), name.begin(), LowerCase);
  while (!name.empty() && name.back() == ' ') name.pop_back();
  static constexpr std::array<std::string_view, 6> kWhole{"con", "prn", "aux", "nul", "conin$", "conout$"};
  if (std::find(kWhole.begin(), kWhole.end(), name) != kWhole.end()) return true;
  const bool port = name.starts_with("com") || name.starts_with("lpt");
  if (!port) return false;
  const std::string number = name.substr(3);
  // The system treats the superscript digits as digits.
  return (number.size() == 1 && number[0] >= '1' && number[0] <= '9') || number == "\xC2\xB9" ||
         number == "\xC2\xB2" || number == "\xC2\xB3";
}

bool NamesNoOrdinaryFile(std::string_view path) {
  const bool twoSlashes = path.size() >= 3 && IsSlash(path[0]) && IsSlash(path[1]);
  if (twoSlashes && path[2] == '.') return true;
  // The long form names a file only with a drive or a share; any other such path bypasses the file names.
  const bool literal = twoSlashes && path[2] == '?';
  if (literal) path.remove_prefix(std::min<std::size_t>(4, path.size()));
  const bool drive = path.size() >= 2 && path[1] == ':';
  if (literal && !drive && !IsShare(path)) return true;
  if (drive) path.remove_prefix(2);
  while (!path.empty()) {
    const std::string_view component = path.substr(0, path.find_first_of("\\/"));
    path.remove_prefix(std::min(path.size(), component.size() + 1));
    if (component.find(':') != std::string_view::npos || IsDeviceName(component)) return true;
  }
  return false;
}

}  // namespace TamLogClient
