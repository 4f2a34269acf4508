#include "tamlogctl/select/highlight.h"

#include <algorithm>
#include <optional>

namespace TamLogCtl {

namespace {

constexpr std::string_view kMark = "\x1b[1;31m";
constexpr std::string_view kPlain = "\x1b[0m";

std::optional<TextExtent> FirstOf(std::string_view text, std::size_t from,
                                  std::vector<TextPattern>& patterns) {
  std::optional<TextExtent> first;
  for (TextPattern& pattern : patterns) {
    const auto found = pattern.Find(text, from);
    if (found && (!first || found->first < first->first)) first = found;
  }
  return first;
}

// Appends a piece that holds no escape sequences. `color` is the one in effect; it is set again after a
// match.
void AppendPiece(std::string_view piece, std::string_view color, std::vector<TextPattern>& patterns,
                 std::string& out) {
  std::size_t done = 0;
  while (const auto found = FirstOf(piece, done, patterns)) {
    out.append(piece.substr(done, found->first - done)).append(kMark);
    out.append(piece.substr(found->first, found->length)).append(kPlain).append(color);
    done = found->first + found->length;
  }
  out.append(piece.substr(done));
}

}  // namespace

void AppendHighlighted(std::string_view lines, std::vector<TextPattern>& patterns, std::string& out) {
  std::string_view color;
  while (!lines.empty()) {
    if (lines.front() == '\x1b') {
      const std::size_t end = std::min(lines.find('m'), lines.size() - 1) + 1;
      color = lines.substr(0, end);
      out.append(color);
      if (color == kPlain) color = {};
      lines.remove_prefix(end);
      continue;
    }
    if (lines.front() == '\n') {
      out += '\n';
      lines.remove_prefix(1);
      continue;
    }
    const std::size_t end = std::min(lines.find_first_of("\x1b\n"), lines.size());
    AppendPiece(lines.substr(0, end), color, patterns, out);
    lines.remove_prefix(end);
  }
}

}  // namespace TamLogCtl
