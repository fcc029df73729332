// Takes the place of the desktop's opener: writes what it was started with to the file that
// VELMORA_CONTRACT_RECORD names, one fact a line.
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

std::string describe_descriptors() {
  std::string text;
  for (int descriptor = 0; descriptor < 256; ++descriptor) {
    if (fcntl(descriptor, F_GETFD) < 0) continue;
    std::array<char, PATH_MAX> target{};
    const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
    if (readlink(link.c_str(), target.data(), target.size() - 1) < 0) continue;
    text += std::to_string(descriptor) + "=" + target.data() + ";";
  }
  return text;
}

std::string describe_pipe_signal() {
  struct sigaction present {};
  sigaction(SIGPIPE, nullptr, &present);
  return present.sa_handler == SIG_DFL ? "default" : "changed";
}

}  // namespace

int main(int argument_count, char** arguments) {
  const char* record = std::getenv("VELMORA_CONTRACT_RECORD");
  if (record == nullptr || argument_count != 2) return 2;
  const std::string facts = std::string(arguments[1]) + "\n" + describe_descriptors() + "\n" +
                            describe_pipe_signal() + "\n" + std::to_string(getsid(0)) + "\n";
  // The file appears complete or not at all.
  const std::string unfinished = std::string(record) + ".part";
  std::FILE* file = std::fopen(unfinished.c_str(), "wb");
  if (file == nullptr) return 1;
  std::fputs(facts.c_str(), file);
  std::fclose(file);
  return std::rename(unfinished.c_str(), record) == 0 ? 0 : 1;
}
