// Compares the download of four capture files with a plain implementation of the same two passes, and with
// two archivers that store the same files. docs/performance.md explains the output.
//
// Usage: velmora_download_comparison SERVICE MINIMAL_DOWNLOAD [--rounds N] [--file-mib N]
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "server_process.h"
#include "statistics.h"

namespace velmora::bench {
namespace {

constexpr double plain_aim = 2.4;
constexpr double archiver_aim = 1.0;
constexpr long growth_aim_kilobytes = 1024;
constexpr std::uint64_t headers_bytes = 518;
constexpr std::string_view token = "0123456789abcdef0123456789abcdef0123456789abcdef";
constexpr std::array<const char*, 4> names = {"capture-1-host-in.wav", "capture-2-algorithm-in.wav",
                                              "capture-3-algorithm-out.wav", "capture-4-host-out.wav"};

struct Plan {
  std::string service_path;
  std::string minimal_path;
  int rounds = 9;
  std::uint64_t file_mib = 46;
};

// Seconds until the first byte (the first pass), and from then to the last byte (the second).
struct Passes {
  double first = 0;
  double second = 0;
  [[nodiscard]] double whole() const { return first + second; }
};

class ScratchDirectory {
 public:
  ScratchDirectory() {
    std::string name = (std::filesystem::temp_directory_path() / "velmora-download-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) give_up("no directory for the files");
    path_ = name;
  }
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;
  ~ScratchDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// Writes incompressible files.
void write_files(const std::string& directory, std::uint64_t mib) {
  std::vector<std::uint64_t> block(1024 * 1024 / sizeof(std::uint64_t));
  std::uint64_t state = 1;
  for (const char* name : names) {
    std::ofstream file(directory + '/' + name, std::ios::binary);
    for (std::uint64_t count = 0; count < mib; ++count) {
      for (std::uint64_t& word : block) {
        state = state * 6364136223846793005u + 1442695040888963407u;
        word = state ^ (state >> 29);
      }
      file.write(reinterpret_cast<const char*>(block.data()), 1024 * 1024);
    }
    if (!file.flush()) give_up("the files cannot be written");
  }
}

double seconds_since(std::int64_t start_ns) { return static_cast<double>(now_ns() - start_ns) / 1e9; }

int connect_to(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  for (int attempt = 0; attempt < 5000; ++attempt) {
    const int client = socket(AF_INET, SOCK_STREAM, 0);
    if (connect(client, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return client;
    close(client);
    usleep(1000);
  }
  give_up("a server does not listen");
}

// Reads to the end of the stream. The first read returns after the first pass.
Passes drain(int descriptor, std::int64_t start_ns, std::uint64_t least_bytes) {
  static std::array<char, 262144> buffer;
  Passes passes;
  std::uint64_t total = 0;
  for (ssize_t count = 0; (count = read(descriptor, buffer.data(), buffer.size())) > 0;) {
    if (total == 0) passes.first = seconds_since(start_ns);
    total += static_cast<std::uint64_t>(count);
  }
  passes.second = seconds_since(start_ns) - passes.first;
  if (total < least_bytes) give_up("a download is short: " + std::to_string(total) + " bytes");
  return passes;
}

Passes download(std::uint16_t port, std::uint64_t least_bytes) {
  const int client = connect_to(port);
  const std::string request =
      "GET /api/v1/debug/capture/download HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) +
      "\r\nX-Velmora-Token: " + std::string(token) + "\r\n\r\n";
  const std::int64_t start_ns = now_ns();
  if (send(client, request.data(), request.size(), 0) < 0) give_up("a request cannot be sent");
  const Passes passes = drain(client, start_ns, least_bytes);
  close(client);
  return passes;
}

// Runs an archiver on the processor of the servers and returns its time in seconds.
double archive(const std::string& directory, const std::string& archiver, std::uint64_t least_bytes) {
  const long processors = sysconf(_SC_NPROCESSORS_ONLN);
  std::string command = "cd " + directory + " && ";
  if (processors > 1) command += "taskset -c " + std::to_string(processors - 1) + " ";
  command += archiver;
  for (const char* name : names) command += std::string(" ") + name;
  const std::int64_t start_ns = now_ns();
  std::FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) give_up("no shell for " + command);
  const Passes passes = drain(fileno(pipe), start_ns, least_bytes);
  if (pclose(pipe) != 0) give_up("failed: " + command);
  return passes.whole();
}

// Starts the service with small pages and the capture files of a directory.
ServerProcess start_service(const Plan& plan, std::uint16_t port, const std::string& captures) {
  const std::string pages = captures + "/pages";
  std::filesystem::create_directory(pages);
  for (const char* page : {"index.html", "advanced.html", "velmora-eq.js", "help.html"}) {
    std::ofstream(pages + '/' + page) << "page";
  }
  return ServerProcess({plan.service_path, "--port", std::to_string(port), "--web-root", pages, "--token",
                        std::string(token), "--control-map",
                        "Local\\VelmoraDownload-" + std::to_string(getpid()), "--capture-directory",
                        captures});
}

struct Results {
  std::vector<double> service, service_first, service_second;
  std::vector<double> minimal, minimal_first, minimal_second;
  std::vector<double> bsdtar, zip;
};

void keep(const Passes& passes, std::vector<double>& whole, std::vector<double>& first,
          std::vector<double>& second) {
  whole.push_back(passes.whole());
  first.push_back(passes.first);
  second.push_back(passes.second);
}

void print_ratio(const char* name, const std::vector<double>& other, const std::vector<double>& service,
                 double aim) {
  const Spread ratio = spread_of_ratios(other, service);
  std::printf("%-28s %8.1f ms   %5.2f (%.2f to %.2f)", name, spread_of(other).median * 1e3, ratio.median,
              ratio.low, ratio.high);
  if (aim > 0) std::printf("   >= %.1f: %s", aim, ratio.median >= aim ? "met" : "missed");
  std::printf("\n");
}

void print_table(const Plan& plan, const Results& results) {
  std::printf("%d rounds of 4 x %llu MiB\n\n", plan.rounds, static_cast<unsigned long long>(plan.file_mib));
  std::printf("the whole download             time      other / service         aim\n");
  std::printf("%-28s %8.1f ms\n", "service", spread_of(results.service).median * 1e3);
  print_ratio("plain form", results.minimal, results.service, plain_aim);
  print_ratio("bsdtar, stored zip", results.bsdtar, results.service, archiver_aim);
  print_ratio("zip -0", results.zip, results.service, 0);
  std::printf("\npass by pass\n");
  std::printf("%-28s %8.1f ms\n", "service, checksums", spread_of(results.service_first).median * 1e3);
  print_ratio("plain form, checksums", results.minimal_first, results.service_first, 0);
  std::printf("%-28s %8.1f ms\n", "service, sending", spread_of(results.service_second).median * 1e3);
  print_ratio("plain form, sending", results.minimal_second, results.service_second, 0);
}

void compare_speed(const Plan& plan) {
  const ScratchDirectory directory;
  write_files(directory.path(), plan.file_mib);
  const std::uint64_t bytes = 4 * plan.file_mib * 1024 * 1024 + headers_bytes;
  const std::uint16_t service_port = free_port();
  const ServerProcess service = start_service(plan, service_port, directory.path());
  const std::uint16_t minimal_port = free_port();
  const ServerProcess minimal({plan.minimal_path, std::to_string(minimal_port), directory.path()});
  Results results;
  // The first round only warms up the caches.
  for (int round = 0; round <= plan.rounds; ++round) {
    give_up_if_interrupted();
    Results discarded;
    Results& target = round == 0 ? discarded : results;
    keep(download(service_port, bytes), target.service, target.service_first, target.service_second);
    keep(download(minimal_port, bytes), target.minimal, target.minimal_first, target.minimal_second);
    target.bsdtar.push_back(archive(directory.path(),
                                    "bsdtar -cf - --format zip --options zip:compression=store",
                                    bytes - headers_bytes));
    target.zip.push_back(archive(directory.path(), "zip -0 -q -", bytes - headers_bytes));
  }
  service.expect_running();
  print_table(plan, results);
}

// Measures the service's extra memory while it sends files of this size.
void measure_memory(const Plan& plan, std::uint64_t mib) {
  const ScratchDirectory directory;
  write_files(directory.path(), mib);
  const std::uint16_t port = free_port();
  const ServerProcess service = start_service(plan, port, directory.path());
  close(connect_to(port));
  usleep(300'000);
  service.forget_peak();
  const long idle = service.peak_kilobytes();
  download(port, 4 * mib * 1024 * 1024 + headers_bytes);
  const long growth = service.peak_kilobytes() - idle;
  std::printf("\nmemory above idle (%ld kB) during a download of 4 x %llu MiB: %ld kB   aim < %ld kB: %s\n",
              idle, static_cast<unsigned long long>(mib), growth, growth_aim_kilobytes,
              growth < growth_aim_kilobytes ? "met" : "missed");
}

Plan read_plan(int argc, char** argv) {
  Plan plan;
  if (argc < 3)
    give_up("usage: velmora_download_comparison SERVICE MINIMAL_DOWNLOAD [--rounds N] [--file-mib N]");
  plan.service_path = argv[1];
  plan.minimal_path = argv[2];
  for (int index = 3; index + 1 < argc; index += 2) {
    const std::string_view name = argv[index];
    const int value = std::atoi(argv[index + 1]);
    if (value < 1) give_up("a number above 0 is needed for " + std::string(name));
    if (name == "--rounds") plan.rounds = value;
    if (name == "--file-mib") plan.file_mib = static_cast<std::uint64_t>(value);
  }
  return plan;
}

}  // namespace
}  // namespace velmora::bench

int main(int argc, char** argv) {
  using namespace velmora::bench;
  const Plan plan = read_plan(argc, argv);
  notice_interruption();
  std::printf("%s\n", part_processors().c_str());
  compare_speed(plan);
  measure_memory(plan, 115);
}
