#pragma once

// Small helpers used across the system. All are free of state and may be called from any thread.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace TamLogUtil {

// Decimal text.
std::string ToString(std::int32_t value);
std::string ToString(std::uint64_t value);

// A copy with the letters A to Z folded to a to z; every other byte, those above 127 too, is kept.
std::string ToLower(std::string_view text);

// Whether, without regard to letter case, the shorter of `text` and some element of `list` is the beginning
// of the longer one. Symmetrical on purpose, so an empty text or an empty element matches everything.
bool MatchesAnyPrefix(std::string_view text, const std::vector<std::string>& list);

// Bit (i mod 32) of the result is set when flag i is; flag 0 is the lowest bit.
std::uint32_t PackFlags(const bool* flags, std::size_t count);
// Flag i = bit (i mod 32) of `mask`.
void UnpackFlags(std::uint32_t mask, bool* flags, std::size_t count);

// The directory of the running executable, a backslash, `fileName`. ExceptionBase "Failed to obtain
// executable's location".
std::string PathBesideExecutable(const std::string& fileName);

// What PathBesideExecutable does with the executable's path; a path without a backslash throws.
std::string PathBeside(std::string_view executable, const std::string& fileName);

// A move that fails leaves everything as it was, without a word.
void MoveFileIfPossible(const std::string& from, const std::string& to);

// Copies `text` and its terminating zero into `target` of `size` bytes. A text that does not fit ends the
// process at once (exit code 0xC0000417): a cut path or filter would be believed by the client that asked for
// it. The run-time's own checked copy only returns an error in this tool chain, so the end is made here.
void CopyBoundedOrEndProcess(char* target, std::size_t size, std::string_view text);

}  // namespace TamLogUtil
