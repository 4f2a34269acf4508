#include "check/settings_key.h"

#include <gtest/gtest.h>

#include "client/message/win32.h"

// Must follow windows.h.
#include <sddl.h>

namespace TamLogCheck {

namespace {

bool SameValues(const SavedSettings& left, const SavedSettings& right) {
  return TextOf(left) == TextOf(right);
}

void SetListOfSettings(const char* list) {
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  HKEY key = nullptr;
  ASSERT_TRUE(
      ConvertStringSecurityDescriptorToSecurityDescriptorA(list, SDDL_REVISION_1, &descriptor, nullptr));
  ASSERT_EQ(
      RegOpenKeyExA(HKEY_LOCAL_MACHINE, R"(SOFTWARE\Brenmark VORTA\Torvane Log Server)", 0, WRITE_DAC, &key),
      ERROR_SUCCESS);
  EXPECT_EQ(RegSetKeySecurity(key, DACL_SECURITY_INFORMATION, descriptor), ERROR_SUCCESS);
  RegCloseKey(key);
  LocalFree(descriptor);
}

}  // namespace

TEST(CheckSettings, AreRestoredFromWhatWasSaved) {
  const SavedSettings before = SaveSettings();
  WriteSettings("C:\\check\\Logs.dat", 77);
  const SavedSettings written = SaveSettings();
  EXPECT_TRUE(written.serverKeyThere);
  EXPECT_EQ(StoredLogFile(), "C:\\check\\Logs.dat");
  EXPECT_FALSE(SameValues(written, before));
  RestoreSettings(before);
  EXPECT_TRUE(SameValues(SaveSettings(), before));
  RestoreSettings(written);
  EXPECT_TRUE(SameValues(SaveSettings(), written));
  RestoreSettings(before);
}

// An administrator may have given them a list of their own.
TEST(CheckSettings, KeepTheAccessListOfTheirKey) {
  const SavedSettings before = SaveSettings();
  WriteSettings("C:\\check\\Logs.dat", 77);
  const std::string inherited = SettingsAccessList();
  SetListOfSettings("D:P(A;CI;KA;;;SY)(A;CI;KA;;;BA)(A;CI;KR;;;WD)");
  const std::string list = SettingsAccessList();
  EXPECT_NE(list, inherited);
  const SavedSettings saved = SaveSettings();
  WriteSettings("C:\\check\\Other.dat", 78);
  EXPECT_EQ(SettingsAccessList(), list);
  RestoreSettings(saved);
  EXPECT_EQ(SettingsAccessList(), list);
  EXPECT_EQ(StoredLogFile(), "C:\\check\\Logs.dat");
  RestoreSettings(before);
}

TEST(CheckSettings, AreTheSameAfterTheyWereText) {
  SavedSettings saved;
  saved.makerKeyThere = true;
  saved.serverKeyThere = true;
  saved.values = {
      {"", "Log File", 1, {'x', 0}}, {"Filters", "", 3, {}}, {"Filters", "\xE4\n", 4, {0xFF, 0, 1, 2}}};
  const std::optional<SavedSettings> read = SavedSettingsOf(TextOf(saved));
  ASSERT_TRUE(read);
  EXPECT_TRUE(SameValues(*read, saved));
}

TEST(CheckSettings, TextThatIsCutOrForeignIsRefused) {
  SavedSettings saved;
  saved.values = {{"", "LogFile", 1, {'x', 0}}};
  const std::string text = TextOf(saved);
  for (std::size_t length = 0; length + 1 < text.size(); ++length) {
    EXPECT_FALSE(SavedSettingsOf(text.substr(0, length))) << length;
  }
  EXPECT_FALSE(SavedSettingsOf("tamlogcheck settings 2\n0 0 0\nend\n"));
}

}  // namespace TamLogCheck
