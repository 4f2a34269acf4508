// Fuzzes the reading of cursors: a cursor that can be read is written back unchanged.

#include "client/log/cursor.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto cursor = TamLogClient::ParseCursor(std::string_view(reinterpret_cast<const char*>(data), size));
  if (!cursor) return 0;
  const std::string text = TamLogClient::FormatCursor(*cursor);
  const auto again = TamLogClient::ParseCursor(text);
  if (!again || TamLogClient::FormatCursor(*again) != text) std::abort();
  return 0;
}
