// Stands in for libFuzzer's main() in ordinary builds: runs the target once on each file that is named, or that is in a
// directory that is named. Options of libFuzzer are ignored.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "support/fuzz.hpp"

// Where reports of a sanitizer go, in a program that has one.
extern "C" __attribute__((weak)) void __sanitizer_set_report_fd(void* fd);

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> files_of(const fs::path& path) {
  if (!fs::is_directory(path)) return {path};
  std::vector<fs::path> files;
  for (const auto& entry : fs::directory_iterator(path)) files.push_back(entry.path());
  std::sort(files.begin(), files.end());
  return files;
}

// The log of a whole corpus is long; reports still arrive where it would have gone.
void discard_log() {
  const int reports = dup(STDERR_FILENO);
  const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (__sanitizer_set_report_fd != nullptr) {
    // NOLINTNEXTLINE(performance-no-int-to-ptr): it takes a descriptor so
    __sanitizer_set_report_fd(reinterpret_cast<void*>(static_cast<intptr_t>(reports)));
  }
  dup2(nowhere, STDERR_FILENO);
  close(nowhere);
}

bool replay(const fs::path& file) {
  printf("%s\n", file.c_str());  // the last one shown is the one that failed
  fflush(stdout);
  std::ifstream in(file, std::ios::binary);
  if (!in) return false;
  const std::string bytes{std::istreambuf_iterator<char>(in), {}};
  LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  size_t replayed = 0;
  for (const std::string& argument : std::vector<std::string>(argv + 1, argv + argc)) {
    if (argument.starts_with("-")) continue;
    if (fs::is_directory(argument)) discard_log();
    for (const auto& file : files_of(argument)) {
      if (!replay(file)) return 1;
      ++replayed;
    }
  }
  printf("%zu inputs\n", replayed);
  return replayed > 0 ? 0 : 1;
}
