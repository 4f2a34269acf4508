#include "tamlogctl/commands/verb_tree.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <string_view>

namespace TamLogCtl {

namespace {

std::vector<std::string> SplitAtBars(std::string_view text) {
  std::vector<std::string> words;
  while (!text.empty()) {
    const std::string_view word = text.substr(0, text.find('|'));
    words.emplace_back(word);
    text.remove_prefix(std::min(text.size(), word.size() + 1));
  }
  return words;
}

bool IsFileWord(const std::string& word) {
  return word == "FILE" || word == "NEW" || word == "NEWFILE";
}

// "all" in "N|all" is a word, N is not; neither is a unit.
bool IsChoice(const std::string& word) {
  return std::any_of(word.begin(), word.end(), [](char letter) { return letter >= 'a' && letter <= 'z'; });
}

std::vector<std::string> ChoicesOf(const std::string& text) {
  std::vector<std::string> choices;
  for (const std::string& word : SplitAtBars(text)) {
    if (!IsChoice(word)) continue;
    const std::size_t sign = word.find('=');  // of "template=TEXT" all but the text
    choices.push_back(sign == std::string::npos ? word : word.substr(0, sign + 1));
  }
  return choices;
}

OptionInfo Describe(const CLI::Option& option) {
  OptionInfo info;
  for (const std::string& name : option.get_snames()) info.names.push_back("-" + name);
  for (const std::string& name : option.get_lnames()) info.names.push_back("--" + name);
  info.purpose = option.get_description();
  info.required = option.get_required();
  if (info.names.empty()) {
    info.operand = option.get_name(true);
    info.takesFile = IsFileWord(info.operand);
    info.choices = ChoicesOf(option.get_option_text());
    return info;
  }
  if (option.get_items_expected_max() == 0) return info;
  info.value = option.get_option_text();
  if (info.value.empty()) info.value = "VALUE";
  info.takesFile = IsFileWord(info.value);
  info.choices = ChoicesOf(info.value);
  return info;
}

VerbInfo DescribeVerb(const CLI::App& app) {
  VerbInfo verb{app.get_name(), app.get_description(), app.get_footer(), {}, {}};
  for (const CLI::Option* option : app.get_options()) verb.options.push_back(Describe(*option));
  for (const CLI::App* child : app.get_subcommands(nullptr)) verb.verbs.push_back(DescribeVerb(*child));
  return verb;
}

}  // namespace

VerbInfo DescribeVerbs(const CLI::App& app) {
  return DescribeVerb(app);
}

}  // namespace TamLogCtl
