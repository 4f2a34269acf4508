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

// Rights with which an account can make another program run: to change a file; to create or replace files in
// a directory; to replace a directory further up.
inline constexpr std::uint32_t kChangesObject =
    0x500D0000;  // delete, write list or owner, generic write and all
inline constexpr std::uint32_t kChangesFile = kChangesObject | 0x6;
inline constexpr std::uint32_t kFillsDirectory = kChangesObject | 0x42;
inline constexpr std::uint32_t kMovesDirectory = kChangesObject | 0x40;

// Returns the accounts to which the list grants any of `rights`, and the owner, who may change the list. The
// system, its installer, administrators and `trusted` are left out. Deny entries are ignored.
std::vector<std::string> OthersWith(std::uint32_t rights, const std::vector<AccessEntry>& entries,
                                    const std::string& owner, const std::string& trusted);

}  // namespace TamLogCtl
