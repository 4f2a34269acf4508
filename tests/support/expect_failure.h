#pragma once

// Expects an exception of the ExceptionBase family by its text.
//
//   ExpectFailure<ExceptionBase>([&] { event.Wait(0); },
//                                "Failed to Wait for Event object\n" +
//                                    WindowsText("WaitForSingleObject failed", 6));

#include <gtest/gtest.h>

#include <string>
#include <typeinfo>

#include "util/exceptions.h"

namespace TestSupport {

// Returns the text that ExceptionWindows renders for `message` and `code` on the system that the test runs
// on.
inline std::string WindowsText(const std::string& message, std::uint32_t code) {
  return TamLogUtil::Exceptions::ExceptionWindows(message, nullptr, code).GetMessage();
}

// Expects that `action` throws exactly Expected, whose whole chain composes to `text`.
template <class Expected, class Action>
void ExpectFailure(Action action, const std::string& text) {
  try {
    action();
  } catch (const TamLogUtil::Exceptions::ExceptionBase& failure) {
    EXPECT_EQ(failure.Compose("\n"), text);
    EXPECT_STREQ(typeid(failure).name(), typeid(Expected).name());
    return;
  }
  ADD_FAILURE() << "nothing was thrown; expected: " << text;
}

}  // namespace TestSupport
