#pragma once

// What an import reads of one file, with its messages.

#include <string>
#include <vector>

#include "tamlogctl/server/import_reader.h"

namespace TamLogTest {

struct Imported : TamLogCtl::ImportSource {
  std::vector<LogMessageBody> messages;  // in the order of the file
};

inline Imported ReadAll(const std::string& path, const TamLogCtl::ImportChoice& choice) {
  Imported imported;
  static_cast<TamLogCtl::ImportSource&>(imported) = TamLogCtl::ReadImport(
      path, choice, [&imported](const LogMessageBody& body) { imported.messages.push_back(body); });
  return imported;
}

}  // namespace TamLogTest
