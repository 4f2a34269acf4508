#include <sys/wait.h>

#include <cstdlib>

#include "tests/support/files.h"
#include "tests/support/program.h"

namespace TestSupport {

Outcome RunIn(const std::string& folder, const std::string& commandLine, const std::string& input) {
  WriteBytes(folder + "/in", input);
  const std::string line = "cd '" + folder + "' && { " + commandLine + "; } >out 2>err <in";
  const int status = std::system(line.c_str());
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, ReadBytes(folder + "/out"),
          ReadBytes(folder + "/err")};
}

}  // namespace TestSupport
