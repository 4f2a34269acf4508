// Stores the same messages in a table of SQLite in order of time; each new message displaces the oldest, as
// in a full log: write-ahead log, nothing forced to the disk, transactions of 2,000 (bench/append.py,
// bench/read_whole.py, bench/open_peers.py).
//
//   sqlite_bench FILE MESSAGES
//
// Measurements: "append" in nanoseconds per message; "read" the nanoseconds to read all messages, newest
// first; "check" those of PRAGMA integrity_check.

#include <sqlite3.h>

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

class Log {
 public:
  Log(const std::string& path, std::size_t capacity) : messages(capacity), count(capacity) {
    Check(sqlite3_open(path.c_str(), &database));
    Run("PRAGMA journal_mode = WAL");
    Run("PRAGMA synchronous = OFF");
    Run("CREATE TABLE log (time INTEGER, number INTEGER, type INTEGER, source TEXT, text TEXT,"
        " PRIMARY KEY (time, number)) WITHOUT ROWID");
    insert = Prepare("INSERT INTO log (time, type, source, text, number) VALUES (?, ?, ?, ?, ?)");
    oldest = Prepare("SELECT time, number FROM log ORDER BY time, number LIMIT 1");
    remove = Prepare("DELETE FROM log WHERE time = ? AND number = ?");
    select = Prepare("SELECT time, type, source, text FROM log ORDER BY time DESC, number DESC");
    check = Prepare("PRAGMA integrity_check");
    for (std::size_t written = 0; written < capacity; written += kBatch) {
      Write(Bench::NextOf(messages, std::min(kBatch, capacity - written)), false);
    }
  }
  ~Log() {
    for (sqlite3_stmt* const statement : {insert, oldest, remove, select, check}) sqlite3_finalize(statement);
    sqlite3_close(database);
  }
  Log(const Log&) = delete;
  Log& operator=(const Log&) = delete;

  double Append() {
    double spent = 0;
    for (std::size_t i = 0; i < kMeasured; i += kBatch) {
      const std::vector<LogMessageBody> bodies = Bench::NextOf(messages, kBatch);
      spent += Bench::Nanoseconds([&] { Write(bodies, true); });
    }
    return spent / kMeasured;
  }

  double Read() {
    std::uint64_t seen = 0;
    std::size_t rows = 0;
    LogMessageBody body{};
    const double spent = Bench::Nanoseconds([&] {
      while (Step(select)) {
        seen += static_cast<std::uint64_t>(sqlite3_column_int64(select, 0) + sqlite3_column_int(select, 1));
        CopyText(2, body.source);
        CopyText(3, body.text);
        ++rows;
      }
      sqlite3_reset(select);
    });
    Bench::sink = Bench::sink + seen;
    if (rows != count) Fail("rows are missing");
    return spent;
  }

  double CheckIntegrity() {
    bool fine = false;
    const double spent = Bench::Nanoseconds([&] {
      fine =
          Step(check) && std::strcmp(reinterpret_cast<const char*>(sqlite3_column_text(check, 0)), "ok") == 0;
      sqlite3_reset(check);
    });
    if (!fine) Fail("the check found something");
    return spent;
  }

 private:
  [[noreturn]] void Fail(const char* what) {
    Bench::Fail(std::string(what) + ": " + sqlite3_errmsg(database));
  }
  void Check(int result) {
    if (result != SQLITE_OK) Fail("a call failed");
  }
  bool Step(sqlite3_stmt* statement) {
    const int result = sqlite3_step(statement);
    if (result != SQLITE_ROW && result != SQLITE_DONE) Fail("a step failed");
    return result == SQLITE_ROW;
  }
  void Run(const char* text) { Check(sqlite3_exec(database, text, nullptr, nullptr, nullptr)); }
  sqlite3_stmt* Prepare(const char* text) {
    sqlite3_stmt* statement = nullptr;
    Check(sqlite3_prepare_v2(database, text, -1, &statement, nullptr));
    return statement;
  }
  void CopyText(int column, char (&field)[kTextSize]) {
    const auto size = static_cast<std::size_t>(sqlite3_column_bytes(select, column));
    std::memcpy(field, sqlite3_column_text(select, column), std::min(size, kTextSize));
  }

  void Write(const std::vector<LogMessageBody>& bodies, bool full) {
    Run("BEGIN");
    for (const LogMessageBody& body : bodies) {
      if (full) {
        Step(oldest);
        sqlite3_bind_int64(remove, 1, sqlite3_column_int64(oldest, 0));
        sqlite3_bind_int64(remove, 2, sqlite3_column_int64(oldest, 1));
        sqlite3_reset(oldest);
        Step(remove);
        sqlite3_reset(remove);
      }
      sqlite3_bind_int64(insert, 1, static_cast<sqlite3_int64>(TimeKey(body)));
      sqlite3_bind_int(insert, 2, static_cast<int>(body.type));
      sqlite3_bind_text(insert, 3, body.source, -1, SQLITE_STATIC);
      sqlite3_bind_text(insert, 4, body.text, -1, SQLITE_STATIC);
      sqlite3_bind_int64(insert, 5, ++number);
      Step(insert);
      sqlite3_reset(insert);
    }
    Run("COMMIT");
  }

  sqlite3* database = nullptr;
  sqlite3_stmt* insert = nullptr;
  sqlite3_stmt* oldest = nullptr;
  sqlite3_stmt* remove = nullptr;
  sqlite3_stmt* select = nullptr;
  sqlite3_stmt* check = nullptr;
  Bench::Messages messages;
  sqlite3_int64 number = 0;
  std::size_t count;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    Bench::Fail("usage: sqlite_bench FILE MESSAGES");
  }
  const std::string path = argv[1];
  for (const char* const end : {"", "-wal", "-shm"}) std::remove((path + end).c_str());
  Log log(path, Bench::NumberIn(argc, argv, 2));
  return Bench::TakeTurns({{"append", [&] { return log.Append(); }},
                           {"read", [&] { return log.Read(); }},
                           {"check", [&] { return log.CheckIntegrity(); }}});
}
