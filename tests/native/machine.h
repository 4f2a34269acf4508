#pragma once

// A machine in memory on which the server's own code runs natively, under the sanitizers and the fuzzer: it
// implements the handles, threads, files, registry and driver that util, store and server use. Everything
// above those calls is the unchanged code of the product.
//
// Events, locks and threads are real ones of the build machine, so ThreadSanitizer sees the accesses of the
// server's threads. Only the events themselves order memory: no two of them share a lock.
//
// It differs from the system: there are no other processes, files live until Reset, a file cannot be resized
// beyond kDiskSize, and a running thread cannot be terminated (the process aborts: no native test may need
// that).

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "records/log_file_format.h"

namespace NativeMachine {

// Removes all files, settings and messages and sets the clock to 0. Nothing may be open.
void Reset();

// Thrown instead of ending the process on purpose (CopyBoundedOrEndProcess).
struct ProcessEnded {};

// --- Time and threads.

// Makes everything deterministic until Reset, for tests of one thread: started threads wait to be run by
// RunThreads, a wait whose time would run out does so at once (the clock jumps), and a wait without limit for
// an object that is not signalled aborts.
void StandStill();
// Runs the threads that were started meanwhile, one after the other, to their ends.
void RunThreads();

// --- Files.

inline constexpr std::size_t kPage = 4096;
inline constexpr std::uint64_t kDiskSize = std::uint64_t{64} << 20;

// A file that begins with `bytes` and is at least `size` bytes long; the rest is zero and takes no memory
// until it is written.
void WriteFile(const std::string& path, const std::string& bytes, std::uint64_t size = 0);
bool FileExists(const std::string& path);
std::string ReadFile(const std::string& path);
// The bytes of a file as its view shows them, in whole pages, with their number in `size`; null when the file
// does not exist. Valid until the file is resized.
std::uint8_t* BytesOf(const std::string& path, std::size_t& size);

// --- The registry: values of a key below the root of the local machine, in the order of their creation. Data
// are bytes of any type.

using RegistryValues = std::vector<std::pair<std::string, std::string>>;
RegistryValues Values(const std::string& key);
void SetValue(const std::string& key, const std::string& name, const std::string& data);

// --- The driver.

// Sets whether the driver exists; a server does not start without it.
void SetDriverPresent(bool present);
// The number of times the driver was opened since Reset: once for each start of a server.
std::uint32_t DriverOpens();
// Adds a message after those that the driver holds.
void PutIntoDriver(const LogMessageBody& message);

}  // namespace NativeMachine
