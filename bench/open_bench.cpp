// Opens a full log as the server does at its start, including check and load (bench/open_peers.py).
//
//   open_bench LOGFILE SLOTS
//
// Measurement: "open", in nanoseconds.

#include "bench/bench_store.h"
#include "bench/turns.h"

int main(int argc, char** argv) {
  if (argc != 3) {
    Bench::Fail("usage: open_bench LOGFILE SLOTS");
  }
  Bench::Store store(argv[1], Bench::NumberIn(argc, argv, 2), Bench::Store::File::Given);
  return Bench::TakeTurns({{"open", [&] {
                              store.Close();
                              return Bench::Nanoseconds([&] { store.Open(); });
                            }}});
}
