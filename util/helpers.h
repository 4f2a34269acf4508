#pragma once

// Small helpers used across the server. None has state; any thread may call them.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace TamLogUtil {

// Returns the decimal text of `value`.
std::string ToString(std::int32_t value);
std::string ToString(std::uint64_t value);

// Returns a copy with A to Z replaced by a to z. Keeps every other byte, also those above 127.
std::string ToLower(std::string_view text);

// Returns whether the shorter of `text` and some element of `list` is a prefix of the longer one, ignoring
// letter case. Symmetrical on purpose: an empty text or an empty element matches everything.
bool MatchesAnyPrefix(std::string_view text, const std::vector<std::string>& list);

// Sets bit (i mod 32) of the result when flag i is set; bit 0 is the lowest.
std::uint32_t PackFlags(const bool* flags, std::size_t count);
// Sets flag i to bit (i mod 32) of `mask`.
void UnpackFlags(std::uint32_t mask, bool* flags, std::size_t count);

// Returns the directory of the running executable, a backslash, `fileName`. ExceptionBase "Failed to obtain
// executable's location".
std::string PathBesideExecutable(const std::string& fileName);

// Returns the same for a given path of the executable. A path without a backslash throws.
std::string PathBeside(std::string_view executable, const std::string& fileName);

// Moves a file. A failure changes nothing and is not reported.
void MoveFileIfPossible(const std::string& from, const std::string& to);

// Copies `text` and a terminating zero into `target` of `size` bytes. A text that does not fit ends the
// process at once (exit code 0xC0000417), because a client would believe a truncated path or filter. The
// run-time's checked copy only returns an error in this tool chain, so this ends the process itself.
void CopyBoundedOrEndProcess(char* target, std::size_t size, std::string_view text);

}  // namespace TamLogUtil
