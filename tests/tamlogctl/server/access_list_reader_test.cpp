// Access lists as the system keeps them.

#include "tamlogctl/server/access_list_reader.h"

#include <gtest/gtest.h>

#include <array>

#include "client/message/win32.h"

namespace {

// Reads an access list with one entry, of this type, for everyone.
std::vector<TamLogCtl::AccessEntry> EntriesOfListWith(int type) {
  alignas(DWORD) std::array<BYTE, 256> buffer{};
  auto* const list = reinterpret_cast<ACL*>(buffer.data());
  EXPECT_TRUE(InitializeAcl(list, sizeof buffer, ACL_REVISION_DS));
  alignas(DWORD) std::array<BYTE, SECURITY_MAX_SID_SIZE> everyone{};
  DWORD size = everyone.size();
  EXPECT_TRUE(CreateWellKnownSid(WinWorldSid, nullptr, everyone.data(), &size));
  EXPECT_TRUE(AddAccessAllowedAce(list, ACL_REVISION_DS, FILE_WRITE_DATA, everyone.data()));
  void* entry = nullptr;
  EXPECT_TRUE(GetAce(list, 0, &entry));
  static_cast<ACE_HEADER*>(entry)->AceType = static_cast<BYTE>(type);
  return TamLogCtl::EntriesOf(list);
}

}  // namespace

TEST(AccessListReader, EntriesWithAConditionAllowAndDoNotDeny) {
  for (const int type : {ACCESS_ALLOWED_ACE_TYPE, ACCESS_ALLOWED_CALLBACK_ACE_TYPE, ACCESS_DENIED_ACE_TYPE}) {
    const auto entries = EntriesOfListWith(type);
    ASSERT_EQ(entries.size(), 1U) << type;
    EXPECT_EQ(entries[0].allow, type != ACCESS_DENIED_ACE_TYPE);
    EXPECT_EQ(entries[0].mask, DWORD{FILE_WRITE_DATA});
    EXPECT_EQ(entries[0].sid, TamLogCtl::kEveryoneSid);
  }
  EXPECT_TRUE(EntriesOfListWith(ACCESS_DENIED_CALLBACK_ACE_TYPE).empty());
}
