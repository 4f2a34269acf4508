// A service for service_run_test.cpp, started by the real service control manager. It has the name of its
// executable and records its calls in a file of the same name.

#include <cstdio>
#include <fstream>
#include <string>

#include "util/diagnostic_log.h"
#include "util/exceptions.h"
#include "util/helpers.h"
#include "util/service.h"
#include "util/win32.h"

namespace {

std::string OwnName() {
  char path[1024] = {};
  GetModuleFileNameA(nullptr, path, sizeof(path) - 1);
  const std::string text(path);
  const std::size_t begin = text.rfind('\\') + 1;
  return text.substr(begin, text.rfind('.') - begin);
}

void Note(const std::string& line) {
  std::ofstream(TamLogUtil::PathBesideExecutable(OwnName() + ".notes"), std::ios::app) << line << std::endl;
}

class NotingService : public TamLogUtil::Services::Service {
 public:
  void OnStart() override { Note("start"); }
  void OnStop() override {
    Note("stop begins");
    Sleep(200);
    Note("stop ends");
  }
};

}  // namespace

int main() {
  try {
    TamLogUtil::SetLogFile(TamLogUtil::PathBesideExecutable(OwnName() + ".log"));
    NotingService service;
    service.SetServiceName(OwnName());
    NotingService::SetActiveInstance(&service);
    service.RunDispatcher();
    Note("dispatcher returned");
    return 0;
  } catch (const TamLogUtil::Exceptions::ExceptionBase& failure) {
    TamLogUtil::WriteLog(failure.Compose("\n"));
    return 1;
  }
}
