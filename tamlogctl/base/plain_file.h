#pragma once

// Log files as users name them: plain ones, ones compressed by gzip or xz, pipes, and "-" for standard input.
// The client library reads plain files; the others are decompressed or copied into a scratch file first, once
// in a run.
//
//   const PlainFile& file = PlainFileOf(path);
//   if (!file.Readable()) return file.exitCode;
//   ... ReadLogFile(file.path) ...
//   exitCode = WorseOf(exitCode, file.exitCode);
//
// Use it from one thread.

#include <cstdint>
#include <string>

#include "tamlogctl/base/exit_code.h"

namespace TamLogCtl {

struct PlainFile {
  std::string path;  // of the plain contents (UTF-8); empty when there are none
  int exitCode =
      kDone;  // kDamaged: compressed data were damaged, and `path` has what comes before the damage

  bool Readable() const { return !path.empty(); }
};

// Returns the plain contents of the file that the user named. Every failure has been reported on stderr; a
// plain file is not examined: the caller notices that it does not exist. The result is valid until the
// program ends.
const PlainFile& PlainFileOf(const std::string& name);

}  // namespace TamLogCtl
