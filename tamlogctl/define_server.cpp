#include <CLI/CLI.hpp>
#include <memory>

#include "tamlogctl/command_line.h"
#include "tamlogctl/status.h"

namespace TamLogCtl {

namespace {

constexpr const char* kStatusFooter =
    R"(Exit code 0 when the server answers and shares its log, 3 when it is not running, 5 when only one of the
two works.

Examples:
  tamlogctl status                            for people
  tamlogctl status -o json                    for programs
  tamlogctl status >nul && echo running       for scripts)";

void DefineStatus(CLI::App& app, Action& chosen) {
  const auto options = std::make_shared<StatusOptions>();
  CLI::App* verb =
      app.add_subcommand("status", "Show whether the server runs, its settings and how full the log is");
  verb->footer(kStatusFooter);
  verb->add_option_function<std::string>(
          "-o,--output", [options](const std::string& format) { options->json = format == "json"; },
          "Format: text or json")
      ->check(CLI::IsMember({"text", "json"}))
      ->option_text("text|json");
  DefineCommonOptions(*verb, *options);
  verb->callback([options, &chosen] { chosen = [options] { return ShowStatus(*options); }; });
}

}  // namespace

void DefineServerVerbs(CLI::App& app, Action& chosen) {
  DefineStatus(app, chosen);
}

}  // namespace TamLogCtl
