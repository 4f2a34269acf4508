#pragma once

// An access list as data, and the rights that it grants to an account with its groups.

#include <cstdint>
#include <string>
#include <vector>

namespace TamLogCtl {

struct AccessEntry {
  bool allow = true;
  bool inheritOnly = false;  // for objects below this one; says nothing about the object itself
  std::uint32_t mask = 0;
  std::string sid;  // "S-1-1-0"
};

inline constexpr char kEveryoneSid[] = "S-1-1-0";

// The account of the service and its groups.
const std::vector<std::string>& LocalSystemSids();

// Returns the rights that the list grants to an account whose own and whose groups' identifiers are `sids`.
// The entries count in their order: an earlier one decides about its rights.
std::uint32_t GrantedTo(const std::vector<AccessEntry>& entries, const std::vector<std::string>& sids);

}  // namespace TamLogCtl
