#pragma once

// What the verbs do. Each returns the program's exit code and has said on stderr what went wrong.

#include "tamlogctl/options.h"

namespace TamLogCtl {

int ShowFiles(const Options& options);

// The verbs that need a running server.
int ShowLive(const Options& options);
int Send(const Options& options);
int ShowStatus(const Options& options);

}  // namespace TamLogCtl
