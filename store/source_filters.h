#pragma once

// A list of filter names that is matched against the source of every message. Names are folded to small
// letters once, when they are added, and stored so that one comparison of their first eight bytes rules most
// of them out. It also acts as a vector of the original names. It has no lock; see ServerConfiguration.

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include "records/log_file_format.h"

// A message's source with A to Z replaced by a to z; every other byte is kept. An unterminated source ends
// with its field.
class FoldedSource {
 public:
  explicit FoldedSource(const char (&source)[kTextSize]);

 private:
  friend class SourceFilters;

  char bytes[(kTextSize + 7) / 8 * 8];  // undefined from `length` on
  std::size_t length;
};

class SourceFilters {
 public:
  SourceFilters() = default;
  SourceFilters(std::initializer_list<std::string> list);

  void push_back(std::string name);
  void clear();

  bool empty() const { return names.empty(); }
  std::size_t size() const { return names.size(); }
  const std::string& operator[](std::size_t index) const { return names[index]; }
  auto begin() const { return names.begin(); }
  auto end() const { return names.end(); }

  // Returns whether the shorter of `source` and some name is a prefix of the longer one, ignoring letter
  // case. Symmetrical on purpose: an empty source or an empty name matches everything.
  bool MatchAny(const FoldedSource& source) const;

 private:
  // The first eight bytes of a name as a number; `mask` selects those that a shorter name has.
  struct Head {
    std::uint64_t bytes;
    std::uint64_t mask;
  };

  std::vector<std::string> names;
  std::vector<Head> heads;          // one for each name
  std::vector<std::string> folded;  // one for each name
};
