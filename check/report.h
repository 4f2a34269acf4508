#pragma once

// The results of all checks, as the text that a person reads and as one JSON object a line for programs. An
// object belongs to one thread at a time.

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace TamLogCheck {

enum class Outcome : std::uint8_t { Holds, Differs, NotTried };

// Measured or read values, in the order in which the report shows them.
using Values = std::vector<std::pair<std::string, std::string>>;

struct Verdict {
  Outcome outcome = Outcome::NotTried;
  std::string seen;  // Differs: what was seen; NotTried: the reason; a sentence without a full stop
  Values values;
};

struct Result {
  std::string check;    // "log.grows-with-a-reader"; never changes
  std::string promise;  // a sentence with its full stop
  Verdict verdict;
  std::uint64_t milliseconds = 0;
};

class Report {
 public:
  // Adds a fact about the machine.
  void Fact(const std::string& name, const std::string& value) { facts.emplace_back(name, value); }
  void Add(Result result) { results.push_back(std::move(result)); }
  // Adds a line about something that the program changed and could not restore.
  void NotRestored(const std::string& what) { left.push_back(what); }

  std::size_t Count(Outcome outcome) const;
  bool AllRestored() const { return left.empty(); }

  // Returns "12 hold, 1 differs, 3 not tried".
  std::string Summary() const;

  // Returns the whole report: facts, results that differ, all results, and the lines for programs.
  std::string Text() const;

 private:
  std::string ForPrograms() const;

  Values facts;
  std::vector<Result> results;
  std::vector<std::string> left;
};

// The line after which the report continues in JSON.
inline constexpr char kProgramsLine[] = "---- the same for programs: one JSON object a line ----";

const char* OutcomeText(Outcome outcome);

// Returns one line for a person: outcome, name, and what was seen.
std::string LineOf(const Result& result);

// Returns the text in quotation marks. Bytes that are not printable ASCII become \u00XX.
std::string JsonText(const std::string& text);

}  // namespace TamLogCheck
