#include <gtest/gtest.h>

#include <memory>

#include "util/exceptions.h"
#include "util/win32.h"

namespace TamLogUtil::Exceptions {
namespace {

// The system's text for `code`, read without the code under test.
std::string SystemText(DWORD code) {
  char buffer[512] = {};
  FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, code, 0x400, buffer,
                 sizeof(buffer), nullptr);
  return buffer;
}

TEST(ExceptionWindows, TakesTheLastErrorOfTheFailedCall) {
  const BOOL closed = CloseHandle(nullptr);
  const ExceptionWindows failure("CloseHandle() failed:");
  EXPECT_EQ(closed, FALSE);
  EXPECT_EQ(failure.ErrorCode(), static_cast<std::uint32_t>(ERROR_INVALID_HANDLE));
}

TEST(ExceptionWindows, KeepsAGivenCodeWhateverTheLastError) {
  SetLastError(ERROR_ACCESS_DENIED);
  EXPECT_EQ(ExceptionWindows("text", nullptr, 32).ErrorCode(), 32U);
}

TEST(ExceptionWindows, ReadsTheLastErrorBeforeAnythingElse) {
  // A text and a chain of causes long enough to be allocated and copied.
  const ExceptionBase cause(std::string(1000, 'c'));
  const std::string text(1000, 't');
  SetLastError(1117);
  EXPECT_EQ(ExceptionWindows(text, &cause).ErrorCode(), 1117U);
}

TEST(ExceptionWindows, RendersMessageCodeAndTheSystemsTextWithItsLineBreak) {
  const std::string system = SystemText(ERROR_ACCESS_DENIED);
  ASSERT_EQ(system.substr(system.size() - 2), "\r\n");
  EXPECT_EQ(ExceptionWindows("CreateEvent() failed", nullptr, 5).GetMessage(),
            "CreateEvent() failed - Error code : 5 - " + system);
}

TEST(ExceptionWindows, RendersTheCodeWithoutSign) {
  const std::string text = ExceptionWindows("text", nullptr, 0xFFFFFFFFU).GetMessage();
  EXPECT_EQ(text.substr(0, 33), "text - Error code : 4294967295 - ");
}

TEST(ExceptionWindows, ACodeWithoutASystemTextGetsAnEmptyOne) {
  ASSERT_EQ(SystemText(0xC0000006U), "");
  EXPECT_EQ(ExceptionWindows("text", nullptr, 0xC0000006U).GetMessage(), "text - Error code : 3221225478 - ");
}

TEST(ExceptionWindows, IsDecoratedAtEveryLevelOfAChain) {
  const ExceptionWindows cause("SetEvent failed", nullptr, 6);
  const ExceptionBase failure("Failed to SetSignal for Event object", &cause);
  EXPECT_EQ(failure.Compose(":"),
            "Failed to SetSignal for Event object:SetEvent failed - Error code : 6 - " + SystemText(6));
}

TEST(ExceptionWindows, CloneKeepsTypeAndCodeAtEveryLevel) {
  const ExceptionWindows cause("cause", nullptr, 2);
  const ExceptionWindows failure("failure", &cause, 3);
  const std::unique_ptr<ExceptionBase> clone = failure.Clone();
  const auto* windows = dynamic_cast<ExceptionWindows*>(clone.get());
  ASSERT_NE(windows, nullptr);
  EXPECT_EQ(windows->ErrorCode(), 3U);
  EXPECT_EQ(clone->Compose("\n"), failure.Compose("\n"));
  EXPECT_NE(clone->Compose("\n").find("cause - Error code : 2 - "), std::string::npos);
}

TEST(ExceptionWindows, CopyKeepsTheCode) {
  const ExceptionWindows failure("failure", nullptr, 3);
  SetLastError(5);
  const auto copy = std::make_unique<ExceptionWindows>(failure);
  EXPECT_EQ(copy->ErrorCode(), 3U);
}

}  // namespace
}  // namespace TamLogUtil::Exceptions
