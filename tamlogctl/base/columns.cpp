#include "tamlogctl/base/columns.h"

#define FMT_HEADER_ONLY
#include <fmt/format.h>

namespace TamLogCtl {

std::string Fixed(double value, int digits) {
  return fmt::format("{:.{}f}", value, digits);
}

std::string AlignedLeft(std::string_view text, std::size_t width) {
  return fmt::format("{:<{}}", text, width);
}

std::string AlignedRight(std::string_view text, std::size_t width) {
  return fmt::format("{:>{}}", text, width);
}

}  // namespace TamLogCtl
