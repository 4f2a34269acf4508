#pragma once

// What several verbs have in common, explained once: for `tamlogctl help TOPIC` and for the manual page.

#include <string>
#include <vector>

namespace TamLogCtl {

struct Topic {
  const char* name;   // "times"
  const char* title;  // of the section in the manual page
  const char* text;   // paragraphs; lines that begin with a space are laid out as they are
};

const std::vector<Topic>& Topics();

// Returns the topic of this name; null for others.
const Topic* FindTopic(const std::string& name);

}  // namespace TamLogCtl
