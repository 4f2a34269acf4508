#include "tamlogctl/select/regular_expression.h"

#include <algorithm>
#include <map>
#include <utility>

#include "tamlogctl/select/regular_expression_parser.h"

namespace TamLogCtl {

namespace {

constexpr std::size_t kMostStates = 2000;
constexpr std::int32_t kUnknown = -1;
constexpr std::int32_t kMatched = -2;

}  // namespace

std::optional<RegularExpression> RegularExpression::Compile(std::string_view pattern, bool foldCase,
                                                            std::string& problem) {
  auto parsed = ParseExpression(pattern, foldCase, problem);
  if (!parsed) return std::nullopt;
  RegularExpression expression;
  expression.program = std::move(parsed->program);
  expression.sets = std::move(parsed->sets);
  expression.visited.assign(expression.program.size() + 1, 0);
  expression.MakeClasses();
  return expression;
}

// Bytes that belong to the same sets, and are both word bytes or both not, have the same transitions.
void RegularExpression::MakeClasses() {
  std::size_t count = 1;
  const auto refine = [&](const auto& holds) {
    std::map<std::pair<std::uint16_t, bool>, std::uint16_t> finer;
    for (std::size_t byte = 0; byte < classOf.size(); ++byte) {
      const auto next = static_cast<std::uint16_t>(finer.size());
      classOf[byte] = finer.try_emplace({classOf[byte], holds(byte)}, next).first->second;
    }
    count = finer.size();
  };
  refine([](std::size_t byte) { return IsWordByte(static_cast<unsigned char>(byte)); });
  for (const ByteSet& set : sets) refine([&set](std::size_t byte) { return set[byte]; });
  example.resize(count);
  for (std::size_t byte = 0; byte < classOf.size(); ++byte) {
    example[classOf[byte]] = static_cast<unsigned char>(byte);
  }
}

bool RegularExpression::Passes(const Instruction& instruction, Edge edge) const {
  switch (instruction.kind) {
    case Instruction::Kind::Begin:
      return edge.begin;
    case Instruction::Kind::End:
      return edge.end;
    case Instruction::Kind::WordEdge:
      return edge.wordBefore != edge.wordAfter;
    case Instruction::Kind::NoWordEdge:
      return edge.wordBefore == edge.wordAfter;
    default:
      return false;
  }
}

void RegularExpression::Visit(std::uint32_t place) {
  if (visited[place] == visit) return;
  visited[place] = visit;
  stack.push_back(place);
}

// Follows the steps that consume no byte. Returns true if the end of the program is reached.
bool RegularExpression::Close(const Places& from, Edge edge) {
  bool matched = false;
  closed.clear();
  ++visit;
  for (const std::uint32_t place : from) Visit(place);
  while (!stack.empty()) {
    const std::uint32_t place = stack.back();
    stack.pop_back();
    if (place == program.size()) {
      matched = true;
      continue;
    }
    const Instruction& instruction = program[place];
    if (instruction.kind == Instruction::Kind::Byte) {
      closed.push_back(place);
    } else if (instruction.kind == Instruction::Kind::Split) {
      Visit(static_cast<std::uint32_t>(static_cast<std::int32_t>(place) + instruction.other));
      if (!instruction.jump) Visit(place + 1);
    } else if (Passes(instruction, edge)) {
      Visit(place + 1);
    }
  }
  return matched;
}

std::uint32_t RegularExpression::StateOf(State state) {
  std::sort(state.places.begin(), state.places.end());
  state.places.erase(std::unique(state.places.begin(), state.places.end()), state.places.end());
  std::string name(1, static_cast<char>((state.begin ? 1 : 0) + (state.wordBefore ? 2 : 0)));
  name.append(reinterpret_cast<const char*>(state.places.data()),
              state.places.size() * sizeof(std::uint32_t));
  const auto known = stateNumbers.find(name);
  if (known != stateNumbers.end()) return known->second;
  if (states.size() >= kMostStates) {
    states.clear();
    transitions.clear();
    stateNumbers.clear();
  }
  const auto number = static_cast<std::uint32_t>(states.size());
  states.push_back(std::move(state));
  transitions.resize(transitions.size() + example.size() + 1, kUnknown);
  stateNumbers.emplace(std::move(name), number);
  return number;
}

// Returns the state after a byte of the class. The class after the last one stands for the end of the text.
std::int32_t RegularExpression::Transition(std::uint32_t from, std::size_t byteClass) {
  const std::size_t cell = from * (example.size() + 1) + byteClass;
  if (transitions[cell] != kUnknown) return transitions[cell];
  const bool end = byteClass == example.size();
  const bool word = !end && IsWordByte(example[byteClass]);
  const State& state = states[from];
  if (Close(state.places, {state.begin, end, state.wordBefore, word})) return transitions[cell] = kMatched;
  if (end) return transitions[cell] = 0;
  State next;
  next.wordBefore = word;
  next.places.push_back(0);  // a match may begin anywhere
  for (const std::uint32_t place : closed) {
    if (sets[program[place].set][example[byteClass]]) next.places.push_back(place + 1);
  }
  const std::size_t before = states.size();
  const auto number = static_cast<std::int32_t>(StateOf(std::move(next)));
  if (states.size() >= before) transitions[cell] = number;  // else the cache was cleared
  return number;
}

bool RegularExpression::Matches(std::string_view text) {
  std::uint32_t state = StateOf({{0}, true, false});
  for (const char letter : text) {
    const std::size_t byteClass = classOf[static_cast<unsigned char>(letter)];
    std::int32_t next = transitions[state * (example.size() + 1) + byteClass];
    if (next == kUnknown) next = Transition(state, byteClass);
    if (next == kMatched) return true;
    state = static_cast<std::uint32_t>(next);
  }
  return Transition(state, example.size()) == kMatched;
}

std::size_t RegularExpression::LongestAt(std::string_view text, std::size_t start) {
  std::size_t longest = 0;
  Places places{0};
  for (std::size_t at = start; !places.empty(); ++at) {
    const bool end = at == text.size();
    const bool before = at > 0 && IsWordByte(static_cast<unsigned char>(text[at - 1]));
    const bool after = !end && IsWordByte(static_cast<unsigned char>(text[at]));
    if (Close(places, {at == 0, end, before, after})) longest = at - start;
    places.clear();
    if (end) break;
    for (const std::uint32_t place : closed) {
      if (sets[program[place].set][static_cast<unsigned char>(text[at])]) places.push_back(place + 1);
    }
  }
  return longest;
}

std::optional<TextExtent> RegularExpression::Find(std::string_view text, std::size_t from) {
  for (std::size_t start = from; start < text.size(); ++start) {
    const std::size_t length = LongestAt(text, start);
    if (length > 0) return TextExtent{start, length};
  }
  return std::nullopt;
}

}  // namespace TamLogCtl
