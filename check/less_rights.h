#pragma once

// Lets the calling thread act with fewer rights, until the object is destroyed.
//
//   const LessRights asUser(LessRights::Kind::OrdinaryUser);

#include <cstdint>

namespace TamLogCheck {

class LessRights {
 public:
  enum class Kind : std::uint8_t {
    OrdinaryUser,  // this user without the group of administrators, and without privileges
    LowIntegrity,  // such a user, of low integrity
  };

  // Throws std::runtime_error when the system refuses.
  explicit LessRights(Kind kind);
  ~LessRights();
  LessRights(const LessRights&) = delete;
  LessRights& operator=(const LessRights&) = delete;
};

}  // namespace TamLogCheck
