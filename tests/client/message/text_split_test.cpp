#include "client/message/text_split.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "client/message/utf8.h"

namespace {

using TamLogClient::SplitText;
using TamLogClient::TruncateText;

using Texts = std::vector<std::string>;

TEST(TextSplit, TextThatFitsIsOnePieceWithoutMark) {
  EXPECT_EQ(SplitText("", 20), Texts{""});
  EXPECT_EQ(SplitText("12345678901234567890", 20), Texts{"12345678901234567890"});
  EXPECT_EQ(TruncateText("12345678901234567890", 20), "12345678901234567890");
}

TEST(TextSplit, EveryCutIsMarkedOnBothSides) {
  EXPECT_EQ(SplitText("abcdefghijklmnopqrstu", 20), (Texts{"abcdefghijklmnopq...", "...rstu"}));
  EXPECT_EQ(SplitText("abcdefghijklmnopqrstuvwxyz0123456789", 20),
            (Texts{"abcdefghijklmnopq...", "...rstuvwxyz01234...", "...56789"}));
  EXPECT_EQ(TruncateText("abcdefghijklmnopqrstu", 20), "abcdefghijklmnopq...");
}

TEST(TextSplit, CharactersStayWhole) {
  // The cut would be inside the euro sign's three bytes.
  const std::string text = "abcdefghijklmnop\u20AC and more";
  EXPECT_EQ(SplitText(text, 20)[0], "abcdefghijklmnop...");
  EXPECT_EQ(TruncateText(text, 20), "abcdefghijklmnop...");
}

// Any text, valid or not, is whole again when its pieces are joined, and no piece is too long.
TEST(TextSplit, PiecesGiveTheTextBack) {
  std::mt19937 random(7);
  const std::string alphabet[] = {"a", "\u00E9", "\u20AC", "\U0001F600", "\x80", "\xFF", "."};
  for (int round = 0; round < 500; ++round) {
    std::string text;
    for (auto length = random() % 900; text.size() < length;)
      text += alphabet[random() % std::size(alphabet)];
    const std::size_t limit = 10 + random() % 300;
    const Texts pieces = SplitText(text, limit);
    std::string joined;
    for (std::size_t i = 0; i < pieces.size(); ++i) {
      ASSERT_LE(pieces[i].size(), limit);
      std::string piece = pieces[i];
      if (i > 0) piece.erase(0, 3);
      if (i + 1 < pieces.size()) piece.erase(piece.size() - 3);
      joined += piece;
    }
    ASSERT_EQ(joined, text) << "round " << round;
  }
}

TEST(TextSplit, PiecesOfValidTextsAreValid) {
  std::string text;
  for (int i = 0; i < 200; ++i) text += "x\u00E9\u20AC\U0001F600";
  for (std::size_t limit = 10; limit < 64; ++limit) {
    for (const std::string& piece : SplitText(text, limit)) {
      ASSERT_TRUE(TamLogClient::IsValidUtf8(piece)) << limit;
    }
    ASSERT_TRUE(TamLogClient::IsValidUtf8(TruncateText(text, limit))) << limit;
  }
}

}  // namespace
