#pragma once

// Records that a process of the load leaves for the judge: plain records in a file, read back by the process
// that started it. Standard library only; throws std::runtime_error.

#include <cstddef>
#include <fstream>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

namespace Soak {

template <class Record>
void WriteJournal(const std::string& path, const std::vector<Record>& records) {
  static_assert(std::is_trivially_copyable_v<Record>);
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file.write(reinterpret_cast<const char*>(records.data()),
             static_cast<std::streamsize>(records.size() * sizeof(Record)));
  if (!file.flush()) throw std::runtime_error("writing the journal " + path + " failed");
}

template <class Record>
std::vector<Record> ReadJournal(const std::string& path) {
  static_assert(std::is_trivially_copyable_v<Record>);
  std::ifstream file(path, std::ios::binary | std::ios::ate);
  if (!file) throw std::runtime_error("the journal " + path + " cannot be opened");
  const auto size = static_cast<std::size_t>(file.tellg());
  if (size % sizeof(Record) != 0) throw std::runtime_error("the journal " + path + " has half a record");
  std::vector<Record> records(size / sizeof(Record));
  file.seekg(0);
  file.read(reinterpret_cast<char*>(records.data()), static_cast<std::streamsize>(size));
  if (!file) throw std::runtime_error("reading the journal " + path + " failed");
  return records;
}

}  // namespace Soak
