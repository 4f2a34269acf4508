#pragma once

// Makes single system calls and single guarded accesses to the mapped view fail. It is linked between a test
// executable and the system: the executable defines the import pointers itself, and the linker redirects the
// guard's calls here (--wrap). All other calls are passed to the real functions.
//
//   FailCall("MapViewOfFile", 2, 5);        // the second call from now on fails with error 5
//   ...
//   EXPECT_TRUE(FaultMet());                // false: there was no second call
//   WorkAgain();
//
// Only calls of the thread that called FailCall fail. Calls that release something do so before they report
// failure.

#include <cstdint>
#include <string>

namespace StoreTest {

void FailCall(const std::string& function, int n, std::uint32_t error);

// The nth guarded block from now on ends with `code`, `attempts` times in a row: 10 is a block that never
// succeeds.
void FailMappedAccess(int n, int attempts = 10, std::uint32_t code = 0xC0000006U);

// Causes a real fault in the nth guarded block from now on, `attempts` times in a row: the whole view is made
// inaccessible, or not writable, during the block. InPageError: the fault is reported like a page that the
// system cannot load.
enum class PageFault : std::uint8_t { InPageError, NoAccess, NoWriting };
void FaultMappedAccess(int n, int attempts, PageFault fault);
// Real faults since then.
int FaultsSeen();

// Calls `action` with the view before the nth guarded block from now on. It must not throw.
void BeforeMappedAccess(int n, void (*action)(void* view));

bool FaultMet();
// Guarded blocks run by the calling thread since FailMappedAccess; every attempt counts.
int MappedAttempts();
void WorkAgain();

// The last view that was mapped.
void* LastView();

// The number of files opened or created with security attributes.
int FilesWithAccessList();

// The size of the last flush of a view to disk since the last call of this; 0 when there was none.
std::uint64_t TakeFlushedSize();

}  // namespace StoreTest
