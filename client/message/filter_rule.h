#pragma once

// The server's decision which messages it keeps, reproduced: whoever wants to know beforehand what becomes of
// a message asks here instead of sending one. docs/pipe_protocol.md ("Filters") states the rule.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace TamLogClient {

struct FilterEntry {
  std::string text;
  bool include = false;
};

// What decided about a message.
enum class FilterReason : std::uint8_t {
  NoSuchType,     // dropped: the type is 4 or more
  TypeOff,        // dropped: the type is switched off in the settings
  Included,       // kept: an include filter matches
  NotIncluded,    // dropped: there are include filters and none matches
  Excluded,       // dropped: an exclude filter matches
  NothingAgainst  // kept: there is no include filter, and no exclude filter matches
};

struct FilterVerdict {
  bool kept = true;
  FilterReason reason = FilterReason::NothingAgainst;
  std::size_t index = 0;  // of the deciding filter, for Included and Excluded: the first that matches
};

// Without regard to the case of A to Z, the shorter of the two is the beginning of the longer one. So an
// empty filter, and an empty source, match everything.
bool FilterMatches(std::string_view filter, std::string_view source);

// `typeMask` has bit i set when messages of type i are kept, as in the server's settings. While there are
// include filters, exclude filters are not looked at.
FilterVerdict JudgeMessage(const std::vector<FilterEntry>& filters, std::uint32_t typeMask,
                           std::string_view source, std::uint32_t type);

// No message can pass, whatever its source and type.
bool NothingPasses(const std::vector<FilterEntry>& filters, std::uint32_t typeMask);

}  // namespace TamLogClient
