#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <system_error>

#include "tamlogctl/base/console.h"
#include "tamlogctl/base/scratch_file.h"

namespace TamLogCtl {

namespace {

std::string LastProblem() {
  return std::system_category().message(errno);
}

// Opens a file without a name, which the system removes with its last descriptor.
int OpenNameless() {
  std::string folder = EnvironmentValue("TMPDIR");
  if (folder.empty()) folder = "/tmp";
  constexpr mode_t kOwnerOnly = 0600;
  const int file = open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, kOwnerOnly);
  if (file >= 0) return file;
  std::string name = folder + "/tamlogctl-XXXXXX";  // for file systems without nameless files
  const int named = mkostemp(name.data(), O_CLOEXEC);
  if (named >= 0) unlink(name.c_str());
  return named;
}

class NamelessFile : public ScratchFile {
 public:
  explicit NamelessFile(int descriptor) : file(descriptor) { path = "/proc/self/fd/" + std::to_string(file); }
  ~NamelessFile() override { close(file); }
  NamelessFile(const NamelessFile&) = delete;
  NamelessFile& operator=(const NamelessFile&) = delete;

  bool Write(std::string_view bytes) override {
    while (!bytes.empty()) {
      const ssize_t written = write(file, bytes.data(), bytes.size());
      if (written < 0 && errno == EINTR) continue;
      if (written <= 0) {
        problem = LastProblem();
        return false;
      }
      bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
  }

 private:
  int file;
};

}  // namespace

std::unique_ptr<ScratchFile> ScratchFile::Create(std::string& failure) {
  const int file = OpenNameless();
  if (file >= 0) return std::make_unique<NamelessFile>(file);
  failure = LastProblem();
  return nullptr;
}

std::optional<std::size_t> ReadStandardInput(char* to, std::size_t most) {
  ssize_t got = 0;
  do {
    got = read(STDIN_FILENO, to, most);
  } while (got < 0 && errno == EINTR);
  return got < 0 ? std::nullopt : std::optional(static_cast<std::size_t>(got));
}

}  // namespace TamLogCtl
