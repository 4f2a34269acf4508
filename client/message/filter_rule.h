#pragma once

// Predicts which messages the server keeps, by the rule in docs/pipe_protocol.md ("Filters"), without sending
// one.
//
// The functions have no state and may be called from any thread.

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

// The rule that decided about a message.
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
  std::size_t index = 0;  // for Included and Excluded: of the first filter that matches
};

// Returns whether the shorter of the two is a prefix of the longer one, ignoring the case of A to Z (the
// server ignores code pages, too). So an empty filter matches everything, and so does an empty source.
bool FilterMatches(std::string_view filter, std::string_view source);

// Returns the server's decision about a message. `typeMask` has bit i set when messages of type i are kept,
// as in the server's settings. When there are include filters, exclude filters are ignored.
FilterVerdict JudgeMessage(const std::vector<FilterEntry>& filters, std::uint32_t typeMask,
                           std::string_view source, std::uint32_t type);

// Returns whether no message can pass, whatever its source and type.
bool NothingPasses(const std::vector<FilterEntry>& filters, std::uint32_t typeMask);

}  // namespace TamLogClient
