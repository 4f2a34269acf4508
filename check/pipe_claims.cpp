#include "check/pipe_claims.h"

extern "C" {
using ClaimFunction = void (*)(void* context, int holds, const char* name, const char* about);
// Defined in conformance/pipe_claims.c.
int TamlogPipeClaims(int change, int restart, int idle, ClaimFunction claimed, void* context);
}

namespace TamLogCheck {

namespace {

void Keep(void* context, int holds, const char* name, const char* about) {
  static_cast<ClaimList*>(context)->push_back({holds != 0, name, about});
}

}  // namespace

bool RunPipeClaims(ClaimList& claims) {
  return TamlogPipeClaims(1, 1, 1, Keep, &claims) != 0;
}

}  // namespace TamLogCheck
