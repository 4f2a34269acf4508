#include "tests/server/server_fixture.h"
#include "util/exceptions.h"
#include "util/win32.h"

namespace {

using Configuration = ServerTest;

std::string FilterText(ServerService& service, std::uint32_t index) {
  const PipeReply reply = GetFilter(service, index);
  if (!Is(reply, ReplyCode::Filter)) return "(none)";
  return std::string(reply.filter.kind == 1 ? "include " : "exclude ") + reply.filter.text;
}

TEST_F(Configuration, FirstStartWritesEveryDefault) {
  registry::DeleteAll();
  const std::string defaultPath = ExecutableFolder() + "\\Logs.dat";
  service->OnStart();
  EXPECT_EQ(registry::Text("LogFile"), defaultPath);
  EXPECT_EQ(registry::Number("MaxMessage"), 50000U);
  EXPECT_EQ(registry::Number("DevicePollRate"), 1000U);
  EXPECT_EQ(registry::Number("SaveRate"), 300U);
  EXPECT_EQ(registry::Number("TypeFilter"), 0xFFFFFFFFU);
  EXPECT_TRUE(registry::KeyExists(registry::kFiltersKey));
  EXPECT_TRUE(registry::FilterValues().empty());
  EXPECT_TRUE(FileExists(defaultPath));
  service->OnStop();
  DeleteFileA(defaultPath.c_str());
}

TEST_F(Configuration, StopWritesAMissingPathAndThenTheOneInUse) {
  service->OnStart();
  registry::DeleteAll();
  service->OnStop();
  EXPECT_EQ(registry::Text("LogFile"), logFile);
  // According to the registry the file was at the default path, so it was "moved" from there.
  EXPECT_EQ(faults::moveFileCalls, 1);
  EXPECT_TRUE(FileExists(logFile));
}

TEST_F(Configuration, FirstLetterOfAFilterValueSelectsItsKind) {
  registry::AddFilterValue("a", "iDriver");
  registry::AddFilterValue("b", "x42");
  registry::AddFilterValue("c", "eCamera");
  registry::AddFilterValue("d", "i");
  service->OnStart();
  EXPECT_EQ(FilterText(*service, 0), "include Driver");
  EXPECT_EQ(FilterText(*service, 1), "include ");
  EXPECT_EQ(FilterText(*service, 2), "exclude 42");
  EXPECT_EQ(FilterText(*service, 3), "exclude Camera");
  EXPECT_EQ(FilterText(*service, 4), "(none)");
}

TEST_F(Configuration, FilterValueWithEmptyDataIsSkipped) {
  registry::AddFilterValue("a", "");
  registry::Write(registry::kFiltersKey, "b", REG_SZ, "");
  registry::AddFilterValue("c", "iKept");
  service->OnStart();
  EXPECT_EQ(FilterText(*service, 0), "include Kept");
  EXPECT_EQ(FilterText(*service, 1), "(none)");
}

TEST_F(Configuration, FilterValueWithoutClosingZeroIsReadWhole) {
  registry::Write(registry::kFiltersKey, "a", REG_SZ, "iOpen");
  service->OnStart();
  EXPECT_EQ(FilterText(*service, 0), "include Open");
}

TEST_F(Configuration, ValueNameOf64CharactersEndsTheWalkOverTheFilters) {
  registry::AddFilterValue("a", "iSeen");
  registry::AddFilterValue("b" + std::string(62, 'x'), "iSeenToo");
  registry::AddFilterValue("c" + std::string(63, 'x'), "iTooLong");
  registry::AddFilterValue("d", "iBehind");
  service->OnStart();
  EXPECT_EQ(FilterText(*service, 0), "include Seen");
  EXPECT_EQ(FilterText(*service, 1), "include SeenToo");
  EXPECT_EQ(FilterText(*service, 2), "(none)");
}

TEST_F(Configuration, LoadReplacesTheFiltersInMemory) {
  service->OnStart();
  AddFilter(*service, "one", 1);
  service->OnStop();
  registry::Write(registry::kFiltersKey, "Filters0", REG_SZ, std::string("itwo\0", 5));
  service->OnStart();
  EXPECT_EQ(FilterText(*service, 0), "include two");
  EXPECT_EQ(FilterText(*service, 1), "(none)");
}

TEST_F(Configuration, IncludeFilterKeepsSourcesThatBeginWithItInAnyCaseOrAreItsBeginning) {
  registry::AddFilterValue("a", "iDriver");
  registry::AddFilterValue("b", "iprobe");
  service->OnStart();
  Submit(*service, MakeMessage("longer", "DRIVER.usb"));
  Submit(*service, MakeMessage("beginning", "dri"));
  Submit(*service, MakeMessage("inside", "my driver"));
  Submit(*service, MakeMessage("nameless", ""));
  EXPECT_TRUE(IsDropped("inside"));
  EXPECT_TRUE(IsInLog("longer"));
  EXPECT_TRUE(IsInLog("beginning"));
  EXPECT_TRUE(IsInLog("nameless"));
}

TEST_F(Configuration, ExcludeFilterCountsOnlyWithoutIncludeFilters) {
  registry::AddFilterValue("a", "eCamera");
  service->OnStart();
  Submit(*service, MakeMessage("excluded", "Camera2"));
  EXPECT_TRUE(IsDropped("excluded"));
  AddFilter(*service, "probe", 1);
  AddFilter(*service, "cam", 1);
  Submit(*service, MakeMessage("included", "Camera2"));
  EXPECT_TRUE(Arrives("included"));
}

TEST_F(Configuration, StopLeavesExactlyTheFiltersInMemoryRenumbered) {
  registry::AddFilterValue("by hand", "eOld");
  service->OnStart();
  AddFilter(*service, "New", 1);
  AddFilter(*service, "Newer", 0);
  registry::AddFilterValue("while it runs", "iIgnored");
  service->OnStop();
  const std::map<std::string, std::string> expected = {
      {"Filters0", "iNew"}, {"Filters1", "eOld"}, {"Filters2", "eNewer"}};
  EXPECT_EQ(registry::FilterValues(), expected);
}

TEST_F(Configuration, StopWithoutFiltersLeavesAnEmptySubkey) {
  registry::AddFilterValue("a", "iGone");
  service->OnStart();
  Ask(*service, RequestCode::ClearFilters);
  service->OnStop();
  EXPECT_TRUE(registry::KeyExists(registry::kFiltersKey));
  EXPECT_TRUE(registry::FilterValues().empty());
}

TEST_F(Configuration, TypeFilter5KeepsTypes0And2AndIsSavedAs5) {
  registry::SetNumber("TypeFilter", 0x5);
  service->OnStart();
  for (std::uint32_t type = 0; type < 4; ++type) {
    Submit(*service, MakeMessage("type " + std::to_string(type), "source", type));
  }
  EXPECT_TRUE(IsDropped("type 1"));
  EXPECT_TRUE(IsInLog("type 0"));
  EXPECT_TRUE(IsInLog("type 2"));
  EXPECT_FALSE(IsInLog("type 3"));
  service->OnStop();
  EXPECT_EQ(registry::Number("TypeFilter"), 0x5U);
}

TEST_F(Configuration, UnusedBitsOfTypeFilterAreSavedAsZero) {
  registry::SetNumber("TypeFilter", 0xFFFFFFF9);
  service->OnStart();
  service->OnStop();
  EXPECT_EQ(registry::Number("TypeFilter"), 0x9U);
}

TEST_F(Configuration, MaxMessageZeroIsUsedAsStored) {
  registry::SetNumber("MaxMessage", 0);
  service->OnStart();
  EXPECT_EQ(Settings(*service).maxMessage, 0U);
  EXPECT_EQ(ReadHeader(logFile)->maxMessages, 0);
  Submit(*service, MakeMessage("no room"));
  Sleep(500);
  EXPECT_EQ(ReadHeader(logFile)->messageCount, 0);
  service->OnStop();
  EXPECT_EQ(registry::Number("MaxMessage"), 0U);
}

TEST_F(Configuration, RatesAreUsedAndSavedAsStored) {
  registry::SetNumber("DevicePollRate", 0xFFFFFFFF);
  registry::SetNumber("SaveRate", 0x80000000);
  service->OnStart();
  EXPECT_EQ(Settings(*service).devicePollRate, 0xFFFFFFFFU);
  EXPECT_EQ(Settings(*service).saveRate, 0x80000000U);
  service->OnStop();
  EXPECT_EQ(registry::Number("DevicePollRate"), 0xFFFFFFFFU);
  EXPECT_EQ(registry::Number("SaveRate"), 0x80000000U);
}

TEST_F(Configuration, RequestedCapacityIsSavedAndInEffectAfterTheNextStart) {
  service->OnStart();
  SettingsBody wanted = Settings(*service);
  wanted.maxMessage = 31;
  SetSettings(*service, wanted);
  EXPECT_EQ(ReadHeader(logFile)->maxMessages, static_cast<std::int32_t>(kCapacity));
  service->OnStop();
  EXPECT_EQ(registry::Number("MaxMessage"), 31U);
  service->OnStart();
  EXPECT_EQ(ReadHeader(logFile)->maxMessages, 31);
}

TEST_F(Configuration, ValueOfWrongSizeFailsTheStartAndKeepsTheFieldsAfterIt) {
  service->OnStart();
  service->OnStop();
  registry::SetText("LogFile", "C:\\new.dat");
  registry::Write(registry::kMainKey, "MaxMessage", REG_QWORD, std::string(8, '\1'));
  registry::SetNumber("SaveRate", 5);
  EXPECT_EQ(FailureOf([&] { service->OnStart(); }), "ReadData() failed" + ErrorSuffix(ERROR_MORE_DATA));
  EXPECT_STREQ(Ask(*service, RequestCode::GetLogFile).path, "C:\\new.dat");
  EXPECT_EQ(Settings(*service).maxMessage, kCapacity);
  EXPECT_EQ(Settings(*service).saveRate, kNever / 1000);
}

TEST_F(Configuration, TypeOfAValueDoesNotMatterOnlyItsSize) {
  registry::Write(registry::kMainKey, "MaxMessage", REG_BINARY, std::string("\x0B\0\0\0", 4));
  registry::Write(registry::kMainKey, "SaveRate", REG_BINARY, std::string("\x07", 1));
  service->OnStart();
  EXPECT_EQ(Settings(*service).maxMessage, 11U);
  EXPECT_EQ(Settings(*service).saveRate, 7U);
}

TEST_F(Configuration, PathOfMoreThan255CharactersIsSavedAndFailsTheNextStart) {
  service->OnStart();
  const std::string path = folder.File(std::string(300, 'p'));
  Ask(*service, MakeRequest(RequestCode::SetLogFile, path));
  // The name is too long for this file system too: the stop's wait may report it.
  FailureOf([&] { service->OnStop(); });
  EXPECT_EQ(registry::Text("LogFile"), path);
  EXPECT_EQ(FailureOf([&] { service->OnStart(); }), "ReadData() failed" + ErrorSuffix(ERROR_MORE_DATA));
  registry::SetText("LogFile", logFile);
  Ask(*service, MakeRequest(RequestCode::SetLogFile, logFile));
}

TEST_F(Configuration, KeyThatCannotBeCreatedFailsTheStartAndChangesNothing) {
  service->OnStart();
  service->OnStop();
  registry::ReplaceByVolatileParent();
  EXPECT_EQ(FailureOf([&] { service->OnStart(); }),
            "RegCreateKeyEx() failed" + ErrorSuffix(ERROR_CHILD_MUST_BE_VOLATILE));
  EXPECT_EQ(Settings(*service).maxMessage, kCapacity);
  EXPECT_STREQ(Ask(*service, RequestCode::GetLogFile).path, logFile.c_str());
}

TEST_F(Configuration, ExecutableWithoutFolderFailsTheStart) {
  faults::executablePathFails = true;
  EXPECT_EQ(FailureOf([&] { service->OnStart(); }).rfind("Failed to obtain executable's location", 0), 0U);
  faults::executablePathFails = false;
  EXPECT_EQ(Settings(*service).maxMessage, 0U);  // the lock is free, nothing was loaded
}

}  // namespace
