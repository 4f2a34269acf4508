#pragma once

// The program: one executable that is the service and its own installer. Without an argument, as the service
// manager starts it, it runs the service; with -install or -remove it registers or unregisters itself and
// exits.

class ServerService;

// The process's service object, owned here; null before CreateServiceObject and after DeleteServiceObject.
// Used by main and the exit hook only.
extern ServerService* serviceObject;

// Creates the service object and describes it to the service framework. Returns false when the executable's
// path cannot be read.
bool CreateServiceObject();

// Deletes the service object, which stops a running server: the exit hook. Writes an exception of the
// deletion to the diagnostic log and keeps the pointer then.
void DeleteServiceObject();

// Runs the program up to the exit hook; returns the process's exit code. Reads the first argument only, which
// may begin with a slash instead of a dash. Exceptions other than ExceptionBase pass through.
int RunProgram(int argc, char** argv);
