#include "tamlogctl/commands/verb.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <iterator>

namespace TamLogCtl {

namespace {

std::vector<std::string> SplitAtCommas(std::string_view list) {
  std::vector<std::string> words;
  while (!list.empty()) {
    const std::string_view word = list.substr(0, list.find(','));
    words.emplace_back(word);
    list.remove_prefix(std::min(list.size(), word.size() + 1));
  }
  return words;
}

std::string Join(const std::vector<std::string>& words, const char* between) {
  std::string list;
  for (const std::string& word : words) list += (list.empty() ? "" : between) + word;
  return list;
}

std::string Expected(const std::string& value, const std::string& expected) {
  return "'" + value + "': expected " + expected;
}

Option NewOption(const std::string& names, Take take, std::string purpose) {
  Option option;
  option.names = SplitAtCommas(names);
  option.take = std::move(take);
  option.purpose = std::move(purpose);
  return option;
}

}  // namespace

std::string Option::Name() const {
  const auto isLong = [](const std::string& name) { return name.starts_with("--"); };
  const auto found = std::find_if(names.begin(), names.end(), isLong);
  return IsOperand() ? operand : found == names.end() ? names.front() : *found;
}

Option Option::Required() && {
  required = true;
  return std::move(*this);
}

Option Option::MayBeEmpty() && {
  mayBeEmpty = true;
  return std::move(*this);
}

Option Option::Needs(std::string other) && {
  needs = std::move(other);
  return std::move(*this);
}

Option Option::Excludes(std::string other) && {
  excludes = std::move(other);
  return std::move(*this);
}

bool Given::Has(std::string_view name) const {
  return std::find(names.begin(), names.end(), name) != names.end();
}

void Verb::Add(std::vector<Option> more) {
  options.insert(options.end(), std::make_move_iterator(more.begin()), std::make_move_iterator(more.end()));
}

Option Flag(const std::string& names, bool& to, std::string purpose) {
  const auto take = [&to](const std::string& value) {
    to = value == "true";
    return std::string();
  };
  Option option = NewOption(names, take, std::move(purpose));
  option.flag = true;
  return option;
}

Option Flag(const std::string& names, std::function<void()> turnOn, std::string purpose) {
  const auto take = [turnOn = std::move(turnOn)](const std::string& value) {
    if (value == "true") turnOn();
    return std::string();
  };
  Option option = NewOption(names, take, std::move(purpose));
  option.flag = true;
  return option;
}

Option Switch(const std::string& on, const std::string& off, bool& to, std::string purpose) {
  Option option = Flag(on + "," + off, to, std::move(purpose));
  option.off = off;
  return option;
}

Option Value(const std::string& names, std::string value, Take take, std::string purpose) {
  Option option = NewOption(names, std::move(take), std::move(purpose));
  option.value = std::move(value);
  return option;
}

Option Values(const std::string& names, std::string value, Take take, std::string purpose) {
  Option option = Value(names, std::move(value), std::move(take), std::move(purpose));
  option.repeatable = true;
  return option;
}

Option Operand(std::string name, Take take, std::string purpose) {
  Option option = NewOption("", std::move(take), std::move(purpose));
  option.operand = std::move(name);
  return option;
}

Option Operands(std::string name, Take take, std::string purpose) {
  Option option = Operand(std::move(name), std::move(take), std::move(purpose));
  option.repeatable = true;
  return option;
}

std::vector<Option> InGroup(const std::string& heading, std::vector<Option> options) {
  for (Option& option : options) option.group = heading;
  return options;
}

Take Text(std::string& to) {
  return [&to](const std::string& value) {
    to = value;
    return std::string();
  };
}

std::string NewFileProblem(const std::string& name) {
  return name == "-" ? "'-': standard output cannot be used here; name a file (./- for one of this name)"
                     : "";
}

Take NewFile(std::string& to) {
  return [&to](const std::string& value) {
    to = value;
    return NewFileProblem(value);
  };
}

Take List(std::vector<std::string>& to) {
  return [&to](const std::string& value) {
    to.push_back(value);
    return std::string();
  };
}

Take Number(std::uint64_t least, std::uint64_t most, std::function<void(std::uint64_t)> store) {
  return [=, store = std::move(store)](const std::string& value) {
    std::uint64_t number = 0;
    const char* const last = value.data() + value.size();
    const auto [end, error] = std::from_chars(value.data(), last, number);
    if (error != std::errc() || end != last || number < least || number > most)
      return Expected(value, "a number from " + std::to_string(least) + " to " + std::to_string(most));
    store(number);
    return std::string();
  };
}

Take Number(std::uint64_t least, std::uint64_t most, std::uint32_t& to) {
  return Number(least, most, [&to](std::uint64_t number) { to = static_cast<std::uint32_t>(number); });
}

Take Number(std::uint64_t least, std::uint64_t most, std::optional<std::uint32_t>& to) {
  return Number(least, most, [&to](std::uint64_t number) { to = static_cast<std::uint32_t>(number); });
}

Take Seconds(std::optional<double>& to) {
  return [&to](const std::string& value) {
    constexpr double kMost = 1e7;
    double number = 0;
    const char* const last = value.data() + value.size();
    const auto [end, error] = std::from_chars(value.data(), last, number);
    if (error != std::errc() || end != last || !(number >= 0 && number <= kMost))
      return Expected(value, "a number of seconds from 0 to 10000000");
    to = number;
    return std::string();
  };
}

Take WordOf(const std::vector<std::string>& words, std::function<void(std::size_t index)> store) {
  return [words, store = std::move(store)](const std::string& value) {
    const auto found = std::find(words.begin(), words.end(), value);
    if (found == words.end()) return Expected(value, Join(words, "|"));
    store(static_cast<std::size_t>(found - words.begin()));
    return std::string();
  };
}

Option Words(const std::string& name, const std::vector<std::string>& words,
             std::function<void(std::size_t index)> store, std::string purpose) {
  Take take = WordOf(words, std::move(store));
  Option option = name.starts_with('-') ? Value(name, "", std::move(take), std::move(purpose))
                                        : Operand(name, std::move(take), std::move(purpose));
  option.value = Join(words, "|");
  return option;
}

Option Words(const std::string& name, const std::vector<std::string>& words, std::string& to,
             std::string purpose) {
  return Words(
      name, words, [&to, words](std::size_t index) { to = words[index]; }, std::move(purpose));
}

}  // namespace TamLogCtl
