#pragma once

// The system calls of RegistryKey on the registry of the local machine, one function each. Results are the
// system's error codes, 0 for success. None throws.

#include <cstdint>

namespace RegistryCalls {

inline constexpr std::uint32_t kNotFound = 2;
inline constexpr std::uint32_t kNoMoreValues = 259;

// Opens a key for reading and writing, or creates it; `parent` null: below the root of the local machine.
std::uint32_t OpenOrCreate(void* parent, const char* name, void*& opened);
void Close(void* key);
void DeleteSubkey(void* key, const char* name);

// Copies the value's data, of any type, to `data` of `size` bytes. Data that do not fit are an error. The
// system does not terminate a text that was stored without a zero.
std::uint32_t Query(void* key, const char* name, void* data, std::uint32_t size);
// Returns the name of value number `index`, terminated, in a buffer of `nameSize` characters, and the size of
// its data in bytes.
std::uint32_t Enumerate(void* key, std::uint32_t index, char* name, std::uint32_t nameSize,
                        std::uint32_t& dataSize);

void SetNumber(void* key, const char* name, std::uint32_t value);
// Stores a text; `size` counts the terminating zero.
void SetText(void* key, const char* name, const char* text, std::uint32_t size);

}  // namespace RegistryCalls
