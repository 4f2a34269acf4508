// Measures the server's store next to its floors, in turns: the real MessageFileServer over a full file,
// against the bare copies, reads and event calls that its work requires. Prints one line for each pair: row,
// unit, ours, the floor; separated by tabs. bench/store.py builds the table from them.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "bench/bench_store.h"
#include "store/source_filters.h"
#include "util/helpers.h"
#include "util/win32.h"

#include <psapi.h>

namespace {

using Bench::MessageAt;
using Bench::Store;
using Bench::View;

std::uint64_t sink = 0;  // printed at the end, so that no floor is optimised away

double Nanoseconds(const std::function<void()>& work) {
  LARGE_INTEGER frequency = {};
  LARGE_INTEGER begin = {};
  LARGE_INTEGER end = {};
  QueryPerformanceFrequency(&frequency);
  QueryPerformanceCounter(&begin);
  work();
  QueryPerformanceCounter(&end);
  return static_cast<double>(end.QuadPart - begin.QuadPart) * 1e9 / static_cast<double>(frequency.QuadPart);
}

void Report(const std::string& row, const char* unit, double ours, double floor) {
  std::printf("%s\t%s\t%.6g\t%.6g\n", row.c_str(), unit, ours, floor);
  std::fflush(stdout);
}

// Makes one key computation and one copy per message.
double CopyAll(const std::vector<LogMessageBody>& bodies, std::vector<LogMessage>& slots) {
  return Nanoseconds([&] {
    for (std::size_t i = 0; i < bodies.size(); ++i) {
      sink += TimeKey(bodies[i]);
      slots[i].body = bodies[i];
    }
  });
}

using Make = std::vector<LogMessageBody> (Store::*)(std::size_t);

void MeasureAdd(const std::string& row, Store& store, Make make, std::size_t count, int pairs) {
  std::vector<LogMessage> slots(count);
  for (int pair = -1; pair < pairs; ++pair) {  // the first warms up
    const std::vector<LogMessageBody> bodies = (store.*make)(count);
    CopyAll(bodies, slots);
    const double floor = CopyAll(bodies, slots);
    const double ours = Nanoseconds([&] {
      for (const LogMessageBody& body : bodies) store.server.AddMessage(body);
    });
    store.server.FlushWrites();
    if (pair >= 0) {
      Report(row, "ns", ours / static_cast<double>(count), floor / static_cast<double>(count));
    }
  }
}

// Measures the longest single call of a batch, against a tenth of a millisecond.
void MeasureLongest(const std::string& row, Store& store, Make make, std::size_t count, int pairs) {
  for (int pair = 0; pair < pairs; ++pair) {
    const std::vector<LogMessageBody> bodies = (store.*make)(count);
    double longest = 0;
    for (const LogMessageBody& body : bodies) {
      longest = std::max(longest, Nanoseconds([&] { store.server.AddMessage(body); }));
    }
    store.server.FlushWrites();
    Report(row, "us", longest / 1000, 100);
  }
}

void Add(const std::string& path, std::uint32_t slots, int pairs) {
  Store store(path, slots);
  const std::string of = ", " + std::to_string(slots);
  MeasureAdd("add in order" + of, store, &Store::InOrder, 2000, pairs);
  MeasureAdd("add every second late" + of, store, &Store::EverySecondLate, 20000, pairs);
  MeasureLongest("longest add, every second late" + of, store, &Store::EverySecondLate, 20000, pairs);
  MeasureAdd("add 20000 reversed" + of, store, &Store::Reversed, 20000, pairs);
}

double FlushOf(Store& store, std::size_t count) {
  for (const LogMessageBody& body : store.InOrder(count)) store.server.AddMessage(body);
  return Nanoseconds([&] { store.server.FlushWrites(); });
}

double SixEventCalls(HANDLE event) {
  return Nanoseconds([&] {
    for (int i = 0; i < 2; ++i) {
      SetEvent(event);
      WaitForSingleObject(event, 0);
      ResetEvent(event);
    }
  });
}

void Flush(const std::string& path, std::uint32_t slots, int pairs) {
  Store store(path, slots);
  View view;
  const std::string of = ", " + std::to_string(slots);
  // Touches every page in both views first, because the first touch costs more than the copy.
  for (std::uint32_t slot = 0; slot < slots; ++slot) {
    const LogMessage message = view.Slots()[slot];
    std::memcpy(view.Slots() + slot, &message, sizeof message);
  }
  const std::size_t round = std::min<std::size_t>(slots / 2, 20000);
  for (std::size_t written = 0; written <= slots; written += round) FlushOf(store, round);
  const HANDLE event = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  std::vector<double> fixed;
  for (int pair = -1; pair < 10 * pairs; ++pair) {
    const double six = SixEventCalls(event);
    fixed.push_back(FlushOf(store, 1));
    if (pair >= 0) Report("flush of one" + of, "us", fixed.back() / 1000, six / 1000);
  }
  std::nth_element(fixed.begin(), fixed.begin() + static_cast<std::ptrdiff_t>(fixed.size() / 2), fixed.end());
  const double fixedPart = fixed[fixed.size() / 2];
  for (const std::size_t batch : {std::size_t{200}, std::size_t{2000}, std::size_t{20000}}) {
    if (batch >= slots) continue;
    const std::vector<LogMessage> copies(
        batch, {.sequence = 1, .body = MessageAt(std::uint64_t{slots} * 20), .padding = {}});
    for (int pair = -1; pair < pairs; ++pair) {
      // Copies before and after the flush, so that neither finds the slots warmer than the other.
      const auto copy = [&] {
        const auto first = static_cast<std::size_t>(view.Header()->nextSlot);
        return Nanoseconds([&] {
          std::size_t slot = first;
          for (const LogMessage& message : copies) {
            std::memcpy(view.Slots() + slot, &message, sizeof message);
            if (++slot == slots) slot = 0;
          }
        });
      };
      const double floor = copy();
      const double ours = FlushOf(store, batch) - fixedPart;
      const double messages = static_cast<double>(batch);
      if (pair >= 0) {
        Report("flush, a message of " + std::to_string(batch) + of, "ns", ours / messages, floor / messages);
      }
    }
  }
  CloseHandle(event);
}

double ReadWhole(const std::string& path) {
  std::vector<char> buffer(1 << 20);
  return Nanoseconds([&] {
    const HANDLE file = CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                    OPEN_EXISTING, 0, nullptr);
    DWORD read = 0;
    while (ReadFile(file, buffer.data(), static_cast<DWORD>(buffer.size()), &read, nullptr) != 0 &&
           read > 0) {
      sink += static_cast<unsigned char>(buffer[0]);
    }
    CloseHandle(file);
  });
}

std::uint64_t PrivateBytes() {
  PROCESS_MEMORY_COUNTERS counters = {};
  GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters);
  return counters.PagefileUsage;
}

void Open(const std::string& path, std::uint32_t slots, int pairs) {
  const std::uint64_t before = PrivateBytes();
  Store store(path, slots);
  const std::string of = ", " + std::to_string(slots);
  for (int pair = -1; pair < pairs; ++pair) {
    store.Close();
    const double floor = ReadWhole(path);
    const double ours = Nanoseconds([&] { store.Open(); });
    if (pair >= 0) Report("open" + of, "ms", ours / 1e6, floor / 1e6);
  }
  for (const LogMessageBody& body : store.InOrder(std::min(slots / 2, 20000U))) store.server.AddMessage(body);
  store.server.FlushWrites();
  const double megabyte = 1 << 20;
  Report("private memory" + of, "MiB", static_cast<double>(PrivateBytes() - before) / megabyte,
         static_cast<double>(LogFileSize(slots)) / megabyte);
}

// A literal version of the comparison: folds both sides each time.
bool MatchesLiterally(const std::string& source, const std::vector<std::string>& names) {
  return std::any_of(names.begin(), names.end(), [&](const std::string& name) {
    const std::string left = TamLogUtil::ToLower(source);
    const std::string right = TamLogUtil::ToLower(name);
    const std::size_t common = std::min(left.size(), right.size());
    return left.compare(0, common, right, 0, common) == 0;
  });
}

void Filters(int pairs) {
  constexpr int kRounds = 20000;
  const LogMessageBody body = MessageAt(1);
  for (const int count : {10, 100}) {
    SourceFilters filters;
    std::vector<std::string> names;
    for (int i = 0; i < count; ++i) {
      names.push_back("Source" + std::to_string(i) + "Name");
      filters.push_back(names.back());
    }
    for (int pair = -1; pair < pairs; ++pair) {
      const double literal = Nanoseconds([&] {
        for (int i = 0; i < kRounds; ++i) sink += MatchesLiterally(body.source, names) ? 1U : 0U;
      });
      const double ours = Nanoseconds([&] {
        for (int i = 0; i < kRounds; ++i) sink += filters.MatchAny(FoldedSource(body.source)) ? 1U : 0U;
      });
      if (pair >= 0) Report("filters, " + std::to_string(count), "ns", ours / kRounds, literal / kRounds);
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  const std::string what = argc > 1 ? argv[1] : "";
  const std::string path = argc > 2 ? argv[2] : "";
  const auto slots = static_cast<std::uint32_t>(argc > 3 ? std::strtoul(argv[3], nullptr, 10) : 0);
  const int pairs = argc > 4 ? std::atoi(argv[4]) : 5;
  if (what == "add" && slots > 0) {
    Add(path, slots, pairs);
  } else if (what == "flush" && slots > 0) {
    Flush(path, slots, pairs);
  } else if (what == "open" && slots > 0) {
    Open(path, slots, pairs);
  } else if (what == "filters") {
    Filters(pairs);
  } else {
    std::fprintf(stderr, "usage: store_bench add|flush|open|filters LOGFILE SLOTS [PAIRS]\n");
    return 2;
  }
  std::fprintf(stderr, "%s\n", TamLogUtil::ToString(sink).c_str());
  return 0;
}
