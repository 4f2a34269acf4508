#pragma once

// The part of the diagnosis that is about the machine around the server: the service, its driver, the path of
// its file, the names of its objects, its diagnostic log.

#include "tamlogctl/server/doctor_findings.h"
#include "tamlogctl/server/findings.h"

namespace TamLogCtl {

void CheckService(const Observations& seen, Findings& out);
void CheckDriver(const Observations& seen, Findings& out);
void CheckPath(const Observations& seen, Findings& out);
void CheckNames(const Observations& seen, Findings& out);
void CheckDiagnostics(const Observations& seen, Findings& out);

// Returns whether the service has a process, as far as the service manager knows.
bool ProcessLives(const Observations& seen);

// Returns "process 12 (a.exe), process 13 (b.exe)", or what to do when nothing is known.
std::string HoldersText(const std::vector<std::string>& holders);

}  // namespace TamLogCtl
