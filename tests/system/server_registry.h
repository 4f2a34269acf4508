#pragma once

// Reads and writes the server's settings in the machine's registry from outside. Throws std::runtime_error
// when the registry refuses.

#include <cstdint>
#include <map>
#include <optional>
#include <string>

class ServerRegistry {
 public:
  // Deletes the whole key with the filters; does nothing when it does not exist.
  static void Delete();
  static bool Exists();
  static void Write(const std::string& value, std::uint32_t number);
  static void Write(const std::string& value, const std::string& text);
  static void WriteFilter(const std::string& value, const std::string& kindAndText);
  // Returns nothing when the value is missing or of another type.
  static std::optional<std::uint32_t> Number(const std::string& value);
  static std::optional<std::string> Text(const std::string& value);
  // Returns the names and data of the values of the filters' key; nothing when that key is missing.
  static std::optional<std::map<std::string, std::string>> Filters();
};
