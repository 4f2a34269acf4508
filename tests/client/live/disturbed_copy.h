#pragma once

// The guarded copy of the client library, disturbed on its way: slowed down, reversed, delayed. It replaces
// the product's copy in programs linked with --wrap=TamLogClientGuardedCopy. May be used from any thread.

#include <cstdint>

namespace TamLogTest {

// From now on one copy in `oneIn` takes some milliseconds, seldom more than a read may take, and begins at a
// random place, in either direction; 0: none.
void DisturbCopies(int oneIn);

// The next copy of a slot or more takes this long.
void DelayNextCopy(std::uint32_t milliseconds);

// Returns whether the copy to be delayed is in its middle, or over.
bool CopyIsDelayed();

// From now on `call` is called before each copy of slots or of their numbers; null: no call.
void CallBeforeCopies(void (*call)());

// The calls of the calling thread.
struct CopyCalls {
  long begun = 0;     // consistent reads: each copies `changeCount`
  long compared = 0;  // looks at the numbers of slots, as copies in parts take
};

// Returns the calls of this thread since its last call of this function.
CopyCalls TakeCopyCalls();

}  // namespace TamLogTest
