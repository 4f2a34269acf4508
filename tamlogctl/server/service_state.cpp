#include "tamlogctl/server/service_state.h"

namespace TamLogCtl {

const char* ServiceAdvice(ServiceState state) {
  switch (state) {
    case ServiceState::Unknown:
    case ServiceState::Denied:
      return "run this as an administrator";
    case ServiceState::NotInstalled:
      return "as an administrator: tamlogctl server install";
    case ServiceState::Stopped:
      return "start it: tamlogctl server start";
    case ServiceState::Pending:
      return "wait up to 20 s and look again";
    case ServiceState::Running:
      break;
  }
  return "";
}

}  // namespace TamLogCtl
