#pragma once

// The log of foreign_server: the mapping of the log file without a file, and the three events. Messages are
// appended in the order in which they arrive, each one by a flush of its own. Not thread-safe.

#include <cstdint>
#include <functional>

#include "util/win32.h"

class ForeignLog {
 public:
  // `rule` returns whether to break the claim of a name.
  explicit ForeignLog(std::function<bool(const char*)> rule) : breaks(std::move(rule)) {}
  ~ForeignLog() { Close(); }
  ForeignLog(const ForeignLog&) = delete;
  ForeignLog& operator=(const ForeignLog&) = delete;

  void Open(std::uint32_t capacity);  // an empty log
  void Close();
  void Append(const char* body);  // TAMLOG_BODY_SIZE bytes; nothing while the log is closed
  void Clear();

 private:
  template <class Number>
  Number& At(std::size_t offset) const {
    return *reinterpret_cast<Number*>(bytes + offset);
  }
  HANDLE MakeEvent(const char* name, int lockName) const;
  void Changed();

  std::function<bool(const char*)> breaks;
  HANDLE mapping = nullptr;
  HANDLE headerLock = nullptr;
  HANDLE readWait = nullptr;
  HANDLE writeWait = nullptr;
  char* bytes = nullptr;
};
