#include "tamlogctl/base/console.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/commands/completion.h"
#include "tamlogctl/commands/man_page.h"
#include "tamlogctl/commands/shared_options.h"
#include "tamlogctl/commands/verbs.h"

namespace TamLogCtl {

namespace {

constexpr const char* kCompletionFooter = R"(Examples:
  tamlogctl completion powershell | Out-String | Invoke-Expression
                                              in PowerShell, or in its $PROFILE
  source <(tamlogctl completion bash)         in bash, or in ~/.bashrc
  source <(tamlogctl completion zsh)          in zsh, after compinit)";

constexpr const char* kManFooter = R"(Examples:
  tamlogctl man | man -l -                    shows it
  tamlogctl man > /usr/local/share/man/man1/tamlogctl.1
                                              installs it
  tamlogctl man | groff -man -Thtml > tamlogctl.html)";

struct ShellOptions {
  Shell shell = Shell::PowerShell;
};

int Print(const std::string& text) {
  return WriteOut(text) ? kDone : kOutputFailed;
}

Verb Completion() {
  const auto options = std::make_shared<ShellOptions>();
  Verb verb = MakeVerb(
      "completion", "Print a completion script for powershell, bash or zsh", kCompletionFooter, options,
      +[](const ShellOptions& chosen) { return Print(CompletionScript(chosen.shell)); });
  verb.Add(
      {Choice("SHELL", {"powershell", "bash", "zsh"}, options->shell, "powershell, bash or zsh").Required()});
  return verb;
}

Verb Man() {
  Verb verb;
  verb.name = "man";
  verb.purpose = "Print the manual page, for man -l";
  verb.footer = kManFooter;
  verb.run = [] { return Print(MakeManPage(MakeProgram())); };
  return verb;
}

}  // namespace

std::vector<Verb> CompletionVerbs() {
  return {Completion(), Man()};
}

}  // namespace TamLogCtl
