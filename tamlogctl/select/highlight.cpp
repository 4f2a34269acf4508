#include "tamlogctl/select/highlight.h"

#include <algorithm>
#include <cstddef>

#include "client/message/utf8.h"

namespace TamLogCtl {

namespace {

constexpr std::string_view kMark = "\x1b[1;31m";
constexpr std::string_view kPlain = "\x1b[0m";

// Appends a piece that holds no escape sequences, with every match marked: the leftmost ones, and of several
// that begin together the longest. A character
// is marked as a whole where an expression matches a part of its bytes. `color` is the one in effect; it is
// set again after a match.
void AppendPiece(std::string_view piece, std::string_view color, std::vector<TextPattern>& patterns,
                 std::string& out) {
  MatchEnds ends(piece.size(), 0);
  for (TextPattern& pattern : patterns) pattern.FindAll(piece, ends);
  const auto afterCharacter = [piece](std::size_t at) {
    return at + std::max<std::size_t>(1, TamLogClient::Utf8SequenceLength(piece.substr(at)));
  };
  for (std::size_t at = 0; at < piece.size();) {
    std::size_t stop = afterCharacter(at);
    const std::size_t end = *std::max_element(&ends[at], &ends[at] + (stop - at));
    while (stop < end) stop = afterCharacter(stop);
    const std::string_view characters = piece.substr(at, stop - at);
    if (end == 0) {
      out.append(characters);
    } else {
      out.append(kMark).append(characters).append(kPlain).append(color);
    }
    at = stop;
  }
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
