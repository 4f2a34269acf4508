#pragma once

// Lists of filters as text: for people, and in the two forms that `filter set` reads back.

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "client/message/filter_rule.h"
#include "records/pipe_protocol.h"

namespace TamLogCtl {

using TamLogClient::FilterEntry;

inline constexpr std::size_t kLongestFilter = kFilterTextSize - 1;  // bytes

// What the whole list means, in one sentence.
std::string FilterRuleText(const std::vector<FilterEntry>& filters);

// Numbered from 1, with the rule above it and a remark beside entries that have no effect or too much.
std::string FiltersAsText(const std::vector<FilterEntry>& filters);

// One a line: include or exclude, a tab, the text (tab, line end, backslash and control characters escaped).
std::string FiltersAsTsv(const std::vector<FilterEntry>& filters);

// An array of {"kind","text"}; a text that is not UTF-8 has its bytes in "text_hex" as well.
std::string FiltersAsJson(const std::vector<FilterEntry>& filters);

// Reads either form; which one is told by the first character. Nothing, and `problem`, for anything else.
std::optional<std::vector<FilterEntry>> ParseFilters(std::string_view text, std::string& problem);

// Why an entry cannot be stored; empty when it can.
std::string FilterProblem(const FilterEntry& filter);

// A remark about an entry that matches more than its author may think; empty when there is none.
std::string FilterRemark(const FilterEntry& filter);

}  // namespace TamLogCtl
