#include "tamlogctl/base/decompression.h"

namespace TamLogCtl {

// liblzma is not available for the cross-build.
Decompressed DecompressXz(const ReadBytes& /*read*/, std::uint64_t /*limit*/, const WriteBytes& /*write*/) {
  return Decompressed::NotSupported;
}

}  // namespace TamLogCtl
