#pragma once

// The value PATH as a text: directories between semicolons. Letters are compared without regard to case, and
// a backslash at the end does not count.

#include <string>

namespace TamLogSetup {

bool ContainsDirectory(const std::wstring& list, const std::wstring& directory);
std::wstring WithDirectory(const std::wstring& list, const std::wstring& directory);
// Removes every occurrence, with one semicolon each.
std::wstring WithoutDirectory(const std::wstring& list, const std::wstring& directory);

}  // namespace TamLogSetup
