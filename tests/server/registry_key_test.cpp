#include "server/registry_key.h"

#include <gtest/gtest.h>

#include "tests/server/faults.h"
#include "tests/server/support.h"
#include "util/exceptions.h"
#include "util/win32.h"

namespace {

using TamLogUtil::Exceptions::ExceptionWindows;

class RegistryKeyTest : public testing::Test {
 protected:
  RegistryKeyTest() { registry::DeleteAll(); }
  ~RegistryKeyTest() override { registry::DeleteAll(); }

  template <class Action>
  static void ExpectFailure(Action&& action, const std::string& text, std::uint32_t code) {
    try {
      action();
      ADD_FAILURE() << "did not throw";
    } catch (const ExceptionWindows& failure) {
      EXPECT_EQ(failure.GetMessage(), text + ErrorSuffix(code));
      EXPECT_EQ(failure.ErrorCode(), code);
    }
  }
};

using namespace registry;

TEST_F(RegistryKeyTest, CreatesAMissingKeyWithItsParents) {
  const RegistryKey key(kMainKey);
  EXPECT_TRUE(KeyExists(kMainKey));
}

// Keys inherit their access list from the keys above. The test machine's system keeps no list that could be
// read back, so the test checks the arguments of the call.
TEST_F(RegistryKeyTest, KeysAreMadeWithoutAnAccessListOfTheirOwn) {
  faults::Reset();
  const RegistryKey key(kMainKey);
  const RegistryKey filters(key, "Filters");
  EXPECT_EQ(faults::keysWithAccessList, 0);
}

TEST_F(RegistryKeyTest, OpensAnExistingKeyAsItIs) {
  SetNumber("MaxMessage", 7);
  RegistryKey key(kMainKey);
  EXPECT_EQ(key.ReadNumber("MaxMessage", 1), 7U);
}

TEST_F(RegistryKeyTest, KeyThatCannotBeCreatedThrowsTheCallsResult) {
  ReplaceByVolatileParent();
  SetLastError(ERROR_INVALID_HANDLE);  // not this one
  ExpectFailure([] { const RegistryKey key(kMainKey); }, "RegCreateKeyEx() failed",
                ERROR_CHILD_MUST_BE_VOLATILE);
}

TEST_F(RegistryKeyTest, MissingNumberIsWrittenWithItsDefault) {
  RegistryKey key(kMainKey);
  EXPECT_EQ(key.ReadNumber("MaxMessage", 50000), 50000U);
  EXPECT_EQ(Number("MaxMessage"), 50000U);
}

TEST_F(RegistryKeyTest, MissingTextIsWrittenWithItsDefaultAndAZero) {
  RegistryKey key(kMainKey);
  EXPECT_EQ(key.ReadText("LogFile", "C:\\x"), "C:\\x");
  ASSERT_TRUE(Read(kMainKey, "LogFile"));
  EXPECT_EQ(Read(kMainKey, "LogFile")->type, static_cast<std::uint32_t>(REG_SZ));
  EXPECT_EQ(Read(kMainKey, "LogFile")->data, std::string("C:\\x\0", 5));
}

TEST_F(RegistryKeyTest, NumberLongerThanFourBytesCannotBeRead) {
  Write(kMainKey, "MaxMessage", REG_QWORD, std::string(8, '\1'));
  RegistryKey key(kMainKey);
  ExpectFailure([&] { key.ReadNumber("MaxMessage", 1); }, "ReadData() failed", ERROR_MORE_DATA);
}

TEST_F(RegistryKeyTest, TextOf255CharactersIsReadAndALongerOneIsNot) {
  SetText("LogFile", std::string(255, 'a'));
  RegistryKey key(kMainKey);
  EXPECT_EQ(key.ReadText("LogFile", ""), std::string(255, 'a'));
  SetText("LogFile", std::string(256, 'a'));
  ExpectFailure([&] { key.ReadText("LogFile", ""); }, "ReadData() failed", ERROR_MORE_DATA);
}

TEST_F(RegistryKeyTest, BinaryTextOf256BytesWithoutZeroIsReadWhole) {
  Write(kMainKey, "LogFile", REG_BINARY, std::string(256, 'b'));
  RegistryKey key(kMainKey);
  EXPECT_EQ(key.ReadText("LogFile", ""), std::string(256, 'b'));
}

TEST_F(RegistryKeyTest, TextEndsAtItsFirstZero) {
  Write(kMainKey, "LogFile", REG_SZ, std::string("ab\0cd\0", 6));
  RegistryKey key(kMainKey);
  EXPECT_EQ(key.ReadText("LogFile", ""), "ab");
}

TEST_F(RegistryKeyTest, BytesAbove127SurviveWritingAndReading) {
  RegistryKey key(kMainKey);
  key.WriteText("LogFile", "C:\\\xE4\xF6\xFC.dat");
  EXPECT_EQ(key.ReadText("LogFile", ""), "C:\\\xE4\xF6\xFC.dat");
}

TEST_F(RegistryKeyTest, ClosedKeyIgnoresFailedWritesAndDeletions) {
  RegistryKey key(kMainKey);
  DeleteAll();  // the open key is deleted now
  key.WriteNumber("MaxMessage", 1);
  key.WriteText("LogFile", "x");
  key.DeleteSubkey("Filters");
  EXPECT_FALSE(KeyExists(kMainKey));
}

TEST_F(RegistryKeyTest, SubkeyIsCreatedAndDeleted) {
  RegistryKey key(kMainKey);
  {
    const RegistryKey filters(key, "Filters");
    EXPECT_TRUE(KeyExists(kFiltersKey));
  }
  key.DeleteSubkey("Filters");
  EXPECT_FALSE(KeyExists(kFiltersKey));
  key.DeleteSubkey("Filters");  // missing: ignored
}

TEST_F(RegistryKeyTest, WalkReturnsEveryValueAndThenStartsAgain) {
  AddFilterValue("a", "one");
  AddFilterValue("b", "two");
  RegistryKey key(kFiltersKey);
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(key.NextValue(), "one");
    EXPECT_EQ(key.NextValue(), "two");
    EXPECT_EQ(key.NextValue(), std::nullopt);
  }
}

TEST_F(RegistryKeyTest, WalkReadsValuesOfAnyLength) {
  AddFilterValue("a", std::string(1500, 'l'));
  AddFilterValue("b", "");
  Write(kFiltersKey, "c", REG_SZ, "");
  Write(kFiltersKey, "d", REG_BINARY, "raw");
  RegistryKey key(kFiltersKey);
  EXPECT_EQ(key.NextValue(), std::string(1500, 'l'));
  EXPECT_EQ(key.NextValue(), "");
  EXPECT_EQ(key.NextValue(), "");
  EXPECT_EQ(key.NextValue(), "raw");
  EXPECT_EQ(key.NextValue(), std::nullopt);
}

TEST_F(RegistryKeyTest, WalkEndsAtAValueNameThatIsTooLong) {
  AddFilterValue("a", "seen");
  AddFilterValue(std::string(64, 'b'), "too long");
  AddFilterValue("c", "not reached");
  RegistryKey key(kFiltersKey);
  EXPECT_EQ(key.NextValue(), "seen");
  EXPECT_EQ(key.NextValue(), std::nullopt);
}

}  // namespace
