#pragma once

// Formats messages for output. Every format except cat, csv, export and raw writes one line a message,
// whatever its texts contain; the data formats (json, json-array, csv, tsv, rfc5424) are valid UTF-8 whatever
// the bytes of a message are.

#include <string>
#include <string_view>
#include <utility>

#include "client/format/format_options.h"
#include "client/log/cursor.h"
#include "records/log_file_format.h"

namespace TamLogClient {

// Serves one stream of output, from its head to its tail, and belongs to one thread.
class MessageFormatter {
 public:
  explicit MessageFormatter(FormatOptions chosen) : options(std::move(chosen)) {}

  // Returns whether the output contains the messages' cursors, so that Append needs their numbers.
  bool ShowsCursors() const;

  // Appends what comes before the first message: csv has a line of column names, json-array a bracket, the
  // others nothing.
  void AppendHead(std::string& out) const;

  // Appends one message and its line end. `late`: it came after a message with a later time. Short, full,
  // json, json-array, export and rfc5424 show this always, the others when the user selects the field.
  // `twin`: its number among equal messages of its log, for its cursor (client/log/cursor.h). `host` names
  // the machine that the message is from; a format without a place for it (see CarriesHost) leaves it out.
  void Append(const LogMessage& message, bool late, std::string& out, std::uint32_t twin = 1,
              std::string_view host = {});

  // Returns whether the output has a field for the name of a message's machine.
  bool CarriesHost() const;

  // Appends what comes after the last message, also when there was none: json-array has a bracket.
  void AppendTail(std::string& out) const;

 private:
  // Returns whether the user selected the field, among the fields or in the template.
  bool Selects(Field field) const;

  FormatOptions options;
  bool begun = false;  // a message was written
};

}  // namespace TamLogClient
