#pragma once

// What the checks of doctor found.

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace TamLogCtl {

enum class FindingState : std::uint8_t { Ok, Warning, Failure };

struct Finding {
  std::string check;  // one word for programs; never changes
  FindingState state = FindingState::Ok;
  std::string found;
  std::string fix;  // what to do; empty when the state is Ok
};

class Findings {
 public:
  void Ok(const char* check, std::string found) { Add(check, FindingState::Ok, std::move(found), ""); }
  void Warn(const char* check, std::string found, std::string fix) {
    Add(check, FindingState::Warning, std::move(found), std::move(fix));
  }
  void Fail(const char* check, std::string found, std::string fix) {
    Add(check, FindingState::Failure, std::move(found), std::move(fix));
  }
  std::vector<Finding> Take() { return std::move(list); }

 private:
  void Add(const char* check, FindingState state, std::string found, std::string fix) {
    list.push_back({check, state, std::move(found), std::move(fix)});
  }
  std::vector<Finding> list;
};

}  // namespace TamLogCtl
