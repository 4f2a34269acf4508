#pragma once

// The verb filter: shows and changes which sources the server keeps.

#include <cstdint>
#include <string>
#include <vector>

#include "client/message/filter_rule.h"
#include "tamlogctl/base/common_options.h"

namespace TamLogCtl {

enum class ListFormat : std::uint8_t { Text, Tsv, Json };

struct FilterOptions : CommonOptions {
  ListFormat format = ListFormat::Text;
  std::vector<TamLogClient::FilterEntry> entries;  // of add and remove
  bool allowEmpty = false;                         // of add and set: a text that matches every source
  std::vector<std::uint32_t> numbers;              // of remove: the numbers that list shows
  std::string file;                                // of set; "-" is standard input
  std::string source;                              // of test
  std::uint32_t type = 0;                          // of test
  bool typeGiven = false;
};

// Each returns the exit code, and explains a failure on stderr.
int ListFilters(const FilterOptions& options);
int AddFilters(const FilterOptions& options);
int RemoveFilters(const FilterOptions& options);
int ClearFilters(const FilterOptions& options);
int SetFilters(const FilterOptions& options);
// Tests a message. Exit code 0: the server would keep it; 1: it would drop it.
int TestFilters(const FilterOptions& options);

}  // namespace TamLogCtl
