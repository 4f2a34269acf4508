#pragma once

// The client library of the Torvane Log Server for C++20: thin owners over tamlog.h, header-only.
//
//   tamlog::Sender log;                                   // never waits for the server
//   log.Submit({.type = 1, .source = "Stage", .text = "homed"});
//
//   auto reader = tamlog::Reader::Live();
//   for (const tamlog::Message& message : reader.Messages()) Show(message);
//   while (running) {
//     const auto item = reader.Next(200);                 // milliseconds
//     if (item && item->kind == tamlog::ItemKind::Message) Show(item->message);
//   }
//
// What cannot be done throws tamlog::Error, which carries the status; what is to be expected (nothing came in
// time, no room, the end) is a return value. Owners are move-only; a moved-from one may only be destroyed or
// assigned to. Threads as in tamlog.h: clients and senders by any number, a reader by one at a time.

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

class Error : public std::runtime_error {
 public:
  Error(const std::string& doing, tamlog_status status)
      : std::runtime_error(doing + ": " + tamlog_status_text(status)), code(status) {}
  tamlog_status Code() const noexcept { return code; }

 private:
  tamlog_status code;
};

inline void Check(const char* doing, tamlog_status status) {
  if (status != TAMLOG_OK) throw Error(doing, status);
}

template <class Structure>
Structure Make() {
  Structure structure;
  TAMLOG_INIT(&structure);
  return structure;
}

// --- Messages.

using Time = tamlog_time;

inline Time Now() {
  Time now{};
  tamlog_now(&now);
  return now;
}

// Of a clock without zone: std::chrono::local_time, or a point of time of another clock made into one.
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

// A message as read. Texts are bytes without a stated encoding.
class Message {
 public:
  Message() : raw(Make<tamlog_message>()) {}
  explicit Message(const tamlog_message& given) : raw(given) {}

  std::string_view Source() const { return {raw.source, raw.source_length}; }
  std::string_view Text() const { return {raw.text, raw.text_length}; }
  std::uint32_t Type() const { return raw.type; }
  const Time& When() const { return raw.time; }
  bool TimeIsReal() const { return tamlog_time_is_real(&raw.time) != 0; }
  // Given by the server, and given again: shows order, identifies nothing.
  std::uint64_t Sequence() const { return raw.sequence; }
  bool Late() const { return (raw.flags & TAMLOG_MESSAGE_LATE) != 0; }
  bool Damaged() const { return (raw.flags & TAMLOG_MESSAGE_DAMAGED) != 0; }
  std::span<const std::uint8_t, 8> Origin() const { return std::span<const std::uint8_t, 8>(raw.origin); }
  std::span<const std::uint8_t, 4> Tail() const { return std::span<const std::uint8_t, 4>(raw.tail); }
  const tamlog_message& Raw() const { return raw; }
  tamlog_message& Raw() { return raw; }

  // One line with its line end. `flags`: TAMLOG_FORMAT_TERMINAL, TAMLOG_FORMAT_COLOR.
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

// A message to be sent.
struct Entry {
  std::uint32_t type = 0;  // 0 to 3
  std::string_view source{};
  std::string_view text{};
  std::optional<Time> time{};  // nothing: now
  std::array<std::uint8_t, 8> origin{};
  std::array<std::uint8_t, 4> tail{};

  tamlog_entry ToRaw() const {
    auto raw = Make<tamlog_entry>();
    raw.type = type;
    // A length of 0 would mean "up to the zero byte", which a view need not have.
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

class Client {
 public:
  explicit Client(tamlog_client_options options = Make<tamlog_client_options>()) {
    tamlog_client* opened = nullptr;
    Check("opening a client", tamlog_client_open(&options, &opened));
    handle.reset(opened);
  }

  // Whether the server answers. Throws only when asking is not possible here at all.
  bool Ping() {
    const tamlog_status status = tamlog_client_ping(handle.get());
    if (status == TAMLOG_NOT_SUPPORTED || status == TAMLOG_BAD_ARGUMENT)
      throw Error("asking the server", status);
    return status == TAMLOG_OK;
  }
  void Submit(const Entry& entry) {
    const tamlog_entry raw = entry.ToRaw();
    Check("submitting a message", tamlog_client_submit(handle.get(), &raw));
  }
  tamlog_settings Settings() {
    auto settings = Make<tamlog_settings>();
    Check("reading the settings", tamlog_client_get_settings(handle.get(), &settings));
    return settings;
  }
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
  void AddFilter(std::string_view text, bool include) {
    auto filter = Make<tamlog_filter>();
    filter.include = include ? 1 : 0;
    if (text.size() >= sizeof(filter.text)) throw Error("adding a filter", TAMLOG_TOO_LONG);
    text.copy(filter.text, text.size());
    Check("adding a filter", tamlog_client_add_filter(handle.get(), &filter));
  }
  void ClearFilters() { Check("removing the filters", tamlog_client_clear_filters(handle.get())); }
  std::string LogFile() { return Path("asking for the log file", tamlog_client_get_log_file); }
  std::string DefaultLogFile() {
    return Path("asking for the default log file", tamlog_client_get_default_log_file);
  }
  void SetLogFile(const std::string& path) {
    Check("setting the log file", tamlog_client_set_log_file(handle.get(), path.c_str()));
  }
  void ClearLog() { Check("clearing the log", tamlog_client_clear_log(handle.get())); }
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

class Sender {
 public:
  explicit Sender(tamlog_sender_options options = Make<tamlog_sender_options>()) {
    tamlog_sender* opened = nullptr;
    Check("opening a sender", tamlog_sender_open(&options, &opened));
    handle.reset(opened);
  }

  // False when there was no room, or the sender was finished: that is in the counters as well. Throws for
  // what cannot be a message (TAMLOG_TOO_LONG, TAMLOG_BAD_VALUE).
  bool Submit(const Entry& entry) {
    const tamlog_status status = TrySubmit(entry);
    if (status == TAMLOG_DROPPED || status == TAMLOG_CLOSED) return false;
    Check("submitting a message", status);
    return true;
  }
  // Never throws: for logging from places that must not fail.
  tamlog_status TrySubmit(const Entry& entry) noexcept {
    const tamlog_entry raw = entry.ToRaw();
    return tamlog_sender_submit(handle.get(), &raw);
  }
  // False when something is still waiting after the time.
  bool Flush(std::uint32_t timeoutMs) { return InTime(tamlog_sender_flush(handle.get(), timeoutMs)); }
  // Sends the rest and takes nothing more; false when something was left over, which is counted as dropped.
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

struct Item {
  ItemKind kind = ItemKind::Message;
  tamlog::Message message;                // ItemKind::Message
  std::uint64_t lostLeast = 0;            // ItemKind::Lost
  std::optional<std::uint64_t> lostMost;  // nothing: no limit is known
};

class Reader {
 public:
  static constexpr std::uint32_t kUsualTimeoutMs = 5000;

  // The running server's log, copied. Holds nothing between calls until Wait or Next is called; from then on
  // a thread of its own lets go of the log when the server stops.
  static Reader Live(tamlog_reader_options options = Make<tamlog_reader_options>()) {
    tamlog_reader* opened = nullptr;
    const tamlog_status status = tamlog_reader_open_live(&options, &opened);
    return {"opening the log", status, opened};
  }
  // A file, read as a whole. `path` is UTF-8.
  static Reader File(const std::string& path) {
    tamlog_reader* opened = nullptr;
    const tamlog_status status = tamlog_reader_open_file(path.c_str(), &opened);
    return {path, status, opened};
  }

  // Copies anew.
  void Snapshot(std::uint32_t timeoutMs = kUsualTimeoutMs) {
    Take("reading the log", tamlog_reader_snapshot(handle.get(), timeoutMs));
  }
  // What the copy holds, oldest first.
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
  tamlog_log_info Info() const {
    auto info = Make<tamlog_log_info>();
    Check("reading the log's state", tamlog_reader_get_info(handle.get(), &info));
    return info;
  }
  // The copy met bytes that break the rules of the file; Remark says which, as far as it can.
  bool Damaged() const { return damaged; }
  std::string Remark() const { return tamlog_reader_remark(handle.get()); }

  // The next message or event; nothing when none came in time, or the file has no more (Ended).
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

  Change Wait(std::uint32_t timeoutMs) {
    std::int32_t change = TAMLOG_NOP;
    Check("waiting for the log", tamlog_reader_wait(handle.get(), timeoutMs, &change));
    return static_cast<Change>(change);
  }

  // DANGEROUS: calls `look(const tamlog_view&)` with the log in place, while the server cannot write; see
  // tamlog_reader_with_view for what `look` must not do. What it throws all the same is thrown on. False when
  // it overran its budget, or the log could not be entered in time.
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

  // Cursors: a message remembered as text.
  std::string CursorAt(std::uint32_t index) const {
    std::array<char, 256> buffer{};
    Check("making a cursor",
          tamlog_reader_get_cursor(handle.get(), index, buffer.data(), buffer.size(), nullptr));
    return buffer.data();
  }
  // Of the message that Next gave last.
  std::string LastCursor() const {
    std::array<char, 256> buffer{};
    Check("making a cursor", tamlog_reader_last_cursor(handle.get(), buffer.data(), buffer.size(), nullptr));
    return buffer.data();
  }
  // Next goes on behind the cursor's message; false when that is gone, then with the first that is later.
  bool Seek(const std::string& cursor) {
    const tamlog_status status = tamlog_reader_seek(handle.get(), cursor.c_str());
    if (status != TAMLOG_NOT_FOUND) Check("going to a cursor", status);
    return status == TAMLOG_OK;
  }
  void SeekOldest() { Check("going to the oldest message", tamlog_reader_seek(handle.get(), nullptr)); }
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

// A rule of the file that is broken; `rule` is one of TAMLOG_RULE_..., `name` the same in words.
struct Finding {
  std::int32_t rule = 0;
  bool damage = false;                // otherwise a remark
  std::optional<std::uint32_t> slot;  // nothing: about the file as a whole
  std::uint64_t offset = 0;
  std::string name;
  std::string seen;
  std::string allowed;
};

struct VerifyReport {
  tamlog_verify_result counts = Make<tamlog_verify_result>();
  std::vector<Finding> findings;  // header first, then oldest slot first

  bool Damaged() const { return counts.damage > 0; }
  // A server with the file's capacity keeps the messages.
  bool Accepted() const { return counts.accepted != 0; }
  std::uint64_t Count(std::int32_t rule) const {
    return rule >= 0 && rule < TAMLOG_MOST_RULES ? counts.count[rule] : 0;
  }
};

// What could not be saved, or only changed; `kind` is one of TAMLOG_NOTE_...
struct RepairNote {
  std::int32_t kind = 0;
  bool saved = false;                 // the message is in the output, changed
  std::optional<std::uint32_t> slot;  // nothing: not at a slot's place
  std::uint64_t offset = 0;
  std::uint64_t bytes = 0;
  std::uint64_t messages = 0;  // at most
  std::string text;
};

struct RepairReport {
  tamlog_repair_result counts = Make<tamlog_repair_result>();
  std::vector<RepairNote> notes;  // losses first
};

struct RepairOptions {
  bool carve = false;
  bool unique = false;
  bool replace = false;        // an output that exists already
  std::uint32_t capacity = 0;  // of the output; 0: the damaged file's own, and room for all
  std::uint64_t most = 0;      // notes of losses, and as many of changes; 0: 20
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

// Takes what a function of the library tells, one by one; what that throws is kept for Rethrow.
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

// `most` findings of each rule are listed, 0: 20; all are counted. Damage is no error here. `live`: it is the
// log of a running server, whose mark and whose readers are as usual.
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

// Writes what can be saved of the file at `path` into `output`; never in place.
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
