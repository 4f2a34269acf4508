// Fuzzes the checker and the repair of log files: they must survive any bytes, and the saved messages must
// pass the rules. The checker's verdict is compared with its verdict on the repaired file.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "client/file/log_file_repair.h"
#include "client/file/log_file_verify.h"
#include "client/file/log_recognition.h"
#include "client/file/slot_layout.h"
#include "client/log/log_snapshot.h"
#include "client/message/log_message_view.h"
#include "fuzz/input.h"

namespace {

using Fuzz::Require;
using TamLogClient::LogFileImage;
using TamLogClient::LogMessageView;

void Read(const LogFileImage& image) {
  TamLogClient::LogSnapshot snapshot;
  snapshot.header = image.Header();
  for (std::uint64_t slot = 0; slot < image.SlotsThere(); ++slot) snapshot.slots.push_back(image.Slot(slot));
  const auto order = OrderMessages(snapshot);
  Require(order.oldestFirst.size() <= snapshot.slots.size());
  for (const std::uint32_t slot : order.oldestFirst) Require(slot < snapshot.slots.size());
}

void Repair(const LogFileImage& image, bool carve) {
  const auto plan = TamLogClient::PlanRepair(image, {.carve = carve, .unique = !carve, .most = 3});
  std::uint64_t key = 0;
  for (const auto& saved : plan.oldestFirst) {
    const LogMessage message = SavedMessageOf(image, saved);
    Require(!LogMessageView(message).Damaged());
    Require(TimeKey(message.body) >= key);
    key = TimeKey(message.body);
  }
  Require(plan.capacity > 0 && plan.capacity >= std::min<std::uint64_t>(plan.oldestFirst.size(), 1000000));
  Require(plan.doubtful <= plan.oldestFirst.size() + plan.repeated);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const LogFileImage image(bytes);
  const auto report = TamLogClient::VerifyLogFile(image, {.most = 3});
  // The repair of a file without damage that a server accepts loses nothing but blank slots.
  const auto plan = TamLogClient::PlanRepair(image);
  if (report.Accepted() && report.Damage() == 0 && image.HasHead()) {
    Require(plan.textsCut == 0);
    for (const auto& loss : plan.losses) Require(loss.reason == TamLogClient::LossReason::Blank);
  }
  const bool isLog = WhyNoLog(image).empty();
  Require(isLog || (!image.SizeFits() && !HoldsAnyMessage(image)));
  Repair(image, false);
  Repair(image, true);
  Read(image);
  return 0;
}
