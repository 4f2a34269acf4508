#include <CLI/CLI.hpp>
#include <memory>

#include "tamlogctl/base/choice_option.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/commands/command_line.h"
#include "tamlogctl/commands/completion.h"
#include "tamlogctl/commands/man_page.h"
#include "tamlogctl/commands/verb_tree.h"

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

Action Print(const std::string& text) {
  return [text] { return WriteOut(text) ? kDone : kOutputFailed; };
}

}  // namespace

void DefineCompletionVerbs(CLI::App& app, Action& chosen) {
  const auto shell = std::make_shared<Shell>();
  CLI::App* completion =
      app.add_subcommand("completion", "Print a script that lets powershell, bash or zsh complete");
  completion->footer(kCompletionFooter);
  DefineChoice(*completion, "SHELL", *shell, "powershell, bash or zsh",
               {{"powershell", Shell::PowerShell}, {"bash", Shell::Bash}, {"zsh", Shell::Zsh}})
      ->required();
  completion->callback(
      [&app, shell, &chosen] { chosen = Print(MakeCompletion(*shell, DescribeVerbs(app))); });

  CLI::App* man = app.add_subcommand("man", "Print the manual page, for man -l");
  man->footer(kManFooter);
  man->callback([&app, &chosen] { chosen = Print(MakeManPage(DescribeVerbs(app))); });
}

}  // namespace TamLogCtl
