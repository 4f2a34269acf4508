#pragma once

// One open key of the registry of the local machine, with the operations that the configuration needs.
//
// A failed read throws ExceptionWindows with the registry call's result as its error code. Failures of writes
// and deletions are ignored on purpose: a setting that cannot be stored must not stop the server. Used by one
// thread.

#include <cstdint>
#include <optional>
#include <string>

class RegistryKey {
 public:
  // Text values are read into a buffer of this many bytes; longer ones cannot be read.
  static constexpr std::uint32_t kTextBufferSize = 256;
  // Value names are read into a buffer of this many characters, the terminating zero included.
  static constexpr std::uint32_t kNameBufferSize = 64;

  // Opens HKEY_LOCAL_MACHINE\path, or creates it, for reading and writing. "RegCreateKeyEx() failed".
  explicit RegistryKey(const std::string& path);
  // Does the same for a key below `parent`, which may be destroyed before this one.
  RegistryKey(const RegistryKey& parent, const std::string& name);
  ~RegistryKey();
  RegistryKey(const RegistryKey&) = delete;
  RegistryKey& operator=(const RegistryKey&) = delete;

  // Returns the value; a missing one is first written with `defaultValue`. The registry type of an existing
  // value does not matter, but its data must fit (4 bytes; kTextBufferSize). "ReadData() failed".
  std::uint32_t ReadNumber(const std::string& name, std::uint32_t defaultValue);
  // Does the same for a text: the data up to their first zero byte.
  std::string ReadText(const std::string& name, const std::string& defaultValue);

  void WriteNumber(const std::string& name, std::uint32_t value);
  void WriteText(const std::string& name, const std::string& value);
  void DeleteSubkey(const std::string& name);

  // Returns the data of the next value, up to their first zero byte, in the order in which the system lists
  // values. Returns nothing after the last value; the next call starts again from the first. Also returns
  // nothing at a value whose name or data cannot be read, which hides the values after it: values made by
  // hand with names of 64 characters and more are tolerated that way.
  std::optional<std::string> NextValue();

 private:
  static void* Open(void* parent, const std::string& name);

  void* key;
  std::uint32_t nextIndex = 0;
};
