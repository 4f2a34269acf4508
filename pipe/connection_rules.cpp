#include "pipe/connection_rules.h"

namespace {

// The system's error codes as numbers, because this file is also built without its headers.
constexpr std::uint32_t kBrokenPipe = 109;
constexpr std::uint32_t kBadPipe = 230;
constexpr std::uint32_t kPipeNotConnected = 233;
constexpr std::uint32_t kMoreData = 234;
constexpr std::uint32_t kWaitTimeout = 258;

constexpr std::uint32_t kMaxRetries = 11;

}  // namespace

AfterFailedRead JudgeFailedRead(std::uint32_t error) {
  switch (error) {
    case kBrokenPipe:
    case kBadPipe:
    case kPipeNotConnected:
      return AfterFailedRead::EndConnection;
    case kMoreData:
      return AfterFailedRead::ReadRestOfMessage;
    case kWaitTimeout:
      return AfterFailedRead::CancelReadAndEnd;
    default:
      return AfterFailedRead::TryAgain;
  }
}

bool ReadRetries::Allow() {
  if (count >= kMaxRetries) return false;
  ++count;
  return true;
}

std::optional<ReplyCode> ReplyWithoutHandler(bool overlong, std::uint32_t requestCode,
                                             bool handlerInstalled) {
  if (overlong) return ReplyCode::TooLong;
  if (requestCode < kFirstHandledCode || requestCode > kLastHandledCode) return ReplyCode::UnknownRequest;
  if (!handlerInstalled) return ReplyCode::Failed;
  return std::nullopt;
}
