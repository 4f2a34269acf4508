#pragma once

// The claims of conformance/pipe_claims.c about the pipes of a running server.

#include <string>
#include <vector>

namespace TamLogCheck {

struct Claim {
  bool holds = false;
  std::string name;
  std::string about;
};
using ClaimList = std::vector<Claim>;

// Tries all claims, those included that restart the server or take time. Returns false when there is no
// server.
bool RunPipeClaims(ClaimList& claims);

}  // namespace TamLogCheck
