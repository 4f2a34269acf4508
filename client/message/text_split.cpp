#include "client/message/text_split.h"

#include "client/message/utf8.h"

namespace TamLogClient {

std::vector<std::string> SplitText(std::string_view text, std::size_t limit) {
  std::vector<std::string> pieces;
  std::string piece;
  while (piece.size() + text.size() > limit) {
    const std::string_view part = CutAtCharacter(text, limit - piece.size() - kCutMark.size());
    piece.append(part).append(kCutMark);
    pieces.push_back(piece);
    text.remove_prefix(part.size());
    piece = kCutMark;
  }
  pieces.push_back(piece.append(text));
  return pieces;
}

std::string TruncateText(std::string_view text, std::size_t limit) {
  if (text.size() <= limit) return std::string(text);
  return std::string(CutAtCharacter(text, limit - kCutMark.size())).append(kCutMark);
}

}  // namespace TamLogClient
