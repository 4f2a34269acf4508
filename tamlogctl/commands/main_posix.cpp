#include "tamlogctl/commands/run.h"

int main(int count, char** arguments) {
  return TamLogCtl::Run({arguments + 1, arguments + count});
}
