#pragma once

// Filters as text: for people, and in the two formats that `filter set` reads.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "client/message/filter_rule.h"
#include "records/pipe_protocol.h"

namespace TamLogCtl {

using TamLogClient::FilterEntry;

inline constexpr std::size_t kLongestFilter = kFilterTextSize - 1;  // bytes

// Returns the rule that the whole list makes, in one sentence.
std::string FilterRuleText(const std::vector<FilterEntry>& filters);

// Returns the rule, then one line for each filter, numbered from 1. Filters that have no effect, or match
// more than their author may expect, have a remark.
std::string FiltersAsText(const std::vector<FilterEntry>& filters);

// Returns one line for each filter: include or exclude, a tab, the text. Tabs, line ends, backslashes and
// control characters of the text are escaped.
std::string FiltersAsTsv(const std::vector<FilterEntry>& filters);

// Returns an array of {"kind","text"}. A text that is not valid UTF-8 also has its bytes in "text_hex".
std::string FiltersAsJson(const std::vector<FilterEntry>& filters);

// Parses either format; the first character decides which. Returns nothing, with the reason in `problem`, for
// anything else.
std::optional<std::vector<FilterEntry>> ParseFilters(std::string_view text, std::string& problem);

// Returns why the filter cannot be stored; empty when it can.
std::string FilterProblem(const FilterEntry& filter);

// Removes from `filters` those that are in `present` or come a second time. Filters are the same when they
// have the same kind and the same text without regard to case, which the server does not distinguish. Returns
// the removed ones.
std::vector<FilterEntry> RemoveKnown(const std::vector<FilterEntry>& present,
                                     std::vector<FilterEntry>& filters);

// Returns the text with control characters as escapes, in quotes where it would be overlooked: empty, or with
// spaces at an end.
std::string FilterForShow(const FilterEntry& filter);

// Returns a remark about a filter that matches more than its author may expect; otherwise empty.
std::string FilterRemark(const FilterEntry& filter);

// Returns the rule that decides about a message of this type, for example "dropped by exclude filter 'Camera'
// (1)".
std::string VerdictText(const std::vector<FilterEntry>& filters, const TamLogClient::FilterVerdict& verdict,
                        std::uint32_t type);

}  // namespace TamLogCtl
