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
    case Instruction::Kind::WordBegin:
      return !edge.wordBefore && edge.wordAfter;
    case Instruction::Kind::WordEnd:
      return edge.wordBefore && !edge.wordAfter;
    default:
      return false;
  }
}

void RegularExpression::Visit(std::uint32_t place) {
  if (visited[place] == closure) return;
  visited[place] = closure;
  ++steps;
  stack.push_back(place);
}

// Follows the steps that consume no byte. Returns true if the end of the program is reached.
bool RegularExpression::Close(const Places& from, Edge edge) {
  bool matched = false;
  closed.clear();
  ++closure;
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

void RegularExpression::MakeSources() {
  sources.resize(program.size() + 1);
  for (std::uint32_t place = 0; place < program.size(); ++place) {
    const Instruction& instruction = program[place];
    if (instruction.kind == Instruction::Kind::Byte) continue;
    if (instruction.kind == Instruction::Kind::Split) {
      const auto target = static_cast<std::int32_t>(place) + instruction.other;
      sources[static_cast<std::size_t>(target)].push_back(place);
      if (instruction.jump) continue;
    }
    sources[place + 1].push_back(place);
  }
}

// Appends to `leads` the places of `from` and all that lead to them without consuming a byte, in the order of
// `from`: a place that leads to several ends is visited for the first of them only.
void RegularExpression::CloseBackwards(const std::vector<Lead>& from, Edge edge, std::vector<Lead>& leads) {
  leads.clear();
  ++closure;
  for (const Lead& lead : from) {
    Visit(lead.place);
    while (!stack.empty()) {
      const std::uint32_t place = stack.back();
      stack.pop_back();
      leads.push_back({place, lead.end});
      for (const std::uint32_t source : sources[place]) {
        const Instruction& instruction = program[source];
        if (instruction.kind == Instruction::Kind::Split || Passes(instruction, edge)) Visit(source);
      }
    }
  }
}

// Runs the program backwards, from the end of the text to its beginning. `leads` is ordered by the end that
// is reached, furthest first, and a match that ends at the present position is last; so the order needs no
// sorting, and the first visit of a place is for its longest match.
void RegularExpression::FindAll(std::string_view text, MatchEnds& ends) {
  if (!Matches(text)) return;
  if (sources.empty()) MakeSources();
  const auto wordAt = [text](std::size_t at) {
    return at < text.size() && IsWordByte(static_cast<unsigned char>(text[at]));
  };
  std::vector<Lead> before;
  std::vector<Lead> leads;
  for (std::size_t at = text.size() + 1; at-- > 0;) {
    before.clear();
    for (const Lead& lead : leads) {
      if (lead.place == 0) continue;
      const Instruction& step = program[lead.place - 1];
      if (step.kind == Instruction::Kind::Byte && sets[step.set][static_cast<unsigned char>(text[at])])
        before.push_back({lead.place - 1, lead.end});
    }
    before.push_back({static_cast<std::uint32_t>(program.size()), at});
    CloseBackwards(before, {at == 0, at == text.size(), at > 0 && wordAt(at - 1), wordAt(at)}, leads);
    const auto first =
        std::find_if(leads.begin(), leads.end(), [](const Lead& lead) { return lead.place == 0; });
    if (first != leads.end() && first->end > at) ends[at] = std::max(ends[at], first->end);
  }
}

}  // namespace TamLogCtl
