#include "tamlogctl/base/console_system.h"
#include "tamlogctl/commands/run.h"

int main(int count, char** arguments) {
  TamLogCtl::ReportFailedWrites();
  return TamLogCtl::Run({arguments + 1, arguments + count});
}
