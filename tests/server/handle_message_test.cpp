// Requests carried out by a service object that was never started: nothing here needs driver or file.

#include <gtest/gtest.h>

#include <memory>

#include "tests/server/faults.h"
#include "tests/server/requests.h"
#include "tests/server/support.h"
#include "util/diagnostic_log.h"
#include "util/win32.h"

namespace {

class HandleMessage : public testing::Test {
 protected:
  HandleMessage() {
    faults::Reset();
    TamLogUtil::SetLogFile(folder.File("Diagnostic.txt"));
  }
  ~HandleMessage() override {
    faults::Reset();
    TamLogUtil::SetLogFile("");
  }

  std::string Diagnostics() const { return WithoutCarriageReturns(ReadBytes(folder.File("Diagnostic.txt"))); }

  TempDir folder;
  // Held by pointer: its destructor may throw, a fixture's may not.
  std::unique_ptr<ServerService> owned = std::make_unique<ServerService>();
  ServerService& service = *owned;
};

TEST_F(HandleMessage, FileMapNameIsReported) {
  const PipeReply reply = Ask(service, RequestCode::GetFileMapName);
  EXPECT_EQ(reply.code, 12U);
  EXPECT_STREQ(reply.path, "Global\\TamLogServiceFileMap");
}

TEST_F(HandleMessage, PingIsAnsweredAlive) {
  const PipeReply reply = Ask(service, RequestCode::Ping);
  EXPECT_EQ(reply.code, 13U);
  EXPECT_TRUE(BodyUntouchedFrom(reply, 0));
}

TEST_F(HandleMessage, PingMapNameAndDefaultPathTakeNoLock) {
  faults::WatchWaits(0);
  Ask(service, RequestCode::Ping);
  Ask(service, RequestCode::GetFileMapName);
  Ask(service, RequestCode::GetDefaultLogFile);
  EXPECT_EQ(faults::WaitsSeen(), 0);
  Ask(service, RequestCode::GetSettings);
  EXPECT_EQ(faults::WaitsSeen(), 1);
}

TEST_F(HandleMessage, SubmittedMessageIsDoneAlsoWhenTheFiltersRejectIt) {
  // All four types are off before the first load.
  const PipeReply reply = Submit(service, MakeMessage("dropped"));
  EXPECT_EQ(reply.code, 11U);
  EXPECT_TRUE(BodyUntouchedFrom(reply, 0));
}

TEST_F(HandleMessage, SettingsAreReportedAsTheyWereSet) {
  const PipeReply done = SetSettings(service, {1234, 567, 0x6, 89});
  EXPECT_EQ(done.code, 11U);
  EXPECT_TRUE(BodyUntouchedFrom(done, 0));
  const PipeReply reply = Ask(service, RequestCode::GetSettings);
  EXPECT_EQ(reply.code, 14U);
  EXPECT_EQ(reply.settings.maxMessage, 1234U);
  EXPECT_EQ(reply.settings.devicePollRate, 567U);
  EXPECT_EQ(reply.settings.typeFilter, 0x6U);
  EXPECT_EQ(reply.settings.saveRate, 89U);
  EXPECT_TRUE(BodyUntouchedFrom(reply, sizeof(SettingsBody)));
}

TEST_F(HandleMessage, CapacityIsBroughtIntoRange) {
  const auto stored = [&](std::uint32_t wanted) {
    SetSettings(service, {wanted, 1, 0, 1});
    return Settings(service).maxMessage;
  };
  EXPECT_EQ(stored(0), 1U);
  EXPECT_EQ(stored(1), 1U);
  EXPECT_EQ(stored(1000000), 1000000U);
  EXPECT_EQ(stored(1000001), 1000000U);
  EXPECT_EQ(stored(0xFFFFFFFF), 1000000U);
}

TEST_F(HandleMessage, RatesAreStoredWithoutAnyCheck) {
  SetSettings(service, {10, 0, 0xF, 0});
  EXPECT_EQ(Settings(service).devicePollRate, 0U);
  EXPECT_EQ(Settings(service).saveRate, 0U);
  SetSettings(service, {10, 0xFFFFFFFF, 0xF, 0xFFFFFFFF});
  EXPECT_EQ(Settings(service).devicePollRate, 0xFFFFFFFFU);
  EXPECT_EQ(Settings(service).saveRate, 0xFFFFFFFFU);
}

TEST_F(HandleMessage, TypeFilter0x10SwitchesAllTypesOff) {
  SetSettings(service, {10, 1, 0xF, 1});
  EXPECT_EQ(Settings(service).typeFilter, 0xFU);
  SetSettings(service, {10, 1, 0x10, 1});
  EXPECT_EQ(Settings(service).typeFilter, 0U);
}

TEST_F(HandleMessage, LogFilePathIsReportedAtOnceAfterItWasSet) {
  const PipeReply done = Ask(service, MakeRequest(RequestCode::SetLogFile, "D:\\logs\\new.dat"));
  EXPECT_EQ(done.code, 11U);
  EXPECT_TRUE(BodyUntouchedFrom(done, 0));
  const PipeReply reply = Ask(service, RequestCode::GetLogFile);
  EXPECT_EQ(reply.code, 15U);
  EXPECT_STREQ(reply.path, "D:\\logs\\new.dat");
}

TEST_F(HandleMessage, PathEndsAtItsFirstZeroByte) {
  Ask(service, MakeRequest(RequestCode::SetLogFile, std::string("C:\\a\0rest", 9)));
  EXPECT_STREQ(Ask(service, RequestCode::GetLogFile).path, "C:\\a");
}

TEST_F(HandleMessage, LongestPathThatFitsIsReported) {
  const std::string path(1023, 'p');
  Ask(service, MakeRequest(RequestCode::SetLogFile, path));
  EXPECT_EQ(Ask(service, RequestCode::GetLogFile).path, path);
}

TEST_F(HandleMessage, PathWithoutZeroByteIsStoredUpToTheEndOfTheRecord) {
  EXPECT_TRUE(
      Is(Ask(service, MakeRequest(RequestCode::SetLogFile, std::string(1024, 'p'))), ReplyCode::Done));
  // Requesting it would end the process (see the death tests); another one takes its place.
  Ask(service, MakeRequest(RequestCode::SetLogFile, "short"));
  EXPECT_STREQ(Ask(service, RequestCode::GetLogFile).path, "short");
}

TEST_F(HandleMessage, DefaultPathIsNextToTheExecutable) {
  const PipeReply reply = Ask(service, RequestCode::GetDefaultLogFile);
  EXPECT_EQ(reply.code, 15U);
  EXPECT_EQ(reply.path, ExecutableFolder() + "\\Logs.dat");
}

TEST_F(HandleMessage, FilterIndexRunsOverTheIncludeFiltersAndThenTheExcludeFilters) {
  AddFilter(service, "ex0", 0);
  AddFilter(service, "in0", 1);
  AddFilter(service, "ex1", 0);
  AddFilter(service, "in1", 2);
  AddFilter(service, "ex2", 0);
  const char* const texts[] = {"in0", "in1", "ex0", "ex1", "ex2"};
  for (std::uint32_t index = 0; index < 5; ++index) {
    const PipeReply reply = GetFilter(service, index);
    EXPECT_EQ(reply.code, 16U);
    EXPECT_STREQ(reply.filter.text, texts[index]);
    EXPECT_EQ(reply.filter.kind, index < 2 ? 1U : 0U);
  }
  for (const std::uint32_t index : {5U, 6U, 0xFFFFFFFFU}) {
    const PipeReply reply = GetFilter(service, index);
    EXPECT_EQ(reply.code, 8U);
    EXPECT_TRUE(BodyUntouchedFrom(reply, 0));
  }
}

TEST_F(HandleMessage, NoFilterIsLeftAfterClearFilters) {
  AddFilter(service, "in", 1);
  AddFilter(service, "ex", 0);
  const PipeReply done = Ask(service, RequestCode::ClearFilters);
  EXPECT_EQ(done.code, 11U);
  EXPECT_TRUE(BodyUntouchedFrom(done, 0));
  EXPECT_EQ(GetFilter(service, 0).code, 8U);
}

TEST_F(HandleMessage, EmptyAndRepeatedFiltersAreStored) {
  EXPECT_EQ(AddFilter(service, "", 1).code, 11U);
  AddFilter(service, "same", 1);
  AddFilter(service, "same", 1);
  EXPECT_STREQ(GetFilter(service, 0).filter.text, "");
  EXPECT_STREQ(GetFilter(service, 1).filter.text, "same");
  EXPECT_STREQ(GetFilter(service, 2).filter.text, "same");
}

TEST_F(HandleMessage, LongestFilterThatFitsIsReported) {
  const std::string text(127, 'f');
  AddFilter(service, text, 0);
  EXPECT_EQ(GetFilter(service, 0).filter.text, text);
}

// A text that fills its field continues into the kind after it, whose bytes are then part of the text and,
// not being zero, make it an include filter.
TEST_F(HandleMessage, TextThatRunsIntoItsKindMakesAnIncludeFilter) {
  GuardedRequest asked = MakeRequest(RequestCode::AddFilter, std::string(130, 'f'));
  EXPECT_NE(asked.request.filter.kind, 0U);
  EXPECT_TRUE(Is(Ask(service, asked), ReplyCode::Done));
  AddFilter(service, "exclude", 0);
  EXPECT_STREQ(GetFilter(service, 1).filter.text, "exclude");
  EXPECT_EQ(GetFilter(service, 1).filter.kind, 0U);
}

TEST_F(HandleMessage, CodesThatAreNoRequestsAreAnsweredUnknown) {
  for (const std::uint32_t code : {14U, 0U, 1U, 15U, 0xFFFFFFFFU}) {
    GuardedRequest asked = MakeRequest(RequestCode::Ping);
    asked.request.code = code;
    const PipeReply reply = Ask(service, asked);
    EXPECT_EQ(reply.code, 5U);
    EXPECT_TRUE(BodyUntouchedFrom(reply, 0));
  }
}

TEST_F(HandleMessage, FailedRequestIsLoggedAnsweredFailedAndReleasesItsLocks) {
  const PipeReply reply = Ask(service, RequestCode::ClearLog);
  EXPECT_EQ(reply.code, 7U);
  EXPECT_TRUE(BodyUntouchedFrom(reply, 0));
  EXPECT_EQ(
      Diagnostics().substr(Diagnostics().find(" - ")),
      " - Exception thrown in message handler : Failed to grab write access, some handles or pointers are "
      "invalid\n");
  EXPECT_EQ(Ask(service, RequestCode::GetSettings).code, 14U);
}

TEST_F(HandleMessage, FailureIsLoggedWithItsWholeChain) {
  faults::WatchWaits(1);
  EXPECT_EQ(Ask(service, RequestCode::GetSettings).code, 7U);
  faults::WatchWaits(0);
  EXPECT_EQ(
      Diagnostics().substr(Diagnostics().find(" - ")),
      WithoutCarriageReturns(" - Exception thrown in message handler : Failed to Wait for Mutex object\n"
                             "WaitForSingleObject failed" +
                             ErrorSuffix(ERROR_INVALID_HANDLE) + "\n"));
}

TEST_F(HandleMessage, ExceptionsOfOtherKindsAreLeftToTheTransport) {
  PipeReply reply{};
  faults::WatchWaits(1, true);
  EXPECT_THROW(service.HandleMessage(MakeRequest(RequestCode::GetSettings).request, reply), ForeignException);
  faults::WatchWaits(0);
  EXPECT_EQ(Diagnostics(), "");
}

TEST_F(HandleMessage, RestartThreadThatCannotBeStartedFailsTheRequestAndKeepsTheSettings) {
  faults::createThreadFails = true;
  EXPECT_EQ(SetSettings(service, {50, 60, 0x3, 70}).code, 7U);
  faults::createThreadFails = false;
  EXPECT_EQ(Settings(service).maxMessage, 50U);
  EXPECT_NE(
      Diagnostics().find(" - Exception thrown in message handler : Failed to start Thread object, invalid "
                         "handle returned by CreateThread() - Error code : 8"),
      std::string::npos)
      << Diagnostics();
}

}  // namespace
