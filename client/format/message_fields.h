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

enum class Field : std::uint8_t {
  Time,
  Seq,
  Type,
  Label,
  Source,
  Text,
  Origin,
  Tail,
  Spare,
  Late,
  Host,       // name of the machine that the message is from; empty when unknown
  SourceHex,  // all bytes of the source when they are not those of the source as written; otherwise empty
  TextHex,    // likewise of the text
  Cursor      // the message's identity as text (client/log/cursor.h)
};

std::optional<Field> FieldFromName(std::string_view name);
std::string_view NameOf(Field field);

inline constexpr std::string_view kFieldNames =
    "time, seq, type, label, source, text, origin, tail, spare, late, host, source_hex, text_hex, cursor";

// The columns of csv and tsv from which messages can be restored byte for byte. They begin with the columns
// that the format has without a choice of fields.
inline constexpr std::array<Field, 11> kExactCsvColumns{
    Field::Time,   Field::Seq,  Field::Type,  Field::Source,    Field::Text,   Field::Cursor,
    Field::Origin, Field::Tail, Field::Spare, Field::SourceHex, Field::TextHex};
inline constexpr std::array<Field, 10> kExactTsvColumns{
    Field::Time, Field::Type,  Field::Source,    Field::Text,    Field::Origin,
    Field::Tail, Field::Spare, Field::SourceHex, Field::TextHex, Field::Cursor};

// Parses names separated by commas, or "all" for every field. Returns nothing on failure; `problem` then
// states the fault and the expected form.
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
