#include "store/message_filter.h"

#include "store/source_filters.h"

bool IsMessageKept(const ServerConfiguration& configuration, const LogMessageBody& body) {
  if (body.type >= kMessageTypes || !configuration.typeFilter[body.type]) return false;
  const bool including = !configuration.includeFilters.empty();
  if (!including && configuration.excludeFilters.empty()) return true;
  const FoldedSource source(body.source);
  return including ? configuration.includeFilters.MatchAny(source)
                   : !configuration.excludeFilters.MatchAny(source);
}
