#pragma once

// Regular expressions whose search takes time linear in the text, whatever the pattern is. There is no
// backtracking, so no pattern makes a search hang or overflow the stack.
//
//   .  [a-z]  [^a-z]  [[:digit:]]  \d \w \s \D \W \S  ^  $  \b \B \< \>  ( )  (?: )  |
//   *  +  ?  {2} {2,} {2,5}
//   \n \r \t \f \v \xHH, and a backslash before other punctuation
//
// A text is searched as bytes: a character beyond ASCII matches its UTF-8 bytes, and a point matches one
// byte. A question mark after a quantifier is accepted and changes nothing: the same texts match.
// Back-references and look-around need backtracking and are rejected.

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "tamlogctl/select/byte_set.h"

namespace TamLogCtl {

// For each position of a text the end of the longest match that begins there; 0 where none begins.
using MatchEnds = std::vector<std::size_t>;

class RegularExpression {
 public:
  // Returns nothing, and one phrase in `problem`, if the pattern is malformed or too large. With `foldCase`
  // the letters A to Z match in either case.
  static std::optional<RegularExpression> Compile(std::string_view pattern, bool foldCase,
                                                  std::string& problem);

  // Returns whether the text contains a match. Caches states of the search for the next call: one thread at a
  // time may use an object.
  bool Matches(std::string_view text);

  // Finds all matches that are not empty, in one pass over the text. Raises each element of `ends`, which is
  // as long as the text, to the end of the longest match that begins there.
  void FindAll(std::string_view text, MatchEnds& ends);

  // Returns how many instructions all calls have visited so far: what the searches cost.
  std::uint64_t Steps() const { return steps; }

  struct Instruction {
    enum class Kind : std::uint8_t { Byte, Split, Begin, End, WordEdge, NoWordEdge, WordBegin, WordEnd };
    Kind kind = Kind::Byte;
    std::uint16_t set = 0;   // Byte: the index of the set that has to contain it
    std::int32_t other = 0;  // Split: continues at the next instruction and at this distance from here
    bool jump = false;       // Split: continues at `other` only
  };
  using Places = std::vector<std::uint32_t>;  // indices of instructions

 private:
  // The surroundings of a position in the text.
  struct Edge {
    bool begin = false;
    bool end = false;
    bool wordBefore = false;
    bool wordAfter = false;
  };
  // The instructions reached between two bytes, before the steps that consume no byte.
  struct State {
    Places places;
    bool begin = false;
    bool wordBefore = false;
  };

  // An instruction from which the end of the program is reached at the position `end` of the text.
  struct Lead {
    std::uint32_t place = 0;
    std::size_t end = 0;
  };

  void MakeClasses();
  void MakeSources();
  void CloseBackwards(const std::vector<Lead>& from, Edge edge, std::vector<Lead>& leads);
  bool Close(const Places& from, Edge edge);
  void Visit(std::uint32_t place);
  std::int32_t Transition(std::uint32_t from, std::size_t byteClass);
  std::uint32_t StateOf(State state);
  bool Passes(const Instruction& instruction, Edge edge) const;

  std::vector<Instruction> program;  // reaching its end is a match
  std::vector<ByteSet> sets;
  std::array<std::uint16_t, 256> classOf{};  // bytes that no set distinguishes share a class
  std::vector<unsigned char> example;        // one byte of each class

  // The cache of states and of their transitions for each class of bytes; cleared when it becomes too large.
  std::vector<State> states;
  std::vector<std::int32_t> transitions;
  std::unordered_map<std::string, std::uint32_t> stateNumbers;

  std::vector<Places> sources;  // of each instruction: those that lead to it without consuming a byte

  Places closed;  // by the last Close: the Byte instructions reached
  Places stack;
  std::vector<std::uint64_t> visited;  // the last closure that visited each place
  std::uint64_t closure = 0;
  std::uint64_t steps = 0;
};

}  // namespace TamLogCtl
