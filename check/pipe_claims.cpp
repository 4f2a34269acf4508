#include "check/pipe_claims.h"

#include "conformance/pipe_claims.h"

namespace TamLogCheck {

namespace {

void Keep(void* context, int holds, const char* name, const char* about) {
  static_cast<ClaimList*>(context)->push_back({holds != 0, name, about});
}

}  // namespace

bool RunPipeClaims(ClaimList& claims) {
  constexpr PipeClaimOptions kAllThatKeepTheLog{
      .change = 1, .restart = 1, .idle = 1, .empty = 0, .restartSeconds = 30};
  return TamlogPipeClaims(&kAllThatKeepTheLog, Keep, &claims) != 0;
}

}  // namespace TamLogCheck
