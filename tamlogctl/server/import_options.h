#pragma once

// The options of the verbs that read files of other programs.

#include <optional>
#include <string>

#include "tamlogctl/base/common_options.h"
#include "tamlogctl/server/import_draft.h"

namespace TamLogCtl {

struct ReadingFilesOptions : CommonOptions {
  ImportChoice choice;
  std::string fields;     // names of columns
  std::string typeNames;  // empty: those of the environment
};

// Completes the choice from the texts of the options. Returns false after a line on stderr when one is wrong.
bool CompleteChoice(ReadingFilesOptions& options);

}  // namespace TamLogCtl
