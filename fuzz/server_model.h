#pragma once

// The server on the machine in memory (tests/native/machine.h), and a client's knowledge of its texts, from
// which follows which requests end the process, because a text does not fit its reply. Each of those has to
// end it, and no other may.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "records/pipe_protocol.h"
#include "server/registry_key.h"
#include "server/server_service.h"

namespace Fuzz {

class ServerModel {
 public:
  // Returns false when the start failed, as with settings that cannot be read or a file that cannot be
  // created.
  bool Start();
  bool Stop();
  // Performs the restarts that were requested since the last call.
  void RunRestarts();
  // Returns whether a stop has left a path that the next start cannot read.
  bool CannotStartAgain() const { return logFile.size() >= RegistryKey::kTextBufferSize; }
  void Tick(std::uint32_t timer) { service->OnTimer(timer); }

  // Sends one request of a connection: `bytes` (at most a record), followed by the previous content of the
  // buffer. Returns nothing when the process has ended, which happens exactly when a text does not fit.
  std::optional<PipeReply> Ask(const std::string& bytes);
  std::optional<PipeReply> Ask(const PipeRequest& request);

 private:
  // Stored as a connection stores it, in an allocation of its own that ends with the guard.
  struct GuardedRequest {
    PipeRequest record{};
    std::uint8_t guard = 0;
  };
  struct Filter {
    std::string text;
    bool include;
  };

  std::optional<PipeReply> Carry();
  bool EndsProcess(const PipeRequest& request) const;
  const std::string* FilterAt(std::size_t index) const;
  void Learn(const PipeRequest& request);
  void CheckReply(const PipeRequest& request) const;
  void LearnFromRegistry();

  std::unique_ptr<GuardedRequest> buffer = std::make_unique<GuardedRequest>();
  std::unique_ptr<PipeReply> reply = std::make_unique<PipeReply>();
  std::vector<std::string> includes;
  std::vector<std::string> excludes;
  std::string logFile;
  std::unique_ptr<ServerService> service = std::make_unique<ServerService>();
};

}  // namespace Fuzz
