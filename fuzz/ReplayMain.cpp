// A plain main() for a fuzz target, so that recorded inputs run through the target's
// LLVMFuzzerTestOneInput in ordinary builds (gcc, with or without sanitizers) and a crash found
// once stays found. Arguments are files or folders (read recursively, in name order); each
// input is handed over in a heap buffer of its exact size, as libFuzzer does, so that a read
// past its end is caught by AddressSanitizer.
//
//   fuzz_replay_NAME [--timeout=SECONDS] [--min-inputs=N] PATH...
//
// Exit status: 0 when every input ran, 1 when an input took longer than the timeout (its name
// is printed) or fewer than --min-inputs inputs were found (default 1), 2 for wrong usage or an
// unreadable path. A failing property aborts inside the target, which ends the run.
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

// The message SIGALRM prints: prepared before each input, since the handler may only write.
char timeoutMessage[4096];
size_t timeoutMessageLength = 0;

void onTimeout(int) {
  (void)!::write(STDERR_FILENO, timeoutMessage, timeoutMessageLength);
  ::_exit(1);
}

void prepareTimeoutMessage(const std::string& path, unsigned seconds) {
  const std::string text =
      "fuzz replay: " + path + " took longer than " + std::to_string(seconds) + " s (a hang)\n";
  timeoutMessageLength = std::min(text.size(), sizeof timeoutMessage);
  std::memcpy(timeoutMessage, text.data(), timeoutMessageLength);
}

bool collect(const std::filesystem::path& path, std::vector<std::filesystem::path>& inputs) {
  std::error_code error;
  if (std::filesystem::is_directory(path, error)) {
    std::vector<std::filesystem::path> found;
    for (auto it = std::filesystem::recursive_directory_iterator(path, error);
         !error && it != std::filesystem::recursive_directory_iterator(); it.increment(error)) {
      // Notes about the inputs are not inputs.
      if (it->is_regular_file() && it->path().filename() != "README.md") found.push_back(*it);
    }
    if (error) return false;
    std::sort(found.begin(), found.end());
    inputs.insert(inputs.end(), found.begin(), found.end());
    return true;
  }
  if (!std::filesystem::is_regular_file(path, error)) return false;
  inputs.push_back(path);
  return true;
}

bool numberArgument(const char* arg, const char* prefix, unsigned long* value) {
  const size_t length = std::strlen(prefix);
  if (std::strncmp(arg, prefix, length) != 0) return false;
  char* end = nullptr;
  *value = std::strtoul(arg + length, &end, 10);
  return end != arg + length && *end == '\0';
}

}  // namespace

int main(int argc, char** argv) {
  unsigned long timeout = 60;
  unsigned long minInputs = 1;
  std::vector<std::filesystem::path> inputs;
  for (int i = 1; i < argc; ++i) {
    if (numberArgument(argv[i], "--timeout=", &timeout) ||
        numberArgument(argv[i], "--min-inputs=", &minInputs)) {
      continue;
    }
    if (argv[i][0] == '-') {
      std::fprintf(stderr, "usage: %s [--timeout=SECONDS] [--min-inputs=N] PATH...\n", argv[0]);
      return 2;
    }
    if (!collect(argv[i], inputs)) {
      std::fprintf(stderr, "fuzz replay: cannot read %s\n", argv[i]);
      return 2;
    }
  }
  if (inputs.size() < minInputs) {
    std::fprintf(stderr, "fuzz replay: %zu inputs found, expected at least %lu\n", inputs.size(),
                 minInputs);
    return 1;
  }

  ::signal(SIGALRM, onTimeout);
  for (const std::filesystem::path& path : inputs) {
    std::ifstream in(path, std::ios::binary);
    const std::vector<char> bytes((std::istreambuf_iterator<char>(in)),
                                  std::istreambuf_iterator<char>());
    if (!in.eof() && in.fail()) {
      std::fprintf(stderr, "fuzz replay: cannot read %s\n", path.c_str());
      return 2;
    }
    // Named before it runs, so that the output of a crash tells which input it was.
    std::fprintf(stderr, "fuzz replay: %s (%zu bytes)\n", path.c_str(), bytes.size());
    std::fflush(stderr);
    const auto data = std::make_unique<uint8_t[]>(bytes.size());
    std::copy(bytes.begin(), bytes.end(), data.get());
    prepareTimeoutMessage(path.string(), static_cast<unsigned>(timeout));
    ::alarm(static_cast<unsigned>(timeout));
    (void)LLVMFuzzerTestOneInput(data.get(), bytes.size());
    ::alarm(0);
  }
  std::fprintf(stderr, "fuzz replay: %zu inputs ran\n", inputs.size());
  return 0;
}
