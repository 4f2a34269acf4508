#pragma once

// Makes single calls fail, of the operating system and of the guarded touches of the mapped view. Linked into
// a test executable it stands between the program and the system: the executable defines the import pointers
// itself, and the linker sends the guard's calls here (--wrap). Whatever is not told to fail goes on to the
// real one.
//
//   FailCall("MapViewOfFile", 2, 5);        // the second call from now on fails with error 5
//   ...
//   EXPECT_TRUE(FaultMet());                // false: there was no second call
//   WorkAgain();
//
// Only calls of the thread that asked for it fail. Calls that let go of something do so before they report
// failure.

#include <cstdint>
#include <string>

namespace StoreTest {

void FailCall(const std::string& function, int n, std::uint32_t error);

// The nth guarded block from now on ends with `code`, `attempts` times in a row: 10 is a block that never
// succeeds.
void FailMappedAccess(int n, int attempts = 10, std::uint32_t code = 0xC0000006U);

// What the processor meets in the nth guarded block from now on, `attempts` times in a row: the whole view is
// made inaccessible, or not writable, for the length of the block, and the fault is a real one. InPageError:
// it is reported as the system reports a page that it cannot bring in.
enum class PageFault : std::uint8_t { InPageError, NoAccess, NoWriting };
void FaultMappedAccess(int n, int attempts, PageFault fault);
// Real faults since then.
int FaultsSeen();

bool FaultMet();
// Guarded blocks run by the asking thread since FailMappedAccess, attempts counted one by one.
int MappedAttempts();
void WorkAgain();

// The last view that was mapped.
void* LastView();

// How many files were opened or made with security attributes.
int FilesWithAccessList();

// The size of the last flush of a view to disk since this was asked; 0 when there was none.
std::uint64_t TakeFlushedSize();

}  // namespace StoreTest
