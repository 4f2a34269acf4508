// Fuzzes the server's own rules for log files: they must survive any bytes, and the client's checker must
// come to the same result.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "client/file/log_file_verify.h"
#include "store/integrity.h"

namespace {

using TamLogClient::LogFileImage;

class ImageSlots final : public SlotSource {
 public:
  explicit ImageSlots(const LogFileImage& checked) : image(checked) {}

  std::size_t LookAt(std::int64_t newest, std::size_t /*count*/, SlotCheck& check) override {
    if (newest < 0 || static_cast<std::uint64_t>(newest) >= image.SlotsThere()) return 0;
    const LogMessage message = image.Slot(static_cast<std::uint64_t>(newest));
    check.Look(&message, 1);
    return 1;
  }

 private:
  const LogFileImage& image;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const LogFileImage image(std::string_view(reinterpret_cast<const char*>(data), size));
  if (!image.HasHead()) return 0;
  LogFileHeader header = image.Header();
  header.readCount = 1;  // the server sets 0 and enters
  ImageSlots slots(image);
  const bool kept = FirstBrokenRule(header, slots) == IntegrityRule::NoneBroken;
  if (kept != TamLogClient::VerifyLogFile(image, {.most = 2}).Accepted()) std::abort();
  return 0;
}
