#include "client/message/filter_rule.h"

#include <algorithm>

#include "client/message/utf8.h"
#include "records/log_file_format.h"

namespace TamLogClient {

namespace {

constexpr std::uint32_t kAllTypes = (1U << kMessageTypes) - 1;

bool HasInclude(const std::vector<FilterEntry>& filters) {
  return std::any_of(filters.begin(), filters.end(),
                     [](const FilterEntry& filter) { return filter.include; });
}

}  // namespace

bool FilterMatches(std::string_view filter, std::string_view source) {
  const std::size_t common = std::min(filter.size(), source.size());
  return std::equal(filter.begin(), filter.begin() + static_cast<std::ptrdiff_t>(common), source.begin(),
                    [](char left, char right) { return LowerCase(left) == LowerCase(right); });
}

FilterVerdict JudgeMessage(const std::vector<FilterEntry>& filters, std::uint32_t typeMask,
                           std::string_view source, std::uint32_t type) {
  if (type >= kMessageTypes) return {false, FilterReason::NoSuchType, 0};
  if (((typeMask >> type) & 1U) == 0) return {false, FilterReason::TypeOff, 0};
  const bool include = HasInclude(filters);
  for (std::size_t i = 0; i < filters.size(); ++i) {
    if (filters[i].include != include || !FilterMatches(filters[i].text, source)) continue;
    return {include, include ? FilterReason::Included : FilterReason::Excluded, i};
  }
  return {!include, include ? FilterReason::NotIncluded : FilterReason::NothingAgainst, 0};
}

bool NothingPasses(const std::vector<FilterEntry>& filters, std::uint32_t typeMask) {
  if ((typeMask & kAllTypes) == 0) return true;
  if (HasInclude(filters)) return false;
  return std::any_of(filters.begin(), filters.end(),
                     [](const FilterEntry& filter) { return filter.text.empty(); });
}

}  // namespace TamLogClient
