#include "store/message_filter.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "util/helpers.h"

namespace {

std::string_view SourceOf(const LogMessageBody& body) {
  const char* const end = std::find(std::begin(body.source), std::end(body.source), '\0');
  return {std::begin(body.source), end};
}

}  // namespace

bool IsMessageKept(const ServerConfiguration& configuration, const LogMessageBody& body) {
  if (body.type >= kMessageTypes || !configuration.typeFilter[body.type]) return false;
  const std::string_view source = SourceOf(body);
  if (!configuration.includeFilters.empty()) {
    return TamLogUtil::MatchesAnyPrefix(source, configuration.includeFilters);
  }
  return !TamLogUtil::MatchesAnyPrefix(source, configuration.excludeFilters);
}
