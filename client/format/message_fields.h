#pragma once

// The fields of a message by the names that users type, and the names that users assign to the four types.

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "records/log_file_format.h"

namespace TamLogClient {

enum class Field : std::uint8_t { Time, Seq, Type, Label, Source, Text, Origin, Tail, Spare, Late, Cursor };

std::optional<Field> FieldFromName(std::string_view name);
std::string_view NameOf(Field field);

inline constexpr std::string_view kFieldNames =
    "time, seq, type, label, source, text, origin, tail, spare, late, cursor";

// Parses names separated by commas. Returns nothing on failure; `problem` then states the fault and the
// expected form.
std::optional<std::vector<Field>> ParseFields(std::string_view list, std::string& problem);

// Returns 0 (emergency) to 7 (debug) for the name of a syslog severity or a common other spelling of one, in
// any case.
std::optional<int> SeverityOf(std::string_view name);

// The names of the types. The log gives types no meaning: without names they are T0 to T3.
class TypeNames {
 public:
  // Parses "0=info,1=warn". Types that are left out keep T and their number. Fails as ParseFields does.
  static std::optional<TypeNames> Parse(std::string_view list, std::string& problem);

  // Returns whether at least one type has a name from the user.
  bool Given() const { return given; }

  // Appends the type's name; for a type that does not exist, T and its number.
  void Append(std::uint32_t type, std::string& out) const;

  // Returns 0 (emergency) to 7 (debug) when the type's name is a syslog severity or a common other spelling
  // of one.
  std::optional<int> Severity(std::uint32_t type) const;

 private:
  struct Type {
    std::string name;
    std::optional<int> severity;
  };

  bool given = false;
  std::array<Type, kMessageTypes> types{{{"T0", {}}, {"T1", {}}, {"T2", {}}, {"T3", {}}}};
};

}  // namespace TamLogClient
