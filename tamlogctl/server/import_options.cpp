#include "tamlogctl/server/import_options.h"

#include <utility>

#include "tamlogctl/base/console.h"

namespace TamLogCtl {

namespace {

bool Refuse(const std::string& option, const std::string& value, const std::string& problem) {
  Say(option + " '" + value + "': " + problem);
  return false;
}

}  // namespace

bool CompleteChoice(ReadingFilesOptions& options) {
  std::string problem;
  if (!options.fields.empty()) {
    auto fields = TamLogClient::ParseFields(options.fields, problem);
    if (!fields) return Refuse("--fields", options.fields, problem);
    options.choice.fields = std::move(*fields);
  }
  const std::string variable = "TAMLOGCTL_TYPE_NAMES";
  const std::string names =
      options.typeNames.empty() ? EnvironmentValue(variable.c_str()) : options.typeNames;
  if (names.empty()) return true;
  auto parsed = TamLogClient::TypeNames::Parse(names, problem);
  if (!parsed) return Refuse(options.typeNames.empty() ? variable : "--type-names", names, problem);
  options.choice.typeNames = std::move(*parsed);
  return true;
}

}  // namespace TamLogCtl
