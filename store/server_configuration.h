#pragma once

// The server's settings in memory: loaded from the registry at every start and written back at every stop
// (server/configuration.h), changed in between by pipe requests, read by the log file's writer.
//
// Every field is read and written only under ServerService's configLock. The numbers mean nothing before the
// first load.

#include <cstdint>
#include <string>

#include "store/source_filters.h"

struct ServerConfiguration {
  std::uint32_t maxMessage = 0;           // capacity of the log file in effect since the last start
  std::uint32_t devicePollRate = 0;       // milliseconds between two polls of the driver
  SourceFilters includeFilters;           // when not empty, a message's source has to match one
  SourceFilters excludeFilters;           // otherwise its source may match none
  bool typeFilter[4] = {};                // whether messages of type 0, 1, 2, 3 are kept
  std::uint32_t saveRate = 0;             // seconds between two flushes of the file to disk
  std::string logFile;                    // full path of the shared log file
  std::uint32_t requestedMaxMessage = 0;  // requested capacity; in effect from the next start
};
