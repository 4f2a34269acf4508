#pragma once

// The resources that the server's process uses, measured from outside.

#include <cstddef>
#include <cstdint>

struct ServerFigures {
  std::size_t handles = 0;
  std::size_t threads = 0;
  std::size_t memoryMiB = 0;  // resident
};

// Throws std::runtime_error when the system does not answer, or the process does not exist.
ServerFigures FiguresOf(std::uint32_t processId);
