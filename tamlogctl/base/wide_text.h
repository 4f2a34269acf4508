#pragma once

// Texts between UTF-8, which the tool uses everywhere, and what Windows takes: UTF-16 and the machine's ANSI
// code page. Bytes and units that cannot be read become U+FFFD.
//
// The tool's manifest makes UTF-8 the code page of its own process. The machine's code page is that of
// programs without such a manifest: of the server, which stores paths in it, and of most senders. So the tool
// calls no function of Windows that ends in A with a text that is not ASCII.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace TamLogCtl {

// Returns the number of the machine's ANSI code page, for example 1252.
std::uint32_t MachineCodePage();

std::wstring Utf8ToWide(std::string_view utf8);
std::string WideToUtf8(std::wstring_view wide);
std::string AnsiToUtf8(std::string_view ansi);
std::wstring AnsiToWide(std::string_view ansi);
// Characters that the code page lacks become similar ones or '?', as in the server's own calls.
std::string WideToAnsi(std::wstring_view wide);

// Converts to the ANSI code page. Returns nothing when the code page lacks one of the characters.
std::optional<std::string> Utf8ToAnsi(std::string_view utf8);

}  // namespace TamLogCtl
