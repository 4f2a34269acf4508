#pragma once

// The output of stats: tables for people, or one JSON object for programs.

#include <string>

#include "client/format/message_formatter.h"
#include "tamlogctl/read/stats.h"

namespace TamLogCtl {

// `shown` holds the names of the types and the encoding of names.
std::string StatsText(const StatsOptions& options, const StatsCollector& collector,
                      const TamLogClient::FormatOptions& shown);
std::string StatsJson(const StatsCollector& collector, const TamLogClient::FormatOptions& shown);

}  // namespace TamLogCtl
