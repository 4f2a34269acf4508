#include "client/message/text_encoding.h"

#include <algorithm>
#include <utility>

#include "client/message/code_pages.h"

namespace TamLogClient {

namespace {

struct NamedTable {
  std::string_view name;
  const UpperHalf* table;  // null: UTF-8
};

constexpr std::array<NamedTable, 24> kNamed{{
    {"utf-8", nullptr},
    {"utf8", nullptr},
    {"ascii", &kAscii},
    {"us-ascii", &kAscii},
    {"latin-1", &kLatin1},
    {"latin1", &kLatin1},
    {"iso-8859-1", &kLatin1},
    {"iso8859-1", &kLatin1},
    {"iso_8859-1", &kLatin1},
    {"windows-1250", &kWindows1250},
    {"cp1250", &kWindows1250},
    {"1250", &kWindows1250},
    {"windows-1251", &kWindows1251},
    {"cp1251", &kWindows1251},
    {"1251", &kWindows1251},
    {"windows-1252", &kWindows1252},
    {"cp1252", &kWindows1252},
    {"1252", &kWindows1252},
    {"cp437", &kCp437},
    {"ibm437", &kCp437},
    {"437", &kCp437},
    {"cp850", &kCp850},
    {"ibm850", &kCp850},
    {"850", &kCp850},
}};

bool SameName(std::string_view known, std::string_view typed) {
  return std::equal(known.begin(), known.end(), typed.begin(), typed.end(),
                    [](char left, char right) { return left == LowerCase(right); });
}

}  // namespace

std::optional<TextEncoding> TextEncoding::FromName(std::string_view name) {
  for (const auto& [known, table] : kNamed) {
    if (SameName(known, name)) return TextEncoding(false, table);
  }
  return std::nullopt;
}

const UpperHalf* UpperHalfOfCodePage(unsigned codePage) {
  constexpr std::array<std::pair<unsigned, const UpperHalf*>, 7> kKnown{{{437, &kCp437},
                                                                         {850, &kCp850},
                                                                         {1250, &kWindows1250},
                                                                         {1251, &kWindows1251},
                                                                         {1252, &kWindows1252},
                                                                         {20127, &kAscii},
                                                                         {28591, &kLatin1}}};
  for (const auto& [known, table] : kKnown) {
    if (known == codePage) return table;
  }
  return nullptr;
}

bool IsPlainText(std::string_view text) {
  return std::all_of(text.begin(), text.end(),
                     [](char character) { return character >= 0x20 && character < 0x7F; });
}

std::size_t EncodeUtf8(char16_t unit, char* to) {
  const auto low = [unit](unsigned shift) {
    return static_cast<char>(0x80U | (static_cast<unsigned>(unit >> shift) & 0x3FU));
  };
  if (unit < 0x80) {
    to[0] = static_cast<char>(unit);
    return 1;
  }
  if (unit < 0x800) {
    to[0] = static_cast<char>(0xC0U | static_cast<unsigned>(unit >> 6U));
    to[1] = low(0);
    return 2;
  }
  to[0] = static_cast<char>(0xE0U | static_cast<unsigned>(unit >> 12U));
  to[1] = low(6);
  to[2] = low(0);
  return 3;
}

}  // namespace TamLogClient
