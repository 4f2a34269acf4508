// Measures the cost of a message in spdlog's file sink: the same messages by source, level and text, with a
// flush after every 2,000. Built for Linux and for Windows (bench/append.py).
//
//   spdlog_bench FILE
//
// Measurement: "append", in nanoseconds per message.

#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <spdlog/logger.h>
#include <spdlog/sinks/basic_file_sink.h>

#include "bench/messages.h"
#include "bench/turns.h"

namespace {

constexpr std::size_t kBatch = 2000;
constexpr std::size_t kMeasured = 20000;

// One logger for each source, as programs usually have them, all writing into one file without a lock.
class Loggers {
 public:
  explicit Loggers(const std::string& path)
      : sink(std::make_shared<spdlog::sinks::basic_file_sink_st>(path, true)) {}

  spdlog::logger& Of(const char* source) {
    std::unique_ptr<spdlog::logger>& logger = loggers[source];
    if (logger == nullptr) logger = std::make_unique<spdlog::logger>(source, sink);
    return *logger;
  }
  void Flush() { sink->flush(); }

 private:
  std::shared_ptr<spdlog::sinks::basic_file_sink_st> sink;
  std::map<std::string, std::unique_ptr<spdlog::logger>> loggers;
};

double Append(const std::string& path) {
  Bench::Messages messages(1);
  const std::vector<LogMessageBody> bodies = Bench::NextOf(messages, kMeasured);
  Loggers loggers(path);
  std::vector<spdlog::logger*> by;
  by.reserve(kMeasured);
  for (const LogMessageBody& body : bodies) by.push_back(&loggers.Of(body.source));
  return Bench::Nanoseconds([&] {
           for (std::size_t i = 0; i < kMeasured; ++i) {
             by[i]->log(static_cast<spdlog::level::level_enum>(2 + bodies[i].type % 3),
                        spdlog::string_view_t(bodies[i].text));
             if (i % kBatch == kBatch - 1) loggers.Flush();
           }
         }) /
         kMeasured;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    Bench::Fail("usage: spdlog_bench FILE");
  }
  const std::string path = argv[1];
  return Bench::TakeTurns({{"append", [&] { return Append(path); }}});
}
