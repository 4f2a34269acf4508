#pragma once

// What the server's process uses, looked at from outside.

#include <cstddef>
#include <cstdint>

struct ServerFigures {
  std::size_t handles = 0;
  std::size_t threads = 0;
  std::size_t memoryMiB = 0;  // resident
};

// Throws std::runtime_error when the system does not answer, or there is no such process.
ServerFigures FiguresOf(std::uint32_t processId);
