#pragma once

// Classes of bytes, as regular expressions name them. Bytes beyond ASCII belong to none.

#include <bitset>
#include <optional>
#include <string_view>

namespace TamLogCtl {

using ByteSet = std::bitset<256>;

bool IsDigit(unsigned char byte);
bool IsAlpha(unsigned char byte);
bool IsAlnum(unsigned char byte);
bool IsHexDigit(unsigned char byte);

// Returns whether the byte is a letter, a digit or an underscore: the word bytes of \w and \b.
bool IsWordByte(unsigned char byte);

// Returns the set of [:name:]; nothing for an unknown name.
std::optional<ByteSet> SetOfName(std::string_view name);

// Returns the set of \d, \w, \s or of a complement (\D, \W, \S); nothing for another letter.
std::optional<ByteSet> SetOfEscape(char letter);

}  // namespace TamLogCtl
