#pragma once

// A machine in memory on which the server's own code runs natively, under the sanitizers and the fuzzer: the
// handles, threads, files, registry and driver that util, store and server ask the system for. Everything
// above those calls is the product's code, compiled as it is.
//
// Events, locks and threads are real ones (of the build machine), so ThreadSanitizer sees what the server's
// threads do. Memory is ordered by the events themselves and by nothing else: no lock is shared by two of
// them.
//
// What differs from the system: nothing is shared with another process, files live until Reset, a file that
// would be greater than `diskSize` cannot be made, and a thread that still runs cannot be ended by force (the
// process aborts: no native test may need that).

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "records/log_file_format.h"

namespace NativeMachine {

// Back to a machine without files, settings and messages, whose clock stands at 0. Nothing may be open.
void Reset();

// Thrown where the process would be ended on purpose (CopyBoundedOrEndProcess).
struct ProcessEnded {};

// --- Time and threads.

// From here on, until Reset, nothing happens by itself: started threads wait to be run by RunThreads, a wait
// whose time would run out does so at once (the clock jumps), and a wait without limit for what nobody will
// signal aborts. For one thread, which then always does the same for the same input.
void StandStill();
// Runs the threads that were started meanwhile, one behind the other, to their ends.
void RunThreads();

// --- Files.

inline constexpr std::size_t kPage = 4096;
inline constexpr std::uint64_t kDiskSize = std::uint64_t{64} << 20;

// A file that begins with `bytes` and is at least `size` bytes long; the rest is zero and takes no memory
// until it is written.
void WriteFile(const std::string& path, const std::string& bytes, std::uint64_t size = 0);
bool FileExists(const std::string& path);
std::string ReadFile(const std::string& path);
// The bytes of a file as its view shows them, whole pages; null when there is no such file. Valid until the
// file is resized.
std::uint8_t* BytesOf(const std::string& path, std::size_t& size);

// --- The registry: values of a key below the root of the local machine, in the order in which they were
// made. Data are bytes of any type.

using RegistryValues = std::vector<std::pair<std::string, std::string>>;
RegistryValues Values(const std::string& key);
void SetValue(const std::string& key, const std::string& name, const std::string& data);

// --- The driver.

// Whether there is one; a server without it does not start.
void SetDriverPresent(bool present);
// How often the driver was opened since Reset: once for each start of a server.
std::uint32_t DriverOpens();
// Messages that the driver holds, the next one first.
void PutIntoDriver(const LogMessageBody& message);

}  // namespace NativeMachine
