#pragma once

// The client library of the Torvane Log Server for C++20: header-only owners of the handles of tamlog.h. That
// header states units, ranges and statuses; this one states what differs.
//
//   tamlog::Sender log;                                   // queues; a thread sends
//   log.Submit({.type = 1, .source = "Stage", .text = "homed"});
//
//   auto reader = tamlog::Reader::Live();
//   for (const tamlog::Message& message : reader.Messages()) Show(message);
//   while (running) {
//     const auto item = reader.Next(200);                 // milliseconds
//     if (item && item->kind == tamlog::ItemKind::Message) Show(item->message);
//   }
//
// A failure throws tamlog::Error with its status. An expected outcome (nothing came in time, no room, the
// end) is a return value. Client, Sender and Reader are move-only; a moved-from one may only be destroyed or
// assigned to. Threads: any number of threads may use a client or a sender at once; one thread at a time may
// use a reader.

#include <tamlog.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace tamlog {

// The failure of a call: what() says what was being done and why it failed.
class Error : public std::runtime_error {
 public:
  Error(const std::string& doing, tamlog_status status)
      : std::runtime_error(doing + ": " + tamlog_status_text(status)), code(status) {}
  tamlog_status Code() const noexcept { return code; }

 private:
  tamlog_status code;
};

// Throws unless the status is TAMLOG_OK.
inline void Check(const char* doing, tamlog_status status) {
  if (status != TAMLOG_OK) throw Error(doing, status);
}

// Returns a structure of tamlog.h that is initialized as by TAMLOG_INIT.
template <class Structure>
Structure Make() {
  Structure structure;
  TAMLOG_INIT(&structure);
  return structure;
}

// --- Messages.

using Time = tamlog_time;

// Returns this machine's local time.
inline Time Now() {
  Time now{};
  tamlog_now(&now);
  return now;
}

// Converts a local time, which has no zone.
inline Time ToTime(std::chrono::local_time<std::chrono::milliseconds> point) {
  const auto midnight = std::chrono::floor<std::chrono::days>(point);
  const std::chrono::year_month_day date(midnight);
  const std::chrono::hh_mm_ss clock(point - midnight);
  const auto word = [](auto value) { return static_cast<std::int16_t>(value); };
  return {word(static_cast<int>(date.year())),     word(static_cast<unsigned>(date.month())),
          word(static_cast<unsigned>(date.day())), word(clock.hours().count()),
          word(clock.minutes().count()),           word(clock.seconds().count()),
          word(clock.subseconds().count()),        0};
}

enum class Format : std::int32_t {
  Short = TAMLOG_FORMAT_SHORT,
  Full = TAMLOG_FORMAT_FULL,
  Cat = TAMLOG_FORMAT_CAT,
  Json = TAMLOG_FORMAT_JSON,
  Tsv = TAMLOG_FORMAT_TSV,
  Csv = TAMLOG_FORMAT_CSV,
};

// A message as read. Its texts are bytes without a stated encoding; they are valid as long as the message.
class Message {
 public:
  Message() : raw(Make<tamlog_message>()) {}
  explicit Message(const tamlog_message& given) : raw(given) {}

  std::string_view Source() const { return {raw.source, raw.source_length}; }
  std::string_view Text() const { return {raw.text, raw.text_length}; }
  std::uint32_t Type() const { return raw.type; }
  const Time& When() const { return raw.time; }
  bool TimeIsReal() const { return tamlog_time_is_real(&raw.time) != 0; }
  // Returns the server's number; it may be reused, so it shows order and identifies nothing.
  std::uint64_t Sequence() const { return raw.sequence; }
  // Returns whether the message is dated before one that Reader::Next returned earlier.
  bool Late() const { return (raw.flags & TAMLOG_MESSAGE_LATE) != 0; }
  // Returns whether the message breaks a rule of the file.
  bool Damaged() const { return (raw.flags & TAMLOG_MESSAGE_DAMAGED) != 0; }
  std::span<const std::uint8_t, 8> Origin() const { return std::span<const std::uint8_t, 8>(raw.origin); }
  std::span<const std::uint8_t, 4> Tail() const { return std::span<const std::uint8_t, 4>(raw.tail); }
  const tamlog_message& Raw() const { return raw; }
  tamlog_message& Raw() { return raw; }

  // Returns one line with its line end. `flags`: TAMLOG_FORMAT_TERMINAL, TAMLOG_FORMAT_COLOR.
  std::string ToLine(Format format = Format::Short, std::uint32_t flags = 0) const {
    std::string line(8192, '\0');
    std::uint64_t length = 0;
    Check("formatting a message",
          tamlog_format(&raw, static_cast<std::int32_t>(format), flags, line.data(), line.size(), &length));
    line.resize(length);
    return line;
  }

 private:
  tamlog_message raw;
};

// A message to be submitted. Its texts have to be valid until the call returns.
struct Entry {
  std::uint32_t type = 0;                // 0 to 3
  std::string_view source{};             // at most 256 bytes
  std::string_view text{};               // at most 256 bytes; any length for a sender
  std::optional<Time> time{};            // nothing: now
  std::array<std::uint8_t, 8> origin{};  // all 0: a sender sets numbers of its own
  std::array<std::uint8_t, 4> tail{};

  tamlog_entry ToRaw() const {
    auto raw = Make<tamlog_entry>();
    raw.type = type;
    // An empty view stays null: a length of 0 would mean "up to the zero byte", which a view need not have.
    if (!source.empty()) raw.source = source.data();
    if (!text.empty()) raw.text = text.data();
    raw.source_length = source.size();
    raw.text_length = text.size();
    if (time) raw.time = *time;
    for (std::size_t i = 0; i < origin.size(); ++i) raw.origin[i] = origin[i];
    for (std::size_t i = 0; i < tail.size(); ++i) raw.tail[i] = tail[i];
    return raw;
  }
};

template <auto close>
struct Closer {
  template <class Handle>
  void operator()(Handle* handle) const {
    close(handle);
  }
};

// --- Client: one call, one answer.

// A connection to the server; connects when a call needs it.
class Client {
 public:
  explicit Client(tamlog_client_options options = Make<tamlog_client_options>()) {
    tamlog_client* opened = nullptr;
    Check("opening a client", tamlog_client_open(&options, &opened));
    handle.reset(opened);
  }

  // Returns whether the server answers. Throws only for TAMLOG_NOT_SUPPORTED and TAMLOG_BAD_ARGUMENT.
  bool Ping() {
    const tamlog_status status = tamlog_client_ping(handle.get());
    if (status == TAMLOG_NOT_SUPPORTED || status == TAMLOG_BAD_ARGUMENT)
      throw Error("asking the server", status);
    return status == TAMLOG_OK;
  }
  // Submits a message and waits for the answer; the server's filters may still drop it.
  void Submit(const Entry& entry) {
    const tamlog_entry raw = entry.ToRaw();
    Check("submitting a message", tamlog_client_submit(handle.get(), &raw));
  }
  tamlog_settings Settings() {
    auto settings = Make<tamlog_settings>();
    Check("reading the settings", tamlog_client_get_settings(handle.get(), &settings));
    return settings;
  }
  // Replaces all settings. The server restarts a second later.
  void SetSettings(const tamlog_settings& settings) {
    Check("changing the settings", tamlog_client_set_settings(handle.get(), &settings));
  }
  std::vector<tamlog_filter> Filters() {
    std::vector<tamlog_filter> filters;
    for (std::uint32_t index = 0;; ++index) {
      auto filter = Make<tamlog_filter>();
      const tamlog_status status = tamlog_client_get_filter(handle.get(), index, &filter);
      if (status == TAMLOG_NO_SUCH_FILTER) return filters;
      Check("reading the filters", status);
      filters.push_back(filter);
    }
  }
  // Adds a filter. `text`: at most 127 bytes. `include`: true for an include filter, false for an exclude
  // filter.
  void AddFilter(std::string_view text, bool include) {
    auto filter = Make<tamlog_filter>();
    filter.include = include ? 1 : 0;
    if (text.size() >= sizeof(filter.text)) throw Error("adding a filter", TAMLOG_TOO_LONG);
    text.copy(filter.text, text.size());
    Check("adding a filter", tamlog_client_add_filter(handle.get(), &filter));
  }
  void ClearFilters() { Check("removing the filters", tamlog_client_clear_filters(handle.get())); }
  // Paths of the server are in the code page of its machine. LogFile is the path of the next start.
  std::string LogFile() { return Path("asking for the log file", tamlog_client_get_log_file); }
  std::string DefaultLogFile() {
    return Path("asking for the default log file", tamlog_client_get_default_log_file);
  }
  // Sets the path of the log, with effect from the next stop of the server. `path`: absolute, at most 255
  // bytes.
  void SetLogFile(const std::string& path) {
    Check("setting the log file", tamlog_client_set_log_file(handle.get(), path.c_str()));
  }
  // Empties the log. The server restarts a second later.
  void ClearLog() { Check("clearing the log", tamlog_client_clear_log(handle.get())); }
  // Ends the connection; the next call connects again.
  void Disconnect() { tamlog_client_disconnect(handle.get()); }

 private:
  template <class Question>
  std::string Path(const char* doing, Question question) {
    std::array<char, 1024> buffer{};
    Check(doing, question(handle.get(), buffer.data(), buffer.size(), nullptr));
    return buffer.data();
  }

  std::unique_ptr<tamlog_client, Closer<&tamlog_client_close>> handle;
};

// --- Sender: messages from a queue, without waiting.

// A queue of messages and a thread that sends them. The destructor sends what still waits for `close_ms` at
// most.
class Sender {
 public:
  explicit Sender(tamlog_sender_options options = Make<tamlog_sender_options>()) {
    tamlog_sender* opened = nullptr;
    Check("opening a sender", tamlog_sender_open(&options, &opened));
    handle.reset(opened);
  }

  // Queues a message. Returns false when there is no room or the sender was finished; the counters show both.
  // Throws for what cannot be a message (TAMLOG_TOO_LONG, TAMLOG_BAD_VALUE).
  bool Submit(const Entry& entry) {
    const tamlog_status status = TrySubmit(entry);
    if (status == TAMLOG_DROPPED || status == TAMLOG_CLOSED) return false;
    Check("submitting a message", status);
    return true;
  }
  // Queues a message like Submit, but never throws: for places that must not fail.
  tamlog_status TrySubmit(const Entry& entry) noexcept {
    const tamlog_entry raw = entry.ToRaw();
    return tamlog_sender_submit(handle.get(), &raw);
  }
  // Waits until all messages submitted before have left the queue; returns false when some are still waiting.
  bool Flush(std::uint32_t timeoutMs) { return InTime(tamlog_sender_flush(handle.get(), timeoutMs)); }
  // Accepts no more messages and sends what is waiting; returns false when some of it was dropped.
  bool Finish(std::uint32_t timeoutMs) { return InTime(tamlog_sender_finish(handle.get(), timeoutMs)); }
  tamlog_sender_counters Counters() const {
    auto counters = Make<tamlog_sender_counters>();
    Check("reading a sender's counters", tamlog_sender_get_counters(handle.get(), &counters));
    return counters;
  }

 private:
  static bool InTime(tamlog_status status) {
    if (status == TAMLOG_TIMED_OUT) return false;
    Check("sending what waits", status);
    return true;
  }

  std::unique_ptr<tamlog_sender, Closer<&tamlog_sender_close>> handle;
};

// --- Reader: the log of the running server, or a file.

enum class Change : std::int32_t {
  Nothing = TAMLOG_NOP,
  Append = TAMLOG_APPEND,
  Rewrite = TAMLOG_REWRITE,
  Cleared = TAMLOG_CLEARED,
  Stopped = TAMLOG_STOPPED,
  Reopened = TAMLOG_REOPENED,
};

enum class ItemKind : std::int32_t {
  Message = TAMLOG_ITEM_MESSAGE,
  Lost = TAMLOG_ITEM_LOST,
  Cleared = TAMLOG_ITEM_CLEARED,
  Stopped = TAMLOG_ITEM_STOPPED,
  Reopened = TAMLOG_ITEM_REOPENED,
  Blocked = TAMLOG_ITEM_BLOCKED,
};

// A message, or something that happened to the log.
struct Item {
  ItemKind kind = ItemKind::Message;
  tamlog::Message message;                // ItemKind::Message
  std::uint64_t lostLeast = 0;            // ItemKind::Lost: messages
  std::optional<std::uint64_t> lostMost;  // ItemKind::Lost: messages; nothing: no upper limit is known
};

// A copy of the log, and a position from which it is followed (Next, Wait).
class Reader {
 public:
  static constexpr std::uint32_t kUsualTimeoutMs = 5000;

  // Copies the running server's log. Holds nothing between calls until Wait or Next is called; from then on
  // the reader keeps the log open, and a thread of its own closes it when the server stops.
  static Reader Live(tamlog_reader_options options = Make<tamlog_reader_options>()) {
    tamlog_reader* opened = nullptr;
    const tamlog_status status = tamlog_reader_open_live(&options, &opened);
    return {"opening the log", status, opened};
  }
  // Reads a file as a whole and keeps nothing open. `path` is UTF-8.
  static Reader File(const std::string& path) {
    tamlog_reader* opened = nullptr;
    const tamlog_status status = tamlog_reader_open_file(path.c_str(), &opened);
    return {path, status, opened};
  }

  // Copies the log, or reads the file, again. Does not move the position of Next.
  void Snapshot(std::uint32_t timeoutMs = kUsualTimeoutMs) {
    Take("reading the log", tamlog_reader_snapshot(handle.get(), timeoutMs));
  }
  // Return the number of messages in the copy, one of them, or all; index 0 is the oldest in time.
  std::uint32_t Count() const { return tamlog_reader_count(handle.get()); }
  Message At(std::uint32_t index) const {
    Message message;
    Check("reading a message", tamlog_reader_get_message(handle.get(), index, &message.Raw()));
    return message;
  }
  std::vector<Message> Messages() const {
    std::vector<Message> messages(Count());
    for (std::uint32_t i = 0; i < messages.size(); ++i) messages[i] = At(i);
    return messages;
  }
  // Describes the log as of the copy.
  tamlog_log_info Info() const {
    auto info = Make<tamlog_log_info>();
    Check("reading the log's state", tamlog_reader_get_info(handle.get(), &info));
    return info;
  }
  // Returns whether some bytes of the log break the rules of the file; Remark names them as far as possible.
  bool Damaged() const { return damaged; }
  std::string Remark() const { return tamlog_reader_remark(handle.get()); }

  // Returns the next message or event; nothing when none came in time, or the file has no more (Ended).
  std::optional<Item> Next(std::uint32_t timeoutMs) {
    auto raw = Make<tamlog_item>();
    const tamlog_status status = tamlog_reader_next(handle.get(), timeoutMs, &raw);
    ended = status == TAMLOG_END;
    if (ended || status == TAMLOG_TIMED_OUT) return std::nullopt;
    Check("following the log", status);
    Item item{static_cast<ItemKind>(raw.kind), Message(raw.message), raw.lost_least, std::nullopt};
    if (raw.lost_most != UINT64_MAX) item.lostMost = raw.lost_most;
    return item;
  }
  bool Ended() const { return ended; }

  // Waits until the log changes, and returns how. Live readers only: throws with TAMLOG_END for a file.
  Change Wait(std::uint32_t timeoutMs) {
    std::int32_t change = TAMLOG_NOP;
    Check("waiting for the log", tamlog_reader_wait(handle.get(), timeoutMs, &change));
    return static_cast<Change>(change);
  }

  // Calls `look(const tamlog_view&)` with the log in place, while the server continues to write; more than
  // once when the server wrote meanwhile, so each call begins from nothing. See tamlog_reader_with_view. An
  // exception of `look` is rethrown. Returns false when no call counted.
  template <class Look>
  bool WithView(std::uint32_t budgetUs, Look&& look) {
    using Target = std::remove_reference_t<Look>;
    struct Context {
      Target* look;
      std::exception_ptr thrown;
    } context{std::addressof(look), nullptr};
    const auto call = [](void* given, const tamlog_view* view) {
      auto* const own = static_cast<Context*>(given);
      try {
        own->thrown = nullptr;
        (*own->look)(*view);
      } catch (...) {
        own->thrown = std::current_exception();
      }
    };
    const tamlog_status status = tamlog_reader_with_view(handle.get(), budgetUs, call, &context);
    if (context.thrown) std::rethrow_exception(context.thrown);
    if (status == TAMLOG_TIMED_OUT) return false;
    Check("looking at the log", status);
    return true;
  }

  // Returns the cursor of a message of the copy: a text that identifies the message, also after restarts and
  // rewrites of the log.
  std::string CursorAt(std::uint32_t index) const {
    std::array<char, 256> buffer{};
    Check("making a cursor",
          tamlog_reader_get_cursor(handle.get(), index, buffer.data(), buffer.size(), nullptr));
    return buffer.data();
  }
  // Returns the cursor of the message that Next returned last.
  std::string LastCursor() const {
    std::array<char, 256> buffer{};
    Check("making a cursor", tamlog_reader_last_cursor(handle.get(), buffer.data(), buffer.size(), nullptr));
    return buffer.data();
  }
  // Lets Next continue after the cursor's message. Returns false when that message is gone; then Next
  // continues with the first one dated later.
  bool Seek(const std::string& cursor) {
    const tamlog_status status = tamlog_reader_seek(handle.get(), cursor.c_str());
    if (status != TAMLOG_NOT_FOUND) Check("going to a cursor", status);
    return status == TAMLOG_OK;
  }
  void SeekOldest() { Check("going to the oldest message", tamlog_reader_seek(handle.get(), nullptr)); }
  // Returns whether the cursor's message is in the copy.
  bool Test(const std::string& cursor) const {
    const tamlog_status status = tamlog_reader_test_cursor(handle.get(), cursor.c_str());
    if (status != TAMLOG_NOT_FOUND) Check("testing a cursor", status);
    return status == TAMLOG_OK;
  }

 private:
  Reader(const std::string& doing, tamlog_status status, tamlog_reader* opened) : handle(opened) {
    Take(doing, status);
  }
  void Take(const std::string& doing, tamlog_status status) {
    if (status != TAMLOG_OK && status != TAMLOG_DAMAGED) throw Error(doing, status);
    damaged = status == TAMLOG_DAMAGED;
  }

  std::unique_ptr<tamlog_reader, Closer<&tamlog_reader_close>> handle;
  bool damaged = false;
  bool ended = false;
};

// --- Verifying and repairing files.

// A violation of a rule.
struct Finding {
  std::int32_t rule = 0;              // TAMLOG_RULE_...
  bool damage = false;                // otherwise a remark
  std::optional<std::uint32_t> slot;  // nothing: about the file as a whole
  std::uint64_t offset = 0;           // of the field in the file, in bytes
  std::string name;                   // as of tamlog_rule_name
  std::string seen;                   // the value in the file
  std::string allowed;
};

// The result of VerifyFile and VerifyImage.
struct VerifyReport {
  tamlog_verify_result counts = Make<tamlog_verify_result>();
  std::vector<Finding> findings;  // those of the header first, then those of the slots, oldest first

  bool Damaged() const { return counts.damage > 0; }
  // Returns whether a server with the file's capacity keeps the messages.
  bool Accepted() const { return counts.accepted != 0; }
  std::uint64_t Count(std::int32_t rule) const {
    return rule >= 0 && rule < TAMLOG_MOST_RULES ? counts.count[rule] : 0;
  }
};

// A message that was lost or changed.
struct RepairNote {
  std::int32_t kind = 0;              // TAMLOG_NOTE_...
  bool saved = false;                 // the message is in the output, changed; otherwise it is lost
  std::optional<std::uint32_t> slot;  // nothing: the bytes do not begin at a slot
  std::uint64_t offset = 0;           // in the damaged file, in bytes
  std::uint64_t bytes = 0;
  std::uint64_t messages = 0;  // at most
  std::string text;            // the kind in words
};

// The result of RepairFile.
struct RepairReport {
  tamlog_repair_result counts = Make<tamlog_repair_result>();
  std::vector<RepairNote> notes;  // losses first
};

struct RepairOptions {
  bool carve = false;          // TAMLOG_REPAIR_CARVE
  bool unique = false;         // TAMLOG_REPAIR_UNIQUE
  bool replace = false;        // TAMLOG_REPAIR_REPLACE
  std::uint32_t capacity = 0;  // of the output, in messages; 0: the damaged file's, or more to save all
  std::uint64_t most = 0;      // the most notes of losses, and the most of changes; 0: 20
};

namespace detail {

inline std::optional<std::uint32_t> SlotOf(std::uint32_t slot) {
  if (slot == TAMLOG_NO_SLOT) return std::nullopt;
  return slot;
}

inline Finding Copy(const tamlog_finding& raw) {
  return {raw.rule, raw.damage != 0, SlotOf(raw.slot), raw.offset, raw.name, raw.seen, raw.allowed};
}

inline RepairNote Copy(const tamlog_repair_note& raw) {
  return {raw.kind, raw.saved != 0, SlotOf(raw.slot), raw.offset, raw.bytes, raw.messages, raw.text};
}

// Collects what a function of the library reports, one by one. An exception meanwhile is kept for Rethrow.
template <class Item, class Raw>
class Collector {
 public:
  explicit Collector(std::vector<Item>& target) : items(&target) {}
  static std::int32_t TAMLOG_CALL Take(void* given, const Raw* raw) {
    auto* const own = static_cast<Collector*>(given);
    try {
      own->items->push_back(Copy(*raw));
      return 0;
    } catch (...) {
      own->thrown = std::current_exception();
      return 1;
    }
  }
  void Rethrow() const {
    if (thrown) std::rethrow_exception(thrown);
  }

 private:
  std::vector<Item>* items;
  std::exception_ptr thrown;
};

template <class Verify>
VerifyReport CollectFindings(const std::string& doing, std::uint64_t most, bool live, Verify verify) {
  VerifyReport report;
  Collector<Finding, tamlog_finding> collector(report.findings);
  auto options = Make<tamlog_verify_options>();
  options.most = most;
  options.live = live ? 1U : 0U;
  options.found = &Collector<Finding, tamlog_finding>::Take;
  options.context = &collector;
  const tamlog_status status = verify(options, report.counts);
  collector.Rethrow();
  if (status != TAMLOG_OK && status != TAMLOG_DAMAGED) throw Error(doing, status);
  return report;
}

}  // namespace detail

// Check a file, or the bytes of one, against all rules. Damage does not throw. `most`: the most findings of
// one rule that are listed, 0: 20; all are counted. `live`: the bytes are those of a running server's log,
// whose mark and readers are no remarks.
inline VerifyReport VerifyFile(const std::string& path, std::uint64_t most = 0, bool live = false) {
  return detail::CollectFindings(path, most, live, [&](const auto& options, auto& counts) {
    return tamlog_verify_file(path.c_str(), &options, &counts);
  });
}
inline VerifyReport VerifyImage(std::span<const std::byte> bytes, std::uint64_t most = 0, bool live = false) {
  return detail::CollectFindings("examining a log file", most, live, [&](const auto& options, auto& counts) {
    return tamlog_verify_image(bytes.data(), bytes.size(), &options, &counts);
  });
}

// Writes what can be saved of the file at `path` into a new file at `output`. An Error's what() begins with
// the name of the file that it is about.
inline RepairReport RepairFile(const std::string& path, const std::string& output,
                               const RepairOptions& chosen = {}) {
  RepairReport report;
  detail::Collector<RepairNote, tamlog_repair_note> collector(report.notes);
  auto options = Make<tamlog_repair_options>();
  options.flags = (chosen.carve ? std::uint32_t{TAMLOG_REPAIR_CARVE} : 0U) |
                  (chosen.unique ? std::uint32_t{TAMLOG_REPAIR_UNIQUE} : 0U) |
                  (chosen.replace ? std::uint32_t{TAMLOG_REPAIR_REPLACE} : 0U);
  options.capacity = chosen.capacity;
  options.most = chosen.most;
  options.note = &detail::Collector<RepairNote, tamlog_repair_note>::Take;
  options.context = &collector;
  const tamlog_status status = tamlog_repair_file(path.c_str(), output.c_str(), &options, &report.counts);
  collector.Rethrow();
  if (status == TAMLOG_EXISTS || status == TAMLOG_OUTPUT_FAILED) throw Error(output, status);
  Check(path.c_str(), status);
  return report;
}

}  // namespace tamlog
