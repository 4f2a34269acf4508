#include "server/program.h"

#include <cstdio>
#include <cstring>
#include <iostream>
#include <string>

#include "server/server_service.h"
#include "util/diagnostic_log.h"
#include "util/exceptions.h"
#include "util/win32.h"

using TamLogUtil::WriteLog;
using TamLogUtil::Exceptions::ExceptionBase;
using TamLogUtil::Services::Service;

ServerService* serviceObject = nullptr;

namespace {

// Empty on failure. The system truncates a path that does not fit the buffer.
std::string ExecutablePath() {
  char buffer[1024];
  const DWORD length = GetModuleFileNameA(nullptr, buffer, sizeof buffer);
  return {buffer, length};
}

bool Is(const std::string& argument, const char* option) {
  return _stricmp(argument.c_str(), option) == 0;
}

void CarryOut(std::string argument) {
  if (!argument.empty() && argument.front() == '/') argument.front() = '-';
  if (Is(argument, "-install")) {
    std::cout << "Installing service ..." << std::flush;
    serviceObject->Install();
    std::cout << " installed" << std::endl;
  } else if (Is(argument, "-remove")) {
    std::cout << "Removing service ..." << std::flush;
    serviceObject->Remove();
    std::cout << " removed" << std::endl;
  } else {
    // Exits with 0: scripts that try options of other versions rely on it.
    std::cout << "Unrecognized command line argument" << std::endl << "Use -install or -remove" << std::endl;
  }
}

void ShowFailure(const ExceptionBase& exception) {
  std::cerr << std::endl
            << "An error has occured : " << std::endl
            << exception.Compose("\n") << std::endl
            << std::endl;
  std::cout << "To install : use the -install switch and run as administrator" << std::endl
            << "To remove : use the -remove switch and run as administrator" << std::endl;
  // Keeps a console window that was opened for this command readable, until any character or the end of the
  // input.
  static_cast<void>(std::getchar());
}

}  // namespace

bool CreateServiceObject() {
  serviceObject = new ServerService;
  const std::string path = ExecutablePath();
  if (path.empty()) return false;
  serviceObject->SetServiceName("TamLogServer");
  serviceObject->SetDisplayName("Torvane Log Server");
  serviceObject->SetDescription("Collects messages produced by Brenmark VORTA Torvane software components");
  serviceObject->SetExecutablePath(path);
  Service::SetActiveInstance(serviceObject);
  return true;
}

void DeleteServiceObject() {
  if (serviceObject == nullptr) return;
  try {
    delete serviceObject;
    serviceObject = nullptr;
  } catch (const ExceptionBase& exception) {
    WriteLog("Service destructor threw an exception : " + exception.Compose("\n"));
  } catch (...) {
    WriteLog("Service destructor threw an unknown exception.");
  }
}

int RunProgram(int argc, char** argv) {
  TamLogUtil::SetLogFile("TamLogServiceLog.txt");
  try {
    if (!CreateServiceObject()) {
      std::cerr << "Error constructing service object" << std::endl;
      return 1;
    }
    if (argc < 2) {
      serviceObject->RunDispatcher();
    } else {
      CarryOut(argv[1]);
    }
    return 0;
  } catch (const ExceptionBase& exception) {
    ShowFailure(exception);
    return 1;
  }
}
