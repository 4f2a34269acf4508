#pragma once

// A list of names by which messages are told apart by their source, prepared for being asked at every
// message: folded to small letters once, when a name comes in, and laid out so that most names are ruled out
// by one comparison of their first eight bytes. Used like a vector of the names as they were given. Without a
// lock; ServerConfiguration says which one guards it.

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include "records/log_file_format.h"

// A message's source, folded to small letters: the letters A to Z only, every other byte is kept. Without a
// terminating zero it ends with its field.
class FoldedSource {
 public:
  explicit FoldedSource(const char (&source)[kTextSize]);

 private:
  friend class SourceFilters;

  char bytes[(kTextSize + 7) / 8 * 8];  // behind `length` anything
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

  // Whether, without regard to letter case, the shorter of `source` and some name is the beginning of the
  // longer one. Symmetrical on purpose, so an empty source or an empty name matches everything.
  bool MatchAny(const FoldedSource& source) const;

 private:
  // The first bytes of a name, as a number; behind its end zeros that `mask` leaves out.
  struct Head {
    std::uint64_t bytes;
    std::uint64_t mask;
  };

  std::vector<std::string> names;
  std::vector<Head> heads;          // one for each name
  std::vector<std::string> folded;  // one for each name
};
