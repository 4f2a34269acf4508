#include "tamlogctl/select/regular_expression_parser.h"

#include <algorithm>
#include <array>
#include <utility>

#include "client/message/utf8.h"

namespace TamLogCtl {

namespace {

using Instruction = RegularExpression::Instruction;
using ByteSet = RegularExpression::ByteSet;
using Program = std::vector<Instruction>;
using Kind = Instruction::Kind;

constexpr std::size_t kMostInstructions = 5000;
constexpr int kMostDepth = 100;
constexpr unsigned kMostRepeats = 1000;

bool IsLower(unsigned char byte) {
  return byte >= 'a' && byte <= 'z';
}
bool IsUpper(unsigned char byte) {
  return byte >= 'A' && byte <= 'Z';
}
bool IsDigit(unsigned char byte) {
  return byte >= '0' && byte <= '9';
}
bool IsAlpha(unsigned char byte) {
  return IsLower(byte) || IsUpper(byte);
}
bool IsAlnum(unsigned char byte) {
  return IsAlpha(byte) || IsDigit(byte);
}
bool IsSpace(unsigned char byte) {
  return byte == ' ' || (byte >= '\t' && byte <= '\r');
}
bool IsHexDigit(unsigned char byte) {
  return IsDigit(byte) || (byte >= 'a' && byte <= 'f') || (byte >= 'A' && byte <= 'F');
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

unsigned ValueOfHexDigit(char digit) {
  if (IsDigit(static_cast<unsigned char>(digit))) return static_cast<unsigned>(digit - '0');
  return static_cast<unsigned>((digit | 0x20) - 'a' + 10);
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

// The set of \d and its like.
std::optional<ByteSet> SetOfLetter(char letter) {
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

// What went wrong; caught where parsing began.
struct Problem {
  std::string phrase;
};

// Recursive descent. Programs are position-independent: a split names a distance.
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
    if (Take('?') && !Take(':')) throw Problem{"'(?' is followed by ':' only: look-around is not supported"};
    Program inside = Alternatives(depth + 1);
    if (!Take(')')) throw Problem{"a '(' without ')'"};
    return inside;
  }

  Program Escape() {
    const char letter = TakeAny("a backslash at the end");
    if (letter == 'b') return {{Kind::WordEdge, 0, 0, false}};
    if (letter == 'B') return {{Kind::NoWordEdge, 0, 0, false}};
    if (const auto set = SetOfLetter(letter)) return OneOf(*set);
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
    if (letter >= '1' && letter <= '9') throw Problem{"references back (\\1) are not supported"};
    if (IsAlnum(static_cast<unsigned char>(letter))) {
      throw Problem{std::string("'\\") + letter + "' has no meaning"};
    }
    return letter;
  }

  char HexByte() {
    unsigned value = 0;
    for (int i = 0; i < 2; ++i) {
      const char digit = TakeAny("\\x wants two hexadecimal digits");
      if (!IsHexDigit(static_cast<unsigned char>(digit))) throw Problem{"\\x wants two hexadecimal digits"};
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
      const std::string_view name = rest.substr(0, end);
      const auto* const known = std::find_if(kNamedSets.begin(), kNamedSets.end(),
                                             [name](const NamedSet& entry) { return entry.name == name; });
      if (end == std::string_view::npos || known == kNamedSets.end()) throw Problem{"no such [:name:]"};
      rest.remove_prefix(end + 2);
      AddAll(SetOf(known->holds), set);
      return;
    }
    if (letter == '\\') {
      letter = TakeAny("a backslash at the end");
      if (const auto named = SetOfLetter(letter)) {
        set |= *named;
        return;
      }
      letter = letter == 'b' ? '\b' : EscapedByte(letter);
    } else if (static_cast<unsigned char>(letter) >= 0x80) {
      throw Problem{"'[...]' holds ASCII characters only; write (?:x|y) instead"};
    }
    const auto from = static_cast<unsigned char>(letter);
    unsigned char to = from;
    if (rest.size() >= 2 && rest[0] == '-' && rest[1] != ']') {
      rest.remove_prefix(1);
      char last = TakeAny("");
      if (last == '\\') last = EscapedByte(TakeAny("a backslash at the end"));
      to = static_cast<unsigned char>(last);
    }
    if (to < from) throw Problem{"a range in '[...]' runs backwards"};
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
    Take('?');  // as few as possible: the same texts match
    if (!rest.empty() && (rest.front() == '*' || rest.front() == '+' || rest.front() == '?')) {
      throw Problem{std::string("nothing to repeat before '") + rest.front() + "'"};
    }
    return true;
  }

  // {2}, {2,} or {2,5}; any other brace stands for itself.
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
    if (most && *most < *least) throw Problem{"a '{...}' runs backwards"};
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

bool IsWordByte(unsigned char byte) {
  return IsAlnum(byte) || byte == '_';
}

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
