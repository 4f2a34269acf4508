#include "tamlogctl/commands/run.h"

#include <exception>
#include <utility>

#include "tamlogctl/base/console.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/commands/command_line.h"

namespace TamLogCtl {

int Run(std::vector<std::string> arguments) {
  try {
    int exitCode = kDone;
    const auto action = ParseCommandLine(std::move(arguments), exitCode);
    return action ? (*action)() : exitCode;
  } catch (const std::exception& error) {
    return Refuse(kOutputFailed, std::string("failed: ") + error.what());
  }
}

}  // namespace TamLogCtl
