#pragma once

// Texts between UTF-8, which the tool uses everywhere, and what Windows takes: UTF-16 and the machine's ANSI
// code page. Bytes and units that cannot be read become U+FFFD.

#include <optional>
#include <string>
#include <string_view>

namespace TamLogCtl {

std::wstring Utf8ToWide(std::string_view utf8);
std::string WideToUtf8(std::wstring_view wide);
std::string AnsiToUtf8(std::string_view ansi);

// Converts to the ANSI code page. Returns nothing when the code page lacks one of the characters.
std::optional<std::string> Utf8ToAnsi(std::string_view utf8);

}  // namespace TamLogCtl
