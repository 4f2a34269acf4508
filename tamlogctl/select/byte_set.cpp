#include "tamlogctl/select/byte_set.h"

#include <algorithm>
#include <array>

namespace TamLogCtl {

namespace {

bool IsLower(unsigned char byte) {
  return byte >= 'a' && byte <= 'z';
}
bool IsUpper(unsigned char byte) {
  return byte >= 'A' && byte <= 'Z';
}
bool IsSpace(unsigned char byte) {
  return byte == ' ' || (byte >= '\t' && byte <= '\r');
}
bool IsPunctuation(unsigned char byte) {
  return byte > ' ' && byte < 0x7F && !IsAlnum(byte);
}

template <typename Predicate>
ByteSet SetOf(Predicate holds) {
  ByteSet set;
  for (std::size_t byte = 0; byte < set.size(); ++byte) set[byte] = holds(static_cast<unsigned char>(byte));
  return set;
}

struct NamedSet {
  std::string_view name;
  bool (*holds)(unsigned char);
};

constexpr std::array<NamedSet, 8> kNamedSets{{{"alpha", IsAlpha},
                                              {"digit", IsDigit},
                                              {"alnum", IsAlnum},
                                              {"upper", IsUpper},
                                              {"lower", IsLower},
                                              {"space", IsSpace},
                                              {"punct", IsPunctuation},
                                              {"xdigit", IsHexDigit}}};

}  // namespace

bool IsDigit(unsigned char byte) {
  return byte >= '0' && byte <= '9';
}

bool IsAlpha(unsigned char byte) {
  return IsLower(byte) || IsUpper(byte);
}

bool IsAlnum(unsigned char byte) {
  return IsAlpha(byte) || IsDigit(byte);
}

bool IsHexDigit(unsigned char byte) {
  return IsDigit(byte) || (byte >= 'a' && byte <= 'f') || (byte >= 'A' && byte <= 'F');
}

bool IsWordByte(unsigned char byte) {
  return IsAlnum(byte) || byte == '_';
}

std::optional<ByteSet> SetOfName(std::string_view name) {
  const auto* const known = std::find_if(kNamedSets.begin(), kNamedSets.end(),
                                         [name](const NamedSet& entry) { return entry.name == name; });
  return known == kNamedSets.end() ? std::nullopt : std::optional(SetOf(known->holds));
}

std::optional<ByteSet> SetOfEscape(char letter) {
  switch (letter) {
    case 'd':
      return SetOf(IsDigit);
    case 'D':
      return ~SetOf(IsDigit);
    case 'w':
      return SetOf(IsWordByte);
    case 'W':
      return ~SetOf(IsWordByte);
    case 's':
      return SetOf(IsSpace);
    case 'S':
      return ~SetOf(IsSpace);
    default:
      return std::nullopt;
  }
}

}  // namespace TamLogCtl
