// Stores the same messages in LMDB: one record each, in order of time; each new message displaces the oldest,
// as in a full log. Nothing is forced to the disk (bench/append.py, bench/read_whole.py).
//
//   lmdb_bench FILE MESSAGES whole|packed
//
// whole: a record is all 546 bytes of a message, as our file keeps them; packed: only the bytes that carry
// information.
//
// Measurements: "append" in nanoseconds per message, in transactions of 2,000; "read" the nanoseconds to read
// all messages, newest first.

#include <lmdb.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "bench/messages.h"
#include "bench/turns.h"

namespace {

constexpr std::size_t kBatch = 2000;
constexpr std::size_t kMeasured = 20000;

void Check(int result) {
  if (result == 0) return;
  Bench::Fail(mdb_strerror(result));
}

// The time and a number; compared byte by byte.
struct Key {
  std::uint64_t time;
  std::uint64_t number;
};

Key KeyOf(const LogMessageBody& body, std::uint64_t number) {
  return {.time = __builtin_bswap64(TimeKey(body)), .number = __builtin_bswap64(number)};
}

MDB_val ValueOf(const void* data, std::size_t size) {
  return {.mv_size = size, .mv_data = const_cast<void*>(data)};
}

// Returns the bytes that carry information: time and type, then both texts with their zeros.
std::string Packed(const LogMessageBody& body) {
  std::string bytes(reinterpret_cast<const char*>(body.timestamp), sizeof body.timestamp);
  bytes += static_cast<char>(body.type);
  bytes.append(body.source, std::strlen(body.source) + 1);
  bytes.append(body.text, std::strlen(body.text) + 1);
  return bytes;
}

class Log {
 public:
  Log(const std::string& path, std::size_t capacity, bool wholeRecords)
      : whole(wholeRecords), messages(capacity), next(0), count(capacity) {
    Check(mdb_env_create(&environment));
    Check(mdb_env_set_mapsize(environment, std::size_t{4} << 30));
    Check(mdb_env_open(environment, path.c_str(), MDB_NOSUBDIR | MDB_NOSYNC | MDB_NOMETASYNC | MDB_NOLOCK,
                       0644));
    while (next < capacity) Write(Prepare(std::min(kBatch, capacity - next)), false);
  }
  ~Log() { mdb_env_close(environment); }
  Log(const Log&) = delete;
  Log& operator=(const Log&) = delete;

  double Append() {
    double spent = 0;
    for (std::size_t i = 0; i < kMeasured; i += kBatch) {
      const std::vector<LogMessageBody> bodies = Prepare(kBatch);
      spent += Bench::Nanoseconds([&] { Write(bodies, true); });
    }
    return spent / kMeasured;
  }

  double Read() const {
    std::uint64_t seen = 0;
    std::size_t read = 0;
    const double spent = Bench::Nanoseconds([&] {
      MDB_txn* transaction = nullptr;
      MDB_cursor* cursor = nullptr;
      MDB_val key{};
      MDB_val value{};
      LogMessage message{};
      Check(mdb_txn_begin(environment, nullptr, MDB_RDONLY, &transaction));
      Check(mdb_cursor_open(transaction, table, &cursor));
      for (int result = mdb_cursor_get(cursor, &key, &value, MDB_LAST); result == 0;
           result = mdb_cursor_get(cursor, &key, &value, MDB_PREV)) {
        std::memcpy(&message, value.mv_data, std::min(value.mv_size, sizeof message));
        seen += message.sequence;
        ++read;
      }
      mdb_cursor_close(cursor);
      mdb_txn_abort(transaction);
    });
    Bench::sink = Bench::sink + seen;
    if (read != count) Bench::Fail("messages are missing");
    return spent;
  }

 private:
  std::vector<LogMessageBody> Prepare(std::size_t size) { return Bench::NextOf(messages, size); }

  void Write(const std::vector<LogMessageBody>& bodies, bool full) {
    MDB_txn* transaction = nullptr;
    Check(mdb_txn_begin(environment, nullptr, 0, &transaction));
    Check(mdb_dbi_open(transaction, nullptr, 0, &table));
    MDB_cursor* cursor = nullptr;
    Check(mdb_cursor_open(transaction, table, &cursor));
    for (const LogMessageBody& body : bodies) {
      if (full) {
        MDB_val oldest{};
        MDB_val ignored{};
        Check(mdb_cursor_get(cursor, &oldest, &ignored, MDB_FIRST));
        Check(mdb_cursor_del(cursor, 0));
      }
      const Key position = KeyOf(body, next++);
      MDB_val key = ValueOf(&position, sizeof position);
      const std::string packed = whole ? "" : Packed(body);
      MDB_val value = whole ? ValueOf(&body, sizeof body) : ValueOf(packed.data(), packed.size());
      Check(mdb_put(transaction, table, &key, &value, 0));
    }
    mdb_cursor_close(cursor);
    Check(mdb_txn_commit(transaction));
  }

  MDB_env* environment = nullptr;
  MDB_dbi table = 0;
  bool whole;
  Bench::Messages messages;
  std::size_t next;
  std::size_t count;
};

}  // namespace

int main(int argc, char** argv) {
  const std::string form = argc == 4 ? argv[3] : "";
  if (form != "whole" && form != "packed") {
    Bench::Fail("usage: lmdb_bench FILE MESSAGES whole|packed");
  }
  std::remove(argv[1]);
  Log log(argv[1], Bench::NumberIn(argc, argv, 2), form == "whole");
  return Bench::TakeTurns({{"append", [&] { return log.Append(); }}, {"read", [&] { return log.Read(); }}});
}
