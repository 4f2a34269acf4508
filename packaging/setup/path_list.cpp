#include "packaging/setup/path_list.h"

#include <algorithm>
#include <cwctype>
#include <vector>

namespace TamLogSetup {

namespace {

std::wstring Plain(std::wstring directory) {
  while (directory.size() > 1 && directory.back() == L'\\') directory.pop_back();
  for (wchar_t& letter : directory) letter = static_cast<wchar_t>(std::towlower(letter));
  return directory;
}

std::vector<std::wstring> Split(const std::wstring& list) {
  std::vector<std::wstring> parts;
  std::size_t begin = 0;
  for (std::size_t end; (end = list.find(L';', begin)) != std::wstring::npos; begin = end + 1)
    parts.push_back(list.substr(begin, end - begin));
  parts.push_back(list.substr(begin));
  return parts;
}

}  // namespace

bool ContainsDirectory(const std::wstring& list, const std::wstring& directory) {
  const std::vector<std::wstring> parts = Split(list);
  return std::ranges::any_of(parts,
                             [&](const std::wstring& part) { return Plain(part) == Plain(directory); });
}

std::wstring WithDirectory(const std::wstring& list, const std::wstring& directory) {
  if (ContainsDirectory(list, directory)) return list;
  const bool needsSemicolon = !list.empty() && list.back() != L';';
  return list + (needsSemicolon ? L";" : L"") + directory;
}

std::wstring WithoutDirectory(const std::wstring& list, const std::wstring& directory) {
  std::wstring rest;
  bool first = true;
  for (const std::wstring& part : Split(list)) {
    if (Plain(part) == Plain(directory)) continue;
    if (!first) rest += L';';
    rest += part;
    first = false;
  }
  return rest;
}

}  // namespace TamLogSetup
