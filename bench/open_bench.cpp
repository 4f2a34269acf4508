// Opens a full log as the server does at its start: check, load and all (bench/open_peers.py).
//
//   open_bench LOGFILE SLOTS
//
// Takes turns: "open" gives nanoseconds.

#include <cstdlib>

#include "bench/bench_store.h"
#include "bench/turns.h"

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fputs("usage: open_bench LOGFILE SLOTS\n", stderr);
    return 2;
  }
  Bench::Store store(argv[1], static_cast<std::uint32_t>(std::strtoul(argv[2], nullptr, 10)),
                     Bench::Store::File::Given);
  return Bench::TakeTurns({{"open", [&] {
                              store.Close();
                              return Bench::Nanoseconds([&] { store.Open(); });
                            }}});
}
