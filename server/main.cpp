// The entry point. The manager may end the process as soon as "stopped" is reported, so nothing relies on the
// exit hook.

#include <cstdlib>

#include "server/program.h"

int main(int argc, char** argv) {
  static_cast<void>(std::atexit(DeleteServiceObject));
  return RunProgram(argc, argv);
}
