#pragma once

// The log server that the checks run: the installed one, or a copy that is installed for them, always with a
// log file and settings of its own. Everything is restored at the end.
//
//   Session session(options);
//   session.Prepare();            // throws NoServer
//   session.Fresh(100);           // a running server with an empty log of 100 messages
//   session.Stop();
//   session.Restore();
//
// Functions throw std::runtime_error when the service does not do what a check needs of it.

#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "check/options.h"
#include "check/service_manager.h"
#include "check/settings_key.h"
#include "records/log_file_format.h"

namespace TamLogCheck {

// The server cannot be run; says why. Nothing was changed, or everything was restored.
class NoServer : public std::runtime_error {
 public:
  NoServer(const std::string& why, bool refusal) : std::runtime_error(why), refused(refusal) {}

  const bool refused;  // because it is in use
};

class Session {
 public:
  explicit Session(const Options& chosen) : options(chosen) {}
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  void Prepare();
  bool Prepared() const { return prepared; }

  // Restores settings and service, and removes the folder. Returns what could not be restored.
  std::vector<std::string> Restore();
  // The same for the folder of a run that was ended by force.
  static std::vector<std::string> RestoreFolder(const std::string& folder);

  // Stops the server, empties the log, and starts with this capacity and no filters.
  void Fresh(std::uint32_t capacity);
  // Starts the server and waits until it answers. Returns the milliseconds.
  std::uint64_t Start();
  // Stops the server and waits until its process has ended. Returns the milliseconds.
  std::uint64_t Stop();
  // Ends the server's process by force.
  void Kill();
  // Does `change`, which causes a restart, and waits for the end of the restart. Repeats `change` when no
  // restart follows. Returns the milliseconds of the pause; throws when the server does not come back.
  std::uint64_t OverRestart(const std::function<void()>& change);
  // Returns whether the service has a process that lives.
  bool Alive() const;

  const std::string& Folder() const { return folder; }
  std::string LogFile() const;
  // The diagnostic log that the server writes to.
  static std::string DiagnosticLog();
  // Returns whether the service existed before.
  bool WasInstalled() const { return installed; }

 private:
  void MakeFolder();
  void SaveState() const;
  void RemoveOwnService(std::vector<std::string>& problems);

  const Options& options;
  std::string folder;
  bool prepared = false;
  bool installed = false;   // before the checks
  bool wasRunning = false;  // before the checks
  bool deviceMade = false;
  std::optional<Recovery> recovery;  // before the checks, of an installed service
  SavedSettings settings;            // before the checks
};

// Returns a message of this source and text, dated now.
LogMessageBody MessageOf(const std::string& source, const std::string& text);

// Submits messages "text 0" to "text COUNT-1" of this source; throws when one is not accepted.
void SubmitAll(const std::string& source, std::uint32_t count);

// Returns the texts of the shared log's messages of this source, oldest first.
std::vector<std::string> SharedTexts(const std::string& source);

// Waits until the shared log holds `count` messages of this source.
bool WaitForTexts(const std::string& source, std::size_t count, std::uint32_t limitMs = 5000);

}  // namespace TamLogCheck
