#pragma once

// The program: one executable that is the service and its own installer. Started by the service manager, with
// no argument, it runs the service; started from a console with -install or -remove it registers or
// unregisters itself and ends.

class ServerService;

// The one service object of the process, owned here; null until CreateServiceObject and after
// DeleteServiceObject. Touched by main and by the exit hook only.
extern ServerService* serviceObject;

// Makes the service object and describes it to the service framework. False when the executable's own path
// cannot be had.
bool CreateServiceObject();

// The exit hook: deletes the service object, which stops a server that still runs. Whatever the deletion
// throws ends in the diagnostic log, and the pointer is kept then.
void DeleteServiceObject();

// Everything between the start of the program and the exit hook; returns the process's exit code. Only the
// first argument counts; a slash in front of it is as good as a dash. Exceptions other than ExceptionBase
// pass through.
int RunProgram(int argc, char** argv);
