#include "tamlogctl/base/console_pieces.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using TamLogCtl::PieceLength;

std::vector<std::u16string> PiecesOf(std::u16string_view text, std::size_t most) {
  std::vector<std::u16string> pieces;
  while (!text.empty()) {
    const std::size_t length = PieceLength(text, most);
    pieces.emplace_back(text.substr(0, length));
    text.remove_prefix(length);
  }
  return pieces;
}

TEST(ConsolePieces, HoldNoMoreThanIsAllowed) {
  EXPECT_EQ(PiecesOf(u"abcdefg", 3), (std::vector<std::u16string>{u"abc", u"def", u"g"}));
  EXPECT_EQ(PiecesOf(u"abc", 3), (std::vector<std::u16string>{u"abc"}));
}

TEST(ConsolePieces, NeverPartTheHalvesOfACharacter) {
  // Each of these is two units.
  const std::u16string smiles = u"\U0001F600\U0001F601\U0001F602";
  EXPECT_EQ(PiecesOf(smiles, 3), (std::vector<std::u16string>{u"\U0001F600", u"\U0001F601", u"\U0001F602"}));
  EXPECT_EQ(PiecesOf(u"a" + smiles, 4),
            (std::vector<std::u16string>{u"a\U0001F600", u"\U0001F601\U0001F602"}));
  for (std::size_t most = 2; most < 9; ++most) {
    std::u16string whole;
    for (const std::u16string& piece : PiecesOf(u"x" + smiles + u"y", most)) {
      EXPECT_LE(piece.size(), most);
      whole += piece;
    }
    EXPECT_EQ(whole, u"x" + smiles + u"y");
  }
}

TEST(ConsolePieces, HalfWithoutItsOtherHalfDoesNotStopTheRest) {
  const std::u16string half(1, static_cast<char16_t>(0xD83D));
  EXPECT_EQ(PiecesOf(half, 2), std::vector<std::u16string>{half});
  EXPECT_EQ(PiecesOf(half + half + half, 2), (std::vector<std::u16string>{half, half + half}));
}

}  // namespace
