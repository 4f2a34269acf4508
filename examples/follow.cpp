// Shows new messages of the running log server as they arrive, for some seconds or until Ctrl-C:
//   follow [SECONDS]

#include <charconv>
#include <chrono>
#include <csignal>
#include <iostream>
#include <string>
#include <string_view>
#include <system_error>
#include <tamlog.hpp>

namespace {

// Ctrl-C only sets this flag: a process must not end while its reader is inside a call.
volatile std::sig_atomic_t interrupted = 0;

std::string Describe(const tamlog::Item& item) {
  switch (item.kind) {
    case tamlog::ItemKind::Message:
      return item.message.ToLine();
    case tamlog::ItemKind::Lost:
      return "-- at least " + std::to_string(item.lostLeast) + " messages were lost\n";
    case tamlog::ItemKind::Cleared:
      return "-- the log was emptied\n";
    case tamlog::ItemKind::Stopped:
      return "-- the server has stopped\n";
    case tamlog::ItemKind::Reopened:
      return "-- the server is back\n";
    case tamlog::ItemKind::Blocked:
      return "-- access to the log timed out; trying again\n";
  }
  return {};
}

void Follow(std::chrono::seconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  auto reader = tamlog::Reader::Live();
  std::cout << "-- following after " << reader.Count() << " messages" << std::endl;
  while (interrupted == 0 && std::chrono::steady_clock::now() < end) {
    // Waits briefly, so that Ctrl-C and the time limit are noticed soon.
    if (const auto item = reader.Next(200)) std::cout << Describe(*item) << std::flush;
  }
}

}  // namespace

int main(int argc, char** argv) {
  int seconds = 365 * 24 * 3600;
  const std::string_view given = argc > 1 ? argv[1] : "";
  const auto [end, problem] = std::from_chars(given.data(), given.data() + given.size(), seconds);
  if (argc > 2 ||
      (argc == 2 && (problem != std::errc() || end != given.data() + given.size() || seconds < 0))) {
    std::cerr << "usage: follow [SECONDS]\n";
    return 2;
  }
  std::signal(SIGINT, [](int) { interrupted = 1; });
  try {
    Follow(std::chrono::seconds(seconds));
  } catch (const tamlog::Error& error) {
    std::cerr << "follow: " << error.what() << '\n';
    return 1;
  }
}
