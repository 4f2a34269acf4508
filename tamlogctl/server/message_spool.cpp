#include "tamlogctl/server/message_spool.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>
#include <unordered_map>

#include "client/file/file_status.h"
#include "client/message/log_message_view.h"

namespace TamLogCtl {

namespace {

using TamLogClient::FileBytes;
using TamLogClient::MessageIdentity;
using TamLogClient::MessageIdentityHash;

// A message begins with the lengths of its texts, without zeros at their ends, and all that is no text.
constexpr std::size_t kFields = offsetof(LogMessageBody, source);
constexpr std::size_t kHead = 2 * sizeof(std::uint16_t) + kFields + sizeof(LogMessageBody::tail);
constexpr std::size_t kMostPacked = kHead + 2 * kTextSize;

std::uint16_t LengthOf(const char (&text)[kTextSize]) {
  std::size_t length = kTextSize;
  while (length > 0 && text[length - 1] == '\0') --length;
  return static_cast<std::uint16_t>(length);
}

template <typename Value>
void Append(const Value& value, std::string& to) {
  to.append(reinterpret_cast<const char*>(&value), sizeof(value));
}

void Pack(const LogMessageBody& body, std::string& to) {
  const std::uint16_t source = LengthOf(body.source);
  const std::uint16_t text = LengthOf(body.text);
  Append(source, to);
  Append(text, to);
  to.append(reinterpret_cast<const char*>(&body), kFields);
  Append(body.tail, to);
  to.append(body.source, source);
  to.append(body.text, text);
}

}  // namespace

void MessageSpool::BeginFile() {
  files.push_back(size);
}

void MessageSpool::Add(const LogMessageBody& message) {
  if (!problem.empty()) return;
  const std::size_t before = held.size();
  Pack(message, held);
  entries.push_back({TimeKey(message), size});
  size += held.size() - before;
  if (held.size() >= kMostHeld) Write();
}

void MessageSpool::Write() {
  if (!scratch) scratch = ScratchFile::Create(problem);
  if (scratch && !scratch->Write(held)) problem = scratch->Problem();
  held.clear();
}

bool MessageSpool::Sort() {
  if (scratch && problem.empty()) Write();
  bytes = scratch ? std::make_unique<FileBytes>() : std::make_unique<FileBytes>(held);
  if (scratch && problem.empty()) {
    const TamLogClient::FileStatus status = bytes->Open(scratch->Path());
    if (status != TamLogClient::Status::Ok) problem = status.Reason();
  }
  if (scratch) held.shrink_to_fit();
  const auto isOlder = [](const Entry& left, const Entry& right) {
    return left.key != right.key ? left.key < right.key : left.place < right.place;
  };
  if (!std::is_sorted(entries.begin(), entries.end(), isOlder))
    std::sort(entries.begin(), entries.end(), isOlder);
  return problem.empty();
}

std::size_t MessageSpool::FileOf(const Entry& entry) const {
  const auto after = std::upper_bound(files.begin(), files.end(), entry.place);
  return static_cast<std::size_t>(after - files.begin()) - 1;
}

// Equal messages have equal times.
std::vector<std::size_t> MessageSpool::LeaveOutRepeated() {
  struct Copies {
    std::size_t kept = 0;
    std::size_t file = 0;  // the one that is counted
    std::size_t inFile = 0;
  };
  std::vector<std::size_t> leftOut(files.size());
  std::unordered_map<MessageIdentity, Copies, MessageIdentityHash> met;
  std::size_t kept = 0;
  for (std::size_t begin = 0, end = 0; begin < entries.size(); begin = end) {
    while (end < entries.size() && entries[end].key == entries[begin].key) ++end;
    const bool ofOneFile = FileOf(entries[begin]) == FileOf(entries[end - 1]);
    met.clear();
    for (std::size_t i = begin; i < end; ++i) {
      const std::size_t file = FileOf(entries[i]);
      Copies& copies = ofOneFile ? met[{}] : met[TamLogClient::IdentityOf(At(i))];
      if (copies.file != file) copies.inFile = 0;
      copies.file = file;
      const bool stays = ofOneFile || ++copies.inFile > copies.kept;
      if (stays) ++copies.kept;
      if (stays) entries[kept++] = entries[i];
      if (!stays) ++leftOut[file];
    }
  }
  entries.resize(kept);
  return leftOut;
}

LogMessageBody MessageSpool::Missing() {
  problem =
      bytes->Failure() == TamLogClient::Status::Ok ? "the file became shorter" : bytes->Failure().Reason();
  return {};
}

LogMessageBody MessageSpool::At(std::size_t index) {
  LogMessageBody body{};
  const std::string_view packed = bytes->View(entries[index].place, kMostPacked);
  std::array<std::uint16_t, 2> lengths{};
  if (packed.size() < kHead) return Missing();
  std::memcpy(lengths.data(), packed.data(), sizeof(lengths));
  std::memcpy(&body, packed.data() + sizeof(lengths), kFields);
  std::memcpy(body.tail, packed.data() + sizeof(lengths) + kFields, sizeof(body.tail));
  const std::size_t source = std::min<std::size_t>(lengths[0], kTextSize);
  const std::size_t text = std::min<std::size_t>(lengths[1], kTextSize);
  if (packed.size() < kHead + source + text) return Missing();
  std::memcpy(body.source, packed.data() + kHead, source);
  std::memcpy(body.text, packed.data() + kHead + source, text);
  return body;
}

}  // namespace TamLogCtl
