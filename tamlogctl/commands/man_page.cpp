#include "tamlogctl/commands/man_page.h"

#include <algorithm>
#include <string_view>
#include <vector>

#include "tamlogctl/commands/help.h"
#include "tamlogctl/commands/shared_options.h"
#include "tamlogctl/commands/topics.h"

namespace TamLogCtl {

namespace {

// Returns text that roff shows unchanged: a backslash is roff's own letter, a hyphen would become a dash, and
// a line must not begin like a request.
std::string Plain(std::string_view text) {
  std::string out;
  bool atStart = true;
  for (const char letter : text) {
    if (atStart && (letter == '.' || letter == '\'')) out += "\\&";
    if (letter == '\\') {
      out += "\\e";
    } else if (letter == '-') {
      out += "\\-";
    } else if (letter == '\'') {
      out += "\\(aq";
    } else if (letter == '^') {
      out += "\\(ha";
    } else if (letter == '~') {
      out += "\\(ti";
    } else if (letter == '`') {
      out += "\\(ga";
    } else {
      out += letter;
    }
    atStart = letter == '\n';
  }
  return out;
}

// Paragraphs, and lines that begin with a space and keep their layout.
void AppendText(std::string_view text, std::string& out) {
  bool laidOut = false;
  bool between = true;  // paragraphs
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(text.size(), line.size() + 1));
    const bool indented = line.starts_with(' ');
    if (laidOut != indented && !(laidOut && line.empty())) {
      out += indented ? ".PP\n.nf\n" : ".fi\n";
      laidOut = indented;
    }
    if (line.empty()) {
      between = true;
      continue;
    }
    if (between && !indented) out += ".PP\n";
    if (between && laidOut && !indented) out += '\n';
    between = false;
    out += Plain(line) + "\n";
  }
  if (laidOut) out += ".fi\n";
}

void AppendOption(const Option& option, std::string& out) {
  out += ".TP\n";
  if (option.IsOperand()) {
    out += "\\fI" + Plain(option.operand) + "\\fR\n";
  } else {
    std::string list;
    for (const std::string& name : option.names) {
      list += (list.empty() ? "\\fB" : ", \\fB") + Plain(name) + "\\fR";
    }
    out += list + (option.value.empty() ? "" : " \\fI" + Plain(option.value) + "\\fR") + "\n";
  }
  out += Plain(option.purpose) + "\n";
}

std::string TitleOf(std::string heading) {
  std::transform(heading.begin(), heading.end(), heading.begin(), [](char letter) {
    return letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 0x20) : letter;
  });
  return heading;
}

// Shared options are explained once, in sections of their own.
void AppendVerb(const Verb& verb, const std::string& path, std::string& out) {
  out += ".SS " + Plain(path) + "\n" + Plain(verb.purpose) + ".\n.PP\n" +
         Plain(UsageOf(verb, "tamlogctl " + path)) + "\n";
  for (const Option& option : verb.options) {
    if (option.group.empty()) AppendOption(option, out);
  }
  std::string shared;
  for (const std::string& group : GroupsOf(verb)) {
    if (group.empty() || group == kOptionsOfAll) continue;
    shared += (shared.empty() ? "" : ", ") + TitleOf(group);
  }
  if (!shared.empty()) out += ".PP\nAlso the options of " + Plain(shared) + ".\n";
  AppendText(verb.footer, out);
  for (const Verb& child : verb.verbs) AppendVerb(child, path + " " + child.name, out);
}

// Collects the shared options of the verb and of those below it, each once, in the order of their first verb.
void Collect(const Verb& verb, std::vector<std::string>& groups, std::vector<const Option*>& options) {
  for (const Option& option : verb.options) {
    if (option.group.empty()) continue;
    if (std::find(groups.begin(), groups.end(), option.group) == groups.end()) groups.push_back(option.group);
    const auto same = [&option](const Option* known) {
      return known->Name() == option.Name() && known->group == option.group;
    };
    if (std::none_of(options.begin(), options.end(), same)) options.push_back(&option);
  }
  for (const Verb& child : verb.verbs) Collect(child, groups, options);
}

void AppendSharedOptions(const Verb& program, std::string& out) {
  std::vector<std::string> groups;
  std::vector<const Option*> options;
  for (const Verb& verb : program.verbs) Collect(verb, groups, options);
  for (const std::string& group : groups) {
    out += ".SH " + Plain(TitleOf(group)) + "\n";
    for (const Option* const option : options) {
      if (option->group == group) AppendOption(*option, out);
    }
  }
}

}  // namespace

std::string MakeManPage(const Verb& program) {
  std::string out = ".TH TAMLOGCTL 1 \"\" \"tamlogctl " TAMLOG_VERSION
                    "\" \"User Commands\"\n"
                    ".SH NAME\ntamlogctl \\- read, follow, feed and administer the Torvane Log Server\n"
                    ".SH SYNOPSIS\n.B tamlogctl\n[\\fIVERB\\fR] [\\fIOPTION\\fR]... [\\fIOPERAND\\fR]...\n"
                    ".SH DESCRIPTION\n" +
                    Plain(program.purpose) + "\n";
  AppendText(program.footer, out);
  out += ".SH VERBS\n";
  for (const Verb& verb : program.verbs) AppendVerb(verb, verb.name, out);
  AppendSharedOptions(program, out);
  for (const Topic& topic : Topics()) {
    out += std::string(".SH ") + topic.title + "\n";
    AppendText(topic.text, out);
  }
  return out +
         ".SH SEE ALSO\n.BR less (1),\n.BR lnav (1),\n.BR jq (1)\n.PP\n"
         "docs/tamlogctl.md explains verbs, formats and events in full, docs/log_file_format.md the bytes of "
         "a log,\n"
         "docs/library.md the library for C and C++.\n";
}

}  // namespace TamLogCtl
