// Logs from several threads without waiting for the server, by plain calls and through a stream:
//   async_logging [MESSAGES]
// Works with and without a server. The counters at the end show the fate of the messages.

#include <charconv>
#include <iostream>
#include <string>
#include <string_view>
#include <system_error>
#include <tamlog.hpp>
#include <tamlog/ostream.hpp>
#include <thread>
#include <vector>

int main(int argc, char** argv) {
  int messages = 10;
  const std::string_view given = argc > 1 ? argv[1] : "";
  const auto [end, problem] = std::from_chars(given.data(), given.data() + given.size(), messages);
  if (argc > 2 ||
      (argc == 2 && (problem != std::errc() || end != given.data() + given.size() || messages < 0))) {
    std::cerr << "usage: async_logging [MESSAGES]\n";
    return 2;
  }
  try {
    auto options = tamlog::Make<tamlog_sender_options>();
    options.overflow = TAMLOG_OVERFLOW_DROP_OLDEST;
    tamlog::Sender sender(options);

    std::vector<std::thread> threads;
    for (int axis = 0; axis < 2; ++axis) {
      threads.emplace_back([&sender, axis, messages] {
        for (int i = 0; i < messages; ++i) {
          sender.Submit(
              {.type = 1, .source = "Example.Axis", .text = "axis " + std::to_string(axis) + " moves"});
        }
      });
    }
    for (auto& thread : threads) thread.join();

    tamlog::Stream log(sender, "Example.Stream", 2);
    log << "all " << messages << " moves of both axes are done" << std::endl;

    sender.Finish(3000);
    const auto counters = sender.Counters();
    std::cout << "submitted " << counters.submitted << ", sent " << counters.sent << ", dropped "
              << counters.dropped << ", refused " << counters.refused << ", doubtful " << counters.doubtful
              << std::endl;
  } catch (const tamlog::Error& error) {
    std::cerr << "async_logging: " << error.what() << '\n';
    return 1;
  }
}
