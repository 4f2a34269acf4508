#pragma once

// All checks. Each has a name that never changes, a promise, and a function that tries it.
//
// docs/windows.md says on what each promise rests.

#include <string>
#include <vector>

#include "check/report.h"
#include "check/session.h"

namespace TamLogCheck {

enum class Needs : std::uint8_t {
  Nothing,
  Server,   // a session that is prepared
  Minutes,  // the same, and more than half a minute
  Person,   // to be tried by a person; `run` is null, and `reason` says why or how
};

struct Check {
  const char* name;
  const char* promise;
  Needs needs;
  Verdict (*run)(Session&);
  const char* reason = "";
};

const std::vector<Check>& ChecksOfTheSystem();
const std::vector<Check>& ChecksOfTheService();
const std::vector<Check>& ChecksOfAccess();
const std::vector<Check>& ChecksOfTheLog();
const std::vector<Check>& ChecksByAPerson();

// Returns all of them, in the order in which they run.
std::vector<Check> AllChecks();

inline Verdict Holds(Values values = {}) {
  return {Outcome::Holds, "", std::move(values)};
}

inline Verdict Differs(const std::string& seen, Values values = {}) {
  return {Outcome::Differs, seen, std::move(values)};
}

inline Verdict NotTried(const std::string& reason, Values values = {}) {
  return {Outcome::NotTried, reason, std::move(values)};
}

// Returns Holds, or Differs with what was seen instead.
inline Verdict HoldsIf(bool holds, const std::string& otherwise, Values values = {}) {
  return holds ? Holds(std::move(values)) : Differs(otherwise, std::move(values));
}

}  // namespace TamLogCheck
