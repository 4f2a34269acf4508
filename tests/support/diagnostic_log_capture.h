#pragma once

// Captures the diagnostic log's entries during its lifetime.
//
//   DiagnosticLogCapture log;
//   ...
//   EXPECT_EQ(log.Texts(), std::vector<std::string>{"Aborting"});
//
// Only one instance may exist at a time. Entries may come from any thread; Texts may be called at any time.

#include <mutex>
#include <ostream>
#include <streambuf>
#include <string>
#include <utility>
#include <vector>

#include "util/diagnostic_log.h"

namespace TestSupport {

class DiagnosticLogCapture {
 public:
  DiagnosticLogCapture() : stream(&entries) { TamLogUtil::SetLogStream(&stream); }
  // Entries go to the file again, if one is set.
  ~DiagnosticLogCapture() { TamLogUtil::SetLogStream(nullptr); }
  DiagnosticLogCapture(const DiagnosticLogCapture&) = delete;
  DiagnosticLogCapture& operator=(const DiagnosticLogCapture&) = delete;

  // Returns the texts written so far, without the time line and the " - ".
  std::vector<std::string> Texts() const { return entries.Texts(); }
  std::size_t Count() const { return entries.Texts().size(); }
  void Clear() { entries.Clear(); }

 private:
  // Every flush ends an entry.
  class Entries : public std::streambuf {
   public:
    std::vector<std::string> Texts() const {
      const std::lock_guard<std::mutex> guard(lock);
      return texts;
    }
    void Clear() {
      const std::lock_guard<std::mutex> guard(lock);
      texts.clear();
    }

   protected:
    std::streamsize xsputn(const char* data, std::streamsize size) override {
      const std::lock_guard<std::mutex> guard(lock);
      current.append(data, static_cast<std::size_t>(size));
      return size;
    }
    int_type overflow(int_type byte) override {
      const std::lock_guard<std::mutex> guard(lock);
      if (!traits_type::eq_int_type(byte, traits_type::eof())) current += traits_type::to_char_type(byte);
      return traits_type::not_eof(byte);
    }
    int sync() override {
      const std::lock_guard<std::mutex> guard(lock);
      texts.push_back(TextOf(std::exchange(current, {})));
      return 0;
    }

   private:
    static std::string TextOf(const std::string& entry) {
      const std::string separator = "\n - ";
      const std::size_t start = entry.find(separator);
      if (start == std::string::npos || entry.back() != '\n') return "not an entry: " + entry;
      const std::size_t begin = start + separator.size();
      return entry.substr(begin, entry.size() - 1 - begin);
    }

    mutable std::mutex lock;
    std::string current;
    std::vector<std::string> texts;
  };

  Entries entries;
  std::ostream stream;
};

}  // namespace TestSupport
