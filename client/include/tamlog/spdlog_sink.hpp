#pragma once

// A sink of spdlog that sends its messages to the log server:
//
//   tamlog::Sender sender;
//   auto logger = std::make_shared<spdlog::logger>("Stage", std::make_shared<tamlog::SpdlogSink>(sender));
//   logger->warn("axis {} is slow", axis);
//
// The logger's name becomes the source, and its level the type: 0 for trace and debug, 1 for info, 2 for
// warn, 3 for higher levels, or what `typeOfLevel` returns. The time is that of the call. The sink's pattern
// is the plain text
// ("%v"), because the log has fields for time, source and type. The sender's counters show what it did not
// accept; flush waits for `flushMs` at most.
//
// Any number of threads may use the sink. The sender has to live longer than the logger. Needs spdlog 1.10 or
// later.

#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/sink.h>

#include <chrono>
#include <ctime>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <tamlog.hpp>
#include <utility>

namespace tamlog {

struct SpdlogSinkOptions {
  std::uint32_t flushMs = 1000;    // how long flush waits at most
  std::string unnamed = "spdlog";  // the source of a logger without a name
  std::function<std::uint32_t(spdlog::level::level_enum)> typeOfLevel;  // empty: the types above
};

class SpdlogSink : public spdlog::sinks::sink {
 public:
  explicit SpdlogSink(Sender& target, SpdlogSinkOptions chosen = {})
      : sender(&target), options(std::move(chosen)), formatter(Plain("%v")) {}

  void log(const spdlog::details::log_msg& message) override {
    spdlog::memory_buf_t text;
    {
      const std::lock_guard<std::mutex> guard(lock);
      formatter->format(message, text);
    }
    const std::string_view name(message.logger_name.data(), message.logger_name.size());
    sender->TrySubmit({.type = TypeOf(message.level),
                       .source = name.empty() ? std::string_view(options.unnamed) : name,
                       .text = std::string_view(text.data(), text.size()),
                       .time = LocalTime(message.time)});
  }

  void flush() override { sender->Flush(options.flushMs); }
  void set_pattern(const std::string& pattern) override { set_formatter(Plain(pattern)); }
  void set_formatter(std::unique_ptr<spdlog::formatter> chosen) override {
    const std::lock_guard<std::mutex> guard(lock);
    formatter = std::move(chosen);
  }

 private:
  // Adds no line end: each message of the log is a line.
  static std::unique_ptr<spdlog::formatter> Plain(const std::string& pattern) {
    return std::make_unique<spdlog::pattern_formatter>(pattern, spdlog::pattern_time_type::local, "");
  }

  std::uint32_t TypeOf(spdlog::level::level_enum level) const {
    if (options.typeOfLevel) return options.typeOfLevel(level);
    if (level <= spdlog::level::debug) return 0;
    if (level == spdlog::level::info) return 1;
    return level == spdlog::level::warn ? 2 : 3;
  }

  static Time LocalTime(spdlog::log_clock::time_point point) {
    using std::chrono::milliseconds;
    const auto sinceEpoch = std::chrono::floor<milliseconds>(point.time_since_epoch());
    const std::tm parts = spdlog::details::os::localtime(spdlog::log_clock::to_time_t(point));
    const auto word = [](auto value) { return static_cast<std::int16_t>(value); };
    return {word(parts.tm_year + 1900),
            word(parts.tm_mon + 1),
            word(parts.tm_mday),
            word(parts.tm_hour),
            word(parts.tm_min),
            word(parts.tm_sec),
            word((sinceEpoch % std::chrono::seconds(1)).count()),
            0};
  }

  Sender* sender;
  SpdlogSinkOptions options;
  std::mutex lock;  // guards `formatter`, which is not thread-safe
  std::unique_ptr<spdlog::formatter> formatter;
};

}  // namespace tamlog
