#pragma once

// Verbs and their options as plain data. The parser, the help, the completions and the manual page are all
// made from it; nothing here knows how a command line is parsed.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace TamLogCtl {

// Stores one value. Returns the problem, "'9': expected a number from 0 to 3", or an empty text.
using Take = std::function<std::string(const std::string& value)>;

// An option, "-o,--output FORMAT", or an operand, "FILE".
struct Option {
  std::vector<std::string> names;  // "-o", "--output"; empty for an operand
  std::string operand;             // "FILE", for an operand
  std::string value;               // what the help calls the value, "a|b" where it is one of a few words
  std::string purpose;
  Take take;  // of a flag "true" or "false"; refers to where the value goes, which has to outlive it
  bool flag = false;
  std::string off;  // the one of a flag's names that turns it off: "--no-wait"
  bool repeatable = false;
  bool required = false;
  bool mayBeEmpty = false;  // elsewhere an empty value is rejected
  std::string needs;        // the option without which this one has no meaning
  std::string excludes;     // the option that contradicts this one
  std::string group;        // the heading under which the help lists it; empty: the verb's own options

  bool IsOperand() const { return names.empty(); }

  // Returns the name that messages use: the long one.
  std::string Name() const;

  Option Required() &&;
  Option MayBeEmpty() &&;
  Option Needs(std::string other) &&;
  Option Excludes(std::string other) &&;
};

// The values from the command line, by the options' Name().
class Given {
 public:
  explicit Given(std::vector<std::string> givenNames) : names(std::move(givenNames)) {}
  bool Has(std::string_view name) const;

 private:
  std::vector<std::string> names;
};

struct Verb {
  std::string name;
  std::string purpose;
  std::string footer;  // below the options in the help: examples
  std::vector<Option> options;
  std::vector<Verb>
      verbs;  // one of them has to follow, unless `alone` names the one that runs when none does
  std::string alone;

  // Called after all values were stored: completes them. Returns the contradiction, or an empty text.
  std::function<std::string(const Given&)> check;
  std::function<int()> run;  // returns the program's exit code

  void Add(std::vector<Option> more);
};

// A verb that runs `run` with `options`, which it keeps alive.
template <typename Options>
Verb MakeVerb(std::string name, std::string purpose, std::string footer,
              const std::shared_ptr<Options>& options, int (*run)(const Options&)) {
  Verb verb;
  verb.name = std::move(name);
  verb.purpose = std::move(purpose);
  verb.footer = std::move(footer);
  verb.run = [options, run] { return run(*options); };
  return verb;
}

// `names` are separated by commas; `value` is what the help calls the value.
Option Flag(const std::string& names, bool& to, std::string purpose);
Option Flag(const std::string& names, std::function<void()> turnOn, std::string purpose);
Option Switch(const std::string& on, const std::string& off, bool& to, std::string purpose);
Option Value(const std::string& names, std::string value, Take take, std::string purpose);
Option Values(const std::string& names, std::string value, Take take, std::string purpose);  // repeatable
Option Operand(std::string name, Take take, std::string purpose);
Option Operands(std::string name, Take take, std::string purpose);  // any number of them

// Puts shared options under a heading of the help.
std::vector<Option> InGroup(const std::string& heading, std::vector<Option> options);

// How a value is stored.
Take Text(std::string& to);
std::string NewFileProblem(const std::string& name);  // empty for a name that NewFile accepts
Take NewFile(std::string& to);  // the name of a file to be written, which is never standard output
Take List(std::vector<std::string>& to);
Take Number(std::uint64_t least, std::uint64_t most, std::function<void(std::uint64_t)> store);
Take Number(std::uint64_t least, std::uint64_t most, std::uint32_t& to);
Take Number(std::uint64_t least, std::uint64_t most, std::optional<std::uint32_t>& to);
Take Seconds(std::optional<double>& to);  // 0 to 10000000, with a fraction
Take WordOf(const std::vector<std::string>& words, std::function<void(std::size_t index)> store);

// An option or operand whose value is one of a few words.
Option Words(const std::string& name, const std::vector<std::string>& words, std::string& to,
             std::string purpose);
Option Words(const std::string& name, const std::vector<std::string>& words,
             std::function<void(std::size_t index)> store, std::string purpose);

// The same where each word stands for a value of an enumeration, counted from 0.
template <typename Enumeration>
Option Choice(const std::string& name, const std::vector<std::string>& words, Enumeration& to,
              std::string purpose) {
  return Words(
      name, words, [&to](std::size_t index) { to = static_cast<Enumeration>(index); }, std::move(purpose));
}

}  // namespace TamLogCtl
