#include "tamlogctl/commands/man_page.h"

#include <string_view>

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

// Footers are laid out by hand, with examples in columns.
void AppendFooter(const std::string& footer, std::string& out) {
  if (footer.empty()) return;
  out += ".PP\n.nf\n" + Plain(footer) + "\n.fi\n";
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

void AppendVerb(const Verb& verb, const std::string& path, std::string& out) {
  out += ".SS " + Plain(path) + "\n" + Plain(verb.purpose) + ".\n";
  for (const Option& option : verb.options) AppendOption(option, out);
  AppendFooter(verb.footer, out);
  for (const Verb& child : verb.verbs) AppendVerb(child, path + " " + child.name, out);
}

}  // namespace

std::string MakeManPage(const Verb& program) {
  std::string out = ".TH TAMLOGCTL 1 \"\" \"tamlogctl " TAMLOG_VERSION
                    "\" \"User Commands\"\n"
                    ".SH NAME\ntamlogctl \\- read, follow, feed and administer the Torvane Log Server\n"
                    ".SH SYNOPSIS\n.B tamlogctl\n[\\fIverb\\fR] [\\fIoption\\fR ...] [\\fIoperand\\fR ...]\n"
                    ".SH DESCRIPTION\n" +
                    Plain(program.purpose) + "\n";
  for (const Option& option : program.options) AppendOption(option, out);
  AppendFooter(program.footer, out);
  out += ".SH VERBS\n";
  for (const Verb& verb : program.verbs) AppendVerb(verb, verb.name, out);
  return out;
}

}  // namespace TamLogCtl
