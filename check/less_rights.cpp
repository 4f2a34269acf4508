#include "check/less_rights.h"

#include "check/system.h"
#include "client/message/win32.h"

namespace TamLogCheck {

namespace {

Handle RestrictedToken() {
  HANDLE own = nullptr;
  if (OpenProcessToken(GetCurrentProcess(), TOKEN_ALL_ACCESS, &own) == 0) Fail("OpenProcessToken");
  const Handle token(own);
  SID_IDENTIFIER_AUTHORITY authority = SECURITY_NT_AUTHORITY;
  PSID administrators = nullptr;
  if (AllocateAndInitializeSid(&authority, 2, SECURITY_BUILTIN_DOMAIN_RID, DOMAIN_ALIAS_RID_ADMINS, 0, 0, 0,
                               0, 0, 0, &administrators) == 0) {
    Fail("AllocateAndInitializeSid");
  }
  SID_AND_ATTRIBUTES denied{administrators, 0};
  HANDLE restricted = nullptr;
  const BOOL made = CreateRestrictedToken(token.Get(), DISABLE_MAX_PRIVILEGE, 1, &denied, 0, nullptr, 0,
                                          nullptr, &restricted);
  const DWORD error = GetLastError();
  FreeSid(administrators);
  if (made == 0) Fail("CreateRestrictedToken", error);
  const Handle primary(restricted);
  HANDLE impersonation = nullptr;
  if (DuplicateTokenEx(primary.Get(), TOKEN_ALL_ACCESS, nullptr, SecurityImpersonation, TokenImpersonation,
                       &impersonation) == 0) {
    Fail("DuplicateTokenEx");
  }
  return Handle(impersonation);
}

void LowerIntegrity(const Handle& token) {
  SID_IDENTIFIER_AUTHORITY authority = SECURITY_MANDATORY_LABEL_AUTHORITY;
  PSID level = nullptr;
  if (AllocateAndInitializeSid(&authority, 1, SECURITY_MANDATORY_LOW_RID, 0, 0, 0, 0, 0, 0, 0, &level) == 0) {
    Fail("AllocateAndInitializeSid");
  }
  TOKEN_MANDATORY_LABEL label{{level, SE_GROUP_INTEGRITY}};
  const BOOL set =
      SetTokenInformation(token.Get(), TokenIntegrityLevel, &label, sizeof(label) + GetLengthSid(level));
  const DWORD error = GetLastError();
  FreeSid(level);
  if (set == 0) Fail("SetTokenInformation", error);
}

}  // namespace

LessRights::LessRights(Kind kind) {
  const Handle token = RestrictedToken();
  if (kind == Kind::LowIntegrity) LowerIntegrity(token);
  if (SetThreadToken(nullptr, token.Get()) == 0) Fail("SetThreadToken");
}

LessRights::~LessRights() {
  SetThreadToken(nullptr, nullptr);
}

}  // namespace TamLogCheck
