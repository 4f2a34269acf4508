#pragma once

// Options that every verb has. Options are plain data: nothing here knows how they were parsed.

#include <cstdint>

namespace TamLogCtl {

enum class Color : std::uint8_t { Auto, Always, Never };

struct CommonOptions {
  Color color = Color::Auto;
  std::uint32_t timeoutMs = 5000;  // how long to wait for the server
};

}  // namespace TamLogCtl
