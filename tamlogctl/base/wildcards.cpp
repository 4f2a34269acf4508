#include "tamlogctl/base/wildcards.h"

#include <algorithm>
#include <filesystem>
#include <string_view>
#include <system_error>

#include "client/file/file_path.h"
#include "tamlogctl/base/glob.h"

namespace TamLogCtl {

namespace {

namespace fs = std::filesystem;

char Lower(char letter) {
  return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

bool Matches(std::string_view name, std::string_view pattern) {
  return MatchesGlob(name, pattern, [](char wanted, char letter) {
    return wanted == '?' || Lower(wanted) == Lower(letter);
  });
}

std::string Utf8Of(const fs::path& path) {
  const std::u8string text = path.u8string();
  return {text.begin(), text.end()};
}

}  // namespace

bool HasWildcards(const std::string& name) {
  return Utf8Of(TamLogClient::PathOf(name).filename()).find_first_of("*?") != std::string::npos;
}

std::vector<std::string> MatchingFiles(const std::string& pattern) {
  const fs::path path = TamLogClient::PathOf(pattern);
  const std::string last = Utf8Of(path.filename());
  std::vector<std::string> found;
  if (!HasWildcards(pattern)) return found;
  const fs::path folder = path.parent_path();
  std::error_code error;
  for (fs::directory_iterator entry(folder.empty() ? fs::path(".") : folder, error), end;
       !error && entry != end; entry.increment(error)) {
    const fs::path name = entry->path().filename();
    std::error_code ignored;
    if (Matches(Utf8Of(name), last) && !entry->is_directory(ignored)) found.push_back(Utf8Of(folder / name));
  }
  std::sort(found.begin(), found.end());
  return found;
}

std::vector<std::string> FilesNamed(const std::string& name) {
  auto found = kProgramExpandsWildcards ? MatchingFiles(name) : std::vector<std::string>{};
  if (found.empty()) found.push_back(name);
  return found;
}

}  // namespace TamLogCtl
