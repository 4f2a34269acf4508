#pragma once

// One open key of the registry of the local machine, with the few operations that the configuration needs.
//
// A read that fails throws ExceptionWindows with the registry call's result as its error code; the results of
// writes and deletions are ignored on purpose: a setting that cannot be kept must not stop the server. Used
// by one thread.

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
  // The same for a key below `parent`, which may be closed before this one.
  RegistryKey(const RegistryKey& parent, const std::string& name);
  ~RegistryKey();
  RegistryKey(const RegistryKey&) = delete;
  RegistryKey& operator=(const RegistryKey&) = delete;

  // A value that does not exist is written with `defaultValue`, which is then the result. The registry type
  // of an existing value does not matter, only that its data fit (4 bytes; kTextBufferSize). "ReadData()
  // failed".
  std::uint32_t ReadNumber(const std::string& name, std::uint32_t defaultValue);
  // The data up to their first zero byte.
  std::string ReadText(const std::string& name, const std::string& defaultValue);

  void WriteNumber(const std::string& name, std::uint32_t value);
  void WriteText(const std::string& name, const std::string& value);
  void DeleteSubkey(const std::string& name);

  // The data of the next value, up to their first zero byte, in the order in which the system lists values.
  // Nothing at the end of the values, and the next call starts again from the first. Nothing, too, at a value
  // whose name or data cannot be read: the walk ends there, and the values behind it are not seen. Hand-made
  // values with names of 64 characters and more are tolerated that way.
  std::optional<std::string> NextValue();

 private:
  static void* Open(void* parent, const std::string& name);

  void* key;
  std::uint32_t nextIndex = 0;
};
