#include "tamlogctl/commands/help.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace TamLogCtl {

namespace {

constexpr std::size_t kNameColumn = 30;

std::string NamesOf(const Option& option) {
  if (option.IsOperand()) return option.operand;
  std::string names;
  for (const std::string& name : option.names) names += (names.empty() ? "" : ", ") + name;
  return option.value.empty() ? names : names + " " + option.value;
}

// Appends a name and its explanation, which begins in a column of its own.
void AppendEntry(const std::string& name, const std::string& text, std::string& out) {
  std::string line = "  " + name;
  if (line.size() + 2 > kNameColumn) {
    out += line + "\n";
    line.clear();
  }
  line.resize(kNameColumn, ' ');
  out += line + text + "\n";
}

// A line of a text and those that continue it.
struct Entry {
  std::string text;
  std::size_t column = 0;  // where further lines begin
  bool wraps = true;       // and takes the next line if that begins in the same column
};

// Begins an entry with this line. A name and its explanation have a gap of two spaces or more between them; a
// name alone is often a command, which stays on one line.
Entry EntryOf(std::string_view line) {
  constexpr std::size_t kNameIndent = 2;
  const std::size_t indent = std::min(line.find_first_not_of(' '), line.size());
  const std::size_t gap = indent == 0 ? std::string_view::npos : line.find("  ", indent);
  if (gap == std::string_view::npos)
    return {std::string(line), indent, !line.empty() && indent != kNameIndent};
  return {std::string(line), line.find_first_not_of(' ', gap), true};
}

void AppendWrapped(const Entry& entry, std::size_t width, std::string& out) {
  std::string_view rest = entry.text;
  std::size_t words = entry.column;  // where the words begin in `rest`, between which it is wrapped
  std::size_t room = width;
  while (entry.wraps && rest.size() > room) {
    std::size_t end = rest.rfind(' ', room);
    if (end == std::string_view::npos || end < words) end = rest.find(' ', words);
    if (end == std::string_view::npos) break;
    out.append(rest.substr(0, end)).append("\n").append(entry.column, ' ');
    rest.remove_prefix(end + 1);
    words = 0;
    room = width - std::min(width, entry.column);
  }
  out.append(rest).append("\n");
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

std::string LaidOut(std::string_view text, std::size_t columns) {
  constexpr std::size_t kLeast = 80;
  constexpr std::size_t kMost = 110;
  const std::size_t width = std::clamp(columns, kLeast, kMost) - 1;  // a full line wraps on some terminals
  std::string out;
  Entry entry;
  bool begun = false;
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(text.size(), line.size() + 1));
    Entry next = EntryOf(line);
    const bool more = begun && entry.wraps && next.text.find_first_not_of(' ') == entry.column &&
                      next.column == entry.column;
    if (more) {
      entry.text += " " + next.text.substr(entry.column);
      continue;
    }
    if (begun) AppendWrapped(entry, width, out);
    entry = std::move(next);
    begun = true;
  }
  if (begun) AppendWrapped(entry, width, out);
  return out;
}

}  // namespace TamLogCtl
