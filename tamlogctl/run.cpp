#include "tamlogctl/run.h"

#include <exception>
#include <utility>

#include "tamlogctl/command_line.h"
#include "tamlogctl/console.h"
#include "tamlogctl/exit_code.h"
#include "tamlogctl/verbs.h"

namespace TamLogCtl {

namespace {

int RunVerb(const Options& options) {
  switch (options.verb) {
    case Verb::Show:
      return options.show.files.empty() ? ShowLive(options) : ShowFiles(options);
    case Verb::Send:
      return Send(options);
    case Verb::Status:
      return ShowStatus(options);
    case Verb::Nothing:
      break;
  }
  return kUsage;
}

}  // namespace

int Run(std::vector<std::string> arguments) {
  try {
    int exitCode = kDone;
    const auto options = ParseCommandLine(std::move(arguments), exitCode);
    return options ? RunVerb(*options) : exitCode;
  } catch (const std::exception& error) {
    Say(std::string("failed: ") + error.what());
    return kOutputFailed;
  }
}

}  // namespace TamLogCtl
