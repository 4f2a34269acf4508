#pragma once

// Completes a command line that is being typed. The scripts of all shells ask the program itself, so that
// they agree, and know the sources of a log.

#include <string>
#include <vector>

#include "tamlogctl/commands/verb.h"

namespace TamLogCtl {

// The first argument of the program when a shell asks; no user types it.
inline constexpr const char* kCompleteWord = "__complete";

struct Completions {
  std::vector<std::string> words;  // that continue the current one
  bool files = false;              // names of files are expected, after `prefix` in the current word
  std::string prefix;              // "--file="
};

// `typed` are the words before the current one, without the program's name; `current` is what was typed of
// the current one so far. The words are in UTF-8, without the quotes of the shell.
Completions Complete(const Verb& program, const std::vector<std::string>& typed, const std::string& current);

// Returns the completions as the scripts read them: a line "=WORD" for each, "/PREFIX" where files are
// expected. `arguments` follow kCompleteWord; each begins with =, which is not a part of the word (some
// shells drop empty arguments).
std::string CompletionLines(const Verb& program, const std::vector<std::string>& arguments);

}  // namespace TamLogCtl
