#include "tamlogctl/select/regular_expression_parser.h"

#include <algorithm>
#include <utility>

#include "client/message/utf8.h"

namespace TamLogCtl {

namespace {

using Instruction = RegularExpression::Instruction;
using Program = std::vector<Instruction>;
using Kind = Instruction::Kind;

constexpr std::size_t kMostInstructions = 5000;
constexpr int kMostDepth = 100;
constexpr unsigned kMostRepeats = 1000;

unsigned ValueOfHexDigit(char digit) {
  if (IsDigit(static_cast<unsigned char>(digit))) return static_cast<unsigned>(digit - '0');
  return static_cast<unsigned>((digit | 0x20) - 'a' + 10);
}

// Thrown for a malformed pattern; caught by ParseExpression.
struct Problem {
  std::string phrase;
};

// A recursive-descent parser. Programs are position-independent: a split holds a distance.
class Parser {
 public:
  Parser(std::string_view text, bool fold) : rest(text), foldCase(fold) {}

  Program Parse() {
    Program whole = Alternatives(0);
    if (!rest.empty()) throw Problem{"a ')' without '('"};
    return whole;
  }

  std::vector<ByteSet> sets;

 private:
  bool Take(char wanted) {
    if (rest.empty() || rest.front() != wanted) return false;
    rest.remove_prefix(1);
    return true;
  }

  char TakeAny(const char* missing) {
    if (rest.empty()) throw Problem{missing};
    const char taken = rest.front();
    rest.remove_prefix(1);
    return taken;
  }

  static void Append(Program& to, const Program& more) {
    if (to.size() + more.size() > kMostInstructions) throw Problem{"too large"};
    to.insert(to.end(), more.begin(), more.end());
  }

  static Instruction Split(std::size_t distance) {
    return {Kind::Split, 0, static_cast<std::int32_t>(distance), false};
  }
  static Instruction Jump(std::int32_t distance) { return {Kind::Split, 0, distance, true}; }

  Program OneOf(const ByteSet& set) {
    const auto known = std::find(sets.begin(), sets.end(), set);
    const auto number = static_cast<std::uint16_t>(known - sets.begin());
    if (known == sets.end()) sets.push_back(set);
    return {{Kind::Byte, number, 0, false}};
  }

  void AddByte(unsigned char byte, ByteSet& set) const {
    set.set(byte);
    if (foldCase && IsAlpha(byte)) set.set(byte ^ 0x20U);
  }

  Program Byte(char byte) {
    ByteSet set;
    AddByte(static_cast<unsigned char>(byte), set);
    return OneOf(set);
  }

  Program Alternatives(int depth) {
    if (depth > kMostDepth) throw Problem{"nested too deeply"};
    Program all = Sequence(depth);
    while (Take('|')) {
      const Program next = Sequence(depth);
      Program both{Split(all.size() + 2)};
      Append(both, all);
      both.push_back(Jump(static_cast<std::int32_t>(next.size()) + 1));
      Append(both, next);
      all = std::move(both);
    }
    return all;
  }

  Program Sequence(int depth) {
    Program sequence;
    while (!rest.empty() && rest.front() != '|' && rest.front() != ')') {
      Program atom = Atom(depth);
      while (Quantifier(atom)) {
      }
      Append(sequence, atom);
    }
    return sequence;
  }

  Program Atom(int depth) {
    const std::size_t length = TamLogClient::Utf8SequenceLength(rest);
    if (length > 1) {
      Program bytes;
      for (const char byte : rest.substr(0, length)) Append(bytes, Byte(byte));
      rest.remove_prefix(length);
      return bytes;
    }
    const char first = TakeAny("");
    switch (first) {
      case '.':
        return OneOf(~ByteSet());
      case '^':
        return {{Kind::Begin, 0, 0, false}};
      case '$':
        return {{Kind::End, 0, 0, false}};
      case '[':
        return Set();
      case '(':
        return Group(depth);
      case '\\':
        return Escape();
      case '*':
      case '+':
      case '?':
        throw Problem{std::string("nothing to repeat before '") + first + "'"};
      default:
        return Byte(first);
    }
  }

  Program Group(int depth) {
    if (Take('?') && !Take(':')) throw Problem{"only ':' may follow '(?': look-around is not supported"};
    Program inside = Alternatives(depth + 1);
    if (!Take(')')) throw Problem{"a '(' without ')'"};
    return inside;
  }

  Program Escape() {
    const char letter = TakeAny("a backslash at the end");
    if (letter == 'b') return {{Kind::WordEdge, 0, 0, false}};
    if (letter == 'B') return {{Kind::NoWordEdge, 0, 0, false}};
    if (letter == '<') return {{Kind::WordBegin, 0, 0, false}};
    if (letter == '>') return {{Kind::WordEnd, 0, 0, false}};
    if (const auto set = SetOfEscape(letter)) return OneOf(*set);
    return Byte(EscapedByte(letter));
  }

  char EscapedByte(char letter) {
    switch (letter) {
      case 'n':
        return '\n';
      case 'r':
        return '\r';
      case 't':
        return '\t';
      case 'f':
        return '\f';
      case 'v':
        return '\v';
      case 'x':
        return HexByte();
      default:
        break;
    }
    if (letter >= '1' && letter <= '9') throw Problem{"back-references (\\1) are not supported"};
    if (IsAlnum(static_cast<unsigned char>(letter))) {
      throw Problem{std::string("unknown escape '\\") + letter + "'"};
    }
    return letter;
  }

  char HexByte() {
    unsigned value = 0;
    for (int i = 0; i < 2; ++i) {
      const char digit = TakeAny("\\x needs two hexadecimal digits");
      if (!IsHexDigit(static_cast<unsigned char>(digit))) throw Problem{"\\x needs two hexadecimal digits"};
      value = value * 16 + ValueOfHexDigit(digit);
    }
    return static_cast<char>(value);
  }

  Program Set() {
    constexpr const char* kOpen = "a '[' without ']'";
    const bool negated = Take('^');
    ByteSet set;
    bool first = true;
    while (first || rest.empty() || rest.front() != ']') {
      first = false;
      AddItem(TakeAny(kOpen), set);
    }
    rest.remove_prefix(1);
    return OneOf(negated ? ~set : set);
  }

  // One byte, a range, a named set or an escape.
  void AddItem(char letter, ByteSet& set) {
    if (letter == '[' && Take(':')) {
      const std::size_t end = rest.find(":]");
      const auto named = end == std::string_view::npos ? std::nullopt : SetOfName(rest.substr(0, end));
      if (!named) throw Problem{"unknown [:name:]"};
      rest.remove_prefix(end + 2);
      AddAll(*named, set);
      return;
    }
    if (letter == '\\') {
      letter = TakeAny("a backslash at the end");
      if (const auto named = SetOfEscape(letter)) {
        set |= *named;
        return;
      }
      letter = letter == 'b' ? '\b' : EscapedByte(letter);
    } else if (static_cast<unsigned char>(letter) >= 0x80) {
      throw Problem{"'[...]' may contain ASCII characters only; use (?:x|y)"};
    }
    const auto from = static_cast<unsigned char>(letter);
    unsigned char to = from;
    if (rest.size() >= 2 && rest[0] == '-' && rest[1] != ']') {
      rest.remove_prefix(1);
      char last = TakeAny("");
      if (last == '\\') last = EscapedByte(TakeAny("a backslash at the end"));
      to = static_cast<unsigned char>(last);
    }
    if (to < from) throw Problem{"a range in '[...]' ends before it begins"};
    for (unsigned byte = from; byte <= to; ++byte) AddByte(static_cast<unsigned char>(byte), set);
  }

  void AddAll(const ByteSet& more, ByteSet& set) const {
    for (std::size_t byte = 0; byte < more.size(); ++byte) {
      if (more[byte]) AddByte(static_cast<unsigned char>(byte), set);
    }
  }

  bool Quantifier(Program& atom) {
    if (Take('*')) {
      Repeat(atom, 0, std::nullopt);
    } else if (Take('+')) {
      Repeat(atom, 1, std::nullopt);
    } else if (Take('?')) {
      Repeat(atom, 0, 1);
    } else if (!Counted(atom)) {
      return false;
    }
    Take('?');  // matching as few as possible: the same texts match
    if (!rest.empty() && (rest.front() == '*' || rest.front() == '+' || rest.front() == '?')) {
      throw Problem{std::string("nothing to repeat before '") + rest.front() + "'"};
    }
    return true;
  }

  // {2}, {2,} or {2,5}; any other brace is an ordinary character.
  bool Counted(Program& atom) {
    std::string_view text = rest;
    const auto take = [&text](char wanted) {
      if (text.empty() || text.front() != wanted) return false;
      text.remove_prefix(1);
      return true;
    };
    const auto number = [&text]() -> std::optional<unsigned> {
      if (text.empty() || !IsDigit(static_cast<unsigned char>(text.front()))) return std::nullopt;
      unsigned value = 0;
      while (!text.empty() && IsDigit(static_cast<unsigned char>(text.front()))) {
        value = std::min(value * 10 + static_cast<unsigned>(text.front() - '0'), kMostRepeats + 1);
        text.remove_prefix(1);
      }
      return value;
    };
    if (!take('{')) return false;
    const auto least = number();
    if (!least) return false;
    std::optional<unsigned> most = least;
    if (take(',')) most = number();
    if (!take('}')) return false;
    if (*least > kMostRepeats || most.value_or(0) > kMostRepeats) throw Problem{"too many repeats"};
    if (most && *most < *least) throw Problem{"the bounds of '{...}' are in the wrong order"};
    rest = text;
    Repeat(atom, *least, most);
    return true;
  }

  static void Repeat(Program& atom, unsigned least, std::optional<unsigned> most) {
    Program all;
    for (unsigned i = 0; i < least; ++i) Append(all, atom);
    const auto length = static_cast<std::int32_t>(atom.size());
    if (!most) {
      Append(all, {Split(atom.size() + 2)});
      Append(all, atom);
      Append(all, {Jump(-length - 1)});
    }
    for (unsigned i = least; most && i < *most; ++i) {
      Append(all, {Split(atom.size() + 1)});
      Append(all, atom);
    }
    atom = std::move(all);
  }

  std::string_view rest;
  bool foldCase;
};

}  // namespace

std::optional<ParsedExpression> ParseExpression(std::string_view pattern, bool foldCase,
                                                std::string& problem) {
  try {
    Parser parser(pattern, foldCase);
    ParsedExpression parsed;
    parsed.program = parser.Parse();
    parsed.sets = std::move(parser.sets);
    return parsed;
  } catch (const Problem& found) {
    problem = found.phrase;
    return std::nullopt;
  }
}

}  // namespace TamLogCtl
