#include "tests/client/file/damaged_files.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "client/file/log_file_image.h"
#include "store/integrity.h"
#include "tests/support/ring_model.h"

namespace TamLogTest {

namespace {

using TamLogClient::LogFileImage;

// The bytes as the server sees them after it mapped them.
class ImageSlots final : public SlotSource {
 public:
  explicit ImageSlots(const std::string& file) : bytes(file) {}

  std::size_t LookAt(std::int64_t newest, std::size_t /*count*/, SlotCheck& check) override {
    if (newest < 0) return 0;
    LogMessage message;
    const std::uint64_t offset = LogFileSize(static_cast<std::uint64_t>(newest));
    if (offset + sizeof(message) > bytes.size()) return 0;
    std::memcpy(&message, bytes.data() + offset, sizeof(message));
    check.Look(&message, 1);
    return 1;
  }

 private:
  const std::string& bytes;
};

void FillRandom(Random& random, std::string& bytes, std::size_t from, std::size_t count) {
  for (std::size_t i = from; i < from + count; ++i) bytes[i] = static_cast<char>(Pick(random, 256));
}

void FlipBits(Random& random, std::string& bytes, std::size_t from, std::size_t to) {
  for (std::size_t i = 1 + Pick(random, 4); i > 0; --i) {
    char& byte = bytes[from + Pick(random, to - from)];
    byte = static_cast<char>(static_cast<unsigned char>(byte) ^ (1U << Pick(random, 8)));
  }
}

void SwapSlots(Random& random, std::string& bytes) {
  const std::size_t slots = (bytes.size() - kSlotsOffset) / sizeof(LogMessage);
  const std::size_t first = Pick(random, slots);
  const std::size_t second = Pick(random, slots);
  const auto at = [&bytes](std::size_t slot) {
    return bytes.begin() + static_cast<std::ptrdiff_t>(LogFileSize(slot));
  };
  std::swap_ranges(at(first), at(first) + sizeof(LogMessage), at(second));
}

}  // namespace

std::size_t Pick(Random& random, std::size_t below) {
  return std::uniform_int_distribution<std::size_t>(0, below - 1)(random);
}

std::string RandomLogFile(Random& random, std::int32_t capacity) {
  RingModel log(capacity);
  std::int32_t time = 1000000;
  const std::size_t flushes = 1 + Pick(random, 6);
  for (std::size_t flush = 0, number = 0; flush < flushes; ++flush) {
    const std::size_t most = static_cast<std::size_t>(capacity) * (Pick(random, 4) == 0 ? 2 : 1);
    for (std::size_t i = Pick(random, most + 1); i > 0; --i) {
      time += static_cast<std::int32_t>(Pick(random, 3)) * 250;
      const auto late = static_cast<std::int32_t>(Pick(random, 8) == 0 ? Pick(random, 5000) : 0);
      LogMessageBody body = MakeBody(time - late, "message " + std::to_string(++number), "Source",
                                     static_cast<std::uint32_t>(Pick(random, kMessageTypes)));
      for (std::uint8_t& byte : body.origin) byte = static_cast<std::uint8_t>(Pick(random, 256));
      log.Submit(body);
    }
    log.Flush();
  }
  if (Pick(random, 12) == 0) log.Clear();
  return ImageOf(log.Snapshot());
}

const char* DamageName(Damage damage) {
  switch (damage) {
    case Damage::Cut:
      return "cut at the end";
    case Damage::Grown:
      return "grown at the end";
    case Damage::Zeroed:
      return "a range zeroed";
    case Damage::Scribbled:
      return "a range overwritten";
    case Damage::HeaderBits:
      return "bits of the header";
    case Damage::SlotBits:
      return "bits of slots";
    case Damage::BytesLost:
      return "bytes lost inside";
    case Damage::BytesAdded:
      return "bytes added inside";
    case Damage::SlotsSwapped:
      return "slots swapped";
  }
  return "";
}

void Inflict(Damage damage, Random& random, std::string& bytes) {
  const std::size_t at = Pick(random, bytes.size());
  const std::size_t length = 1 + Pick(random, std::min<std::size_t>(bytes.size() - at, 2000));
  switch (damage) {
    case Damage::Cut:
      bytes.resize(at);
      return;
    case Damage::Grown:
      bytes.resize(bytes.size() + length);
      FillRandom(random, bytes, bytes.size() - length, length);
      return;
    case Damage::Zeroed:
      bytes.replace(at, length, length, '\0');
      return;
    case Damage::Scribbled:
      FillRandom(random, bytes, at, length);
      return;
    case Damage::HeaderBits:
      FlipBits(random, bytes, 0, sizeof(LogFileHeader));
      return;
    case Damage::SlotBits:
      FlipBits(random, bytes, kSlotsOffset, bytes.size());
      return;
    case Damage::BytesLost:
      bytes.erase(at, length);
      return;
    case Damage::BytesAdded:
      bytes.insert(at, length, '\0');
      FillRandom(random, bytes, at, length);
      return;
    case Damage::SlotsSwapped:
      SwapSlots(random, bytes);
      return;
  }
}

bool ServerKeeps(const std::string& bytes) {
  if (bytes.size() < kSlotsOffset) return false;
  LogFileHeader header{};
  std::memcpy(&header, bytes.data(), sizeof(header));
  header.readCount = 1;  // it sets 0 when it maps the file, and comes in itself
  ImageSlots slots(bytes);
  return FirstBrokenRule(header, slots) == IntegrityRule::NoneBroken;
}

std::string BodyBytes(const LogMessage& message) {
  return {reinterpret_cast<const char*>(&message.body), sizeof(message.body)};
}

std::vector<std::string> BodiesInRing(const std::string& bytes) {
  const LogFileImage image(bytes);
  std::vector<std::string> bodies;
  for (const std::uint32_t slot : image.RingSlots()) bodies.push_back(BodyBytes(image.Slot(slot)));
  return bodies;
}

}  // namespace TamLogTest
