#include "tamlogctl/commands/help.h"

#include <algorithm>
#include <string_view>

namespace TamLogCtl {

namespace {

constexpr std::size_t kNameColumn = 30;
constexpr std::size_t kWidth = 110;

std::string NamesOf(const Option& option) {
  if (option.IsOperand()) return option.operand;
  std::string names;
  for (const std::string& name : option.names) names += (names.empty() ? "" : ", ") + name;
  return option.value.empty() ? names : names + " " + option.value;
}

// Appends a name and its explanation, which is wrapped in a column of its own.
void AppendEntry(const std::string& name, std::string_view text, std::string& out) {
  out += "  " + name;
  std::size_t column = name.size() + 2;
  if (column >= kNameColumn) {
    out += '\n';
    column = 0;
  }
  out.append(kNameColumn - column, ' ');
  column = kNameColumn;
  while (!text.empty()) {
    const std::string_view word = text.substr(0, text.find(' '));
    text.remove_prefix(std::min(text.size(), word.size() + 1));
    if (column > kNameColumn && column + 1 + word.size() > kWidth) {
      out.append("\n").append(kNameColumn, ' ');
      column = kNameColumn;
    }
    if (column > kNameColumn) out += ' ';
    column += word.size() + (column > kNameColumn ? 1 : 0);
    out += word;
  }
  out += '\n';
}

void AppendOptions(const Verb& verb, const std::string& group, std::string& out) {
  out += "\n" + (group.empty() ? "Options" : group) + ":\n";
  for (const Option& option : verb.options) {
    if (!option.IsOperand() && option.group == group) AppendEntry(NamesOf(option), option.purpose, out);
  }
}

void AppendOperands(const Verb& verb, std::string& out) {
  const auto isOperand = [](const Option& option) { return option.IsOperand(); };
  if (std::none_of(verb.options.begin(), verb.options.end(), isOperand)) return;
  out += '\n';
  for (const Option& option : verb.options) {
    if (option.IsOperand()) AppendEntry(option.operand, option.purpose, out);
  }
}

}  // namespace

std::string UsageOf(const Verb& verb, const std::string& path) {
  std::string usage = path;
  if (!verb.verbs.empty()) usage += verb.alone.empty() ? " VERB" : " [VERB]";
  usage += " [OPTION]...";
  for (const Option& option : verb.options) {
    if (!option.IsOperand()) continue;
    const std::string name = option.operand + (option.repeatable ? "..." : "");
    usage += option.required ? " " + name : " [" + name + "]";
  }
  return usage;
}

std::vector<std::string> GroupsOf(const Verb& verb) {
  std::vector<std::string> groups;
  for (const Option& option : verb.options) {
    const bool known = std::find(groups.begin(), groups.end(), option.group) != groups.end();
    if (!option.IsOperand() && !known) groups.push_back(option.group);
  }
  return groups;
}

std::string MakeHelp(const Verb& verb, const std::string& path) {
  std::string out = verb.purpose + (verb.purpose.ends_with('.') ? "\n" : ".\n");
  out += "\nUsage: " + UsageOf(verb, path) + "\n";
  AppendOperands(verb, out);
  if (!verb.verbs.empty()) {
    out += "\nVerbs:\n";
    for (const Verb& child : verb.verbs) AppendEntry(child.name, child.purpose, out);
    out += "\nHelp on one of them: " + path + " VERB --help\n";
  }
  for (const std::string& group : GroupsOf(verb)) AppendOptions(verb, group, out);
  return verb.footer.empty() ? out : out + "\n" + verb.footer + "\n";
}

}  // namespace TamLogCtl
