#include "tamlogctl/run.h"

#include <exception>
#include <utility>

#include "tamlogctl/command_line.h"
#include "tamlogctl/console.h"
#include "tamlogctl/exit_code.h"

namespace TamLogCtl {

int Run(std::vector<std::string> arguments) {
  try {
    int exitCode = kDone;
    const auto action = ParseCommandLine(std::move(arguments), exitCode);
    return action ? (*action)() : exitCode;
  } catch (const std::exception& error) {
    Say(std::string("failed: ") + error.what());
    return kOutputFailed;
  }
}

}  // namespace TamLogCtl
