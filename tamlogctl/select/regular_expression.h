#pragma once

// Regular expressions that take the same time a byte whatever the pattern and the text are: no backtracking,
// so no pattern can make a search hang or overflow the stack.
//
//   .  [a-z]  [^a-z]  [[:digit:]]  \d \w \s \D \W \S  ^  $  \b \B  ( )  (?: )  |  *  +  ?  {2} {2,} {2,5}
//   \n \r \t \f \v \xHH, and a backslash before punctuation
//
// A text is searched as bytes: a character outside ASCII matches its UTF-8 bytes, and a point stands for one
// byte. Quantifiers followed by a question mark are accepted and mean the same. References back and
// look-around need backtracking and are refused.

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace TamLogCtl {

struct TextExtent {
  std::size_t first = 0;
  std::size_t length = 0;
};

class RegularExpression {
 public:
  // `foldCase`: the letters A to Z match in either case. Nothing, and one phrase in `problem`, for a pattern
  // that is none or is too large.
  static std::optional<RegularExpression> Compile(std::string_view pattern, bool foldCase,
                                                  std::string& problem);

  // Whether the text holds a match. Keeps what it learns about the pattern for the next call, so an object
  // serves one thread at a time.
  bool Matches(std::string_view text);

  // The leftmost match that is not empty and begins at `from` or later, at its longest.
  std::optional<TextExtent> Find(std::string_view text, std::size_t from);

  struct Instruction {
    enum class Kind : std::uint8_t { Byte, Split, Begin, End, WordEdge, NoWordEdge };
    Kind kind = Kind::Byte;
    std::uint16_t set = 0;   // Byte: which set it must be in
    std::int32_t other = 0;  // Split: goes on with the next and this far away; with `jump` there only
    bool jump = false;
  };
  using ByteSet = std::bitset<256>;
  using Places = std::vector<std::uint32_t>;  // in the program

 private:
  // What lies on either side of a place in the text.
  struct Edge {
    bool begin = false;
    bool end = false;
    bool wordBefore = false;
    bool wordAfter = false;
  };
  // Where the program may stand between two bytes, before any step that takes no byte.
  struct State {
    Places places;
    bool begin = false;
    bool wordBefore = false;
  };

  void MakeClasses();
  bool Close(const Places& from, Edge edge);
  void Visit(std::uint32_t place);
  std::int32_t Transition(std::uint32_t from, std::size_t byteClass);
  std::uint32_t StateOf(State state);
  bool Passes(const Instruction& instruction, Edge edge) const;
  std::size_t LongestAt(std::string_view text, std::size_t start);

  std::vector<Instruction> program;  // it has matched at its end
  std::vector<ByteSet> sets;
  std::array<std::uint16_t, 256> classOf{};  // bytes that no set tells apart share a class
  std::vector<unsigned char> example;        // one byte of each class

  // Learned while searching: states, and where each class of bytes leads; cleared when there are too many.
  std::vector<State> states;
  std::vector<std::int32_t> transitions;
  std::unordered_map<std::string, std::uint32_t> stateNumbers;

  // Of the last Close: the Byte instructions that can be reached.
  Places closed;
  Places stack;
  std::vector<std::uint32_t> visited;
  std::uint32_t visit = 0;
};

}  // namespace TamLogCtl
