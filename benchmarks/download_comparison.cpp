// Compares the download of four capture files with a plain implementation of the same two passes, with two
// archivers that store the same files, and with a bare reading. docs/performance.md explains the output.
//
// Usage: velmora_download_comparison SERVICE MINIMAL_DOWNLOAD [--bare-reading PROGRAM] [--rounds N]
// [--file-mib N]
//   [--wine LOADER]
//
// With --wine both programs are Windows', LOADER is Wine's loader (a program, not a script), and the plain
// form is the only peer.
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
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "result_rows.h"
#include "server_process.h"
#include "statistics.h"
#include "wine_program.h"

namespace velmora::bench {
namespace {

constexpr Aim plain_aim{AimKind::at_least, 2.4};
constexpr Aim archiver_aim{AimKind::at_least, 1.0};
constexpr Aim first_byte_aim{AimKind::at_most, 1.2};
constexpr Aim growth_aim_kilobytes{AimKind::at_most, 1024};
constexpr std::uint64_t headers_bytes = 518;
constexpr std::string_view token = "0123456789abcdef0123456789abcdef0123456789abcdef";
constexpr std::array<const char*, 4> names = {"capture-1-host-in.wav", "capture-2-algorithm-in.wav",
                                              "capture-3-algorithm-out.wav", "capture-4-host-out.wav"};

struct Plan {
  Launcher launcher;
  std::string service_path;
  std::string minimal_path;
  std::string bare_path;  // empty: not compared
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
  for (int attempt = 0; attempt < 30000; ++attempt) {
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
  const Launcher& launcher = plan.launcher;
  return ServerProcess(launcher.command(
      {launcher.service_program(plan.service_path, captures), "--port", std::to_string(port), "--web-root",
       launcher.program_path(pages), "--token", std::string(token), "--control-map",
       "Local\\VelmoraDownload-" + std::to_string(getpid()) + "-" + std::to_string(port),
       "--capture-directory", launcher.program_path(captures)}));
}

// Whoever is measured, and its seconds in each round.
struct Contestant {
  std::string name;
  std::function<Passes()> run;
  std::vector<double> whole = {}, first = {}, second = {};

  // Adds a turn to this round. The fastest turn counts, since whatever disturbs one only adds time.
  void take(int round) {
    const Passes passes = run();
    if (whole.size() <= static_cast<std::size_t>(round)) {
      whole.push_back(passes.whole());
      first.push_back(passes.first);
      second.push_back(passes.second);
    } else {
      whole.back() = std::min(whole.back(), passes.whole());
      first.back() = std::min(first.back(), passes.first);
      second.back() = std::min(second.back(), passes.second);
    }
  }
};

constexpr std::string_view service_name = "service";
constexpr std::string_view plain_name = "plain form";
constexpr std::string_view bsdtar_name = "bsdtar, stored zip";
constexpr std::string_view bare_name = "bare reading";

using Contestants = std::vector<Contestant>;

const Contestant* find(const Contestants& contestants, std::string_view name) {
  for (const Contestant& contestant : contestants) {
    if (contestant.name == name) return &contestant;
  }
  return nullptr;
}

std::string milliseconds(const std::vector<double>& seconds) {
  return with_unit(spread_of(seconds).median * 1e3, 1, "ms");
}

void print_pass(const Contestants& contestants, const char* title, std::vector<double> Contestant::*pass) {
  const std::vector<double>& own = contestants.front().*pass;
  std::printf("\n%-28s       time      other / service\n", title);
  for (const Contestant& contestant : contestants) {
    if (spread_of(contestant.*pass).median < 1e-4) continue;  // it has no such pass
    const Spread ratio = spread_of_ratios(contestant.*pass, own);
    std::printf("%-28s %10s   %5.2f (%.2f to %.2f)\n", contestant.name.c_str(),
                milliseconds(contestant.*pass).c_str(), ratio.median, ratio.low, ratio.high);
  }
}

// The machine's noise: one peer beside a second process of the same program.
double control_of(const Contestants& contestants, std::string_view name,
                  std::vector<double> Contestant::*pass) {
  const Contestant* peer = find(contestants, name);
  const Contestant* again = find(contestants, std::string(name) + ", again");
  return spread_of_ratios(peer->*pass, again->*pass).median;
}

void report(ResultRow row) {
  std::printf("%-28s %.3f   control %s   %s\n", row.name.c_str(), *row.ratio,
              row.control ? std::to_string(*row.control).c_str() : "-", verdict_of(row).c_str());
  add_result_row(row);
}

void report_rows(const Plan& plan, const Contestants& contestants) {
  const std::string part = "download, " + plan.launcher.system_name();
  const Contestant& own = contestants.front();
  const Contestant& plain = *find(contestants, plain_name);
  const std::string control_name(plan.launcher.is_wine() ? plain_name : bare_name);
  const bool has_control = find(contestants, control_name + ", again") != nullptr;
  const std::optional<double> control =
      has_control ? std::optional(control_of(contestants, control_name, &Contestant::first)) : std::nullopt;
  std::printf("\n");
  report({part, "beside the plain form", milliseconds(own.whole), milliseconds(plain.whole),
          spread_of_ratios(plain.whole, own.whole).median, control,
          plan.launcher.is_wine() ? Aim{} : plain_aim});
  if (const Contestant* bsdtar = find(contestants, bsdtar_name)) {
    double worst = bsdtar->whole[0] / own.whole[0];
    for (std::size_t round = 0; round < own.whole.size(); ++round) {
      worst = std::min(worst, bsdtar->whole[round] / own.whole[round]);
    }
    report({part, "beside bsdtar, worst of " + std::to_string(own.whole.size()), milliseconds(own.whole),
            milliseconds(bsdtar->whole), worst, control, archiver_aim});
  }
  if (const Contestant* bare = find(contestants, bare_name)) {
    report({part, "first byte, beside bare reading", milliseconds(own.first), milliseconds(bare->first),
            spread_of_ratios(own.first, bare->first).median, control, first_byte_aim});
  }
}

void compare_speed(const Plan& plan) {
  const ScratchDirectory directory;
  write_files(directory.path(), plan.file_mib);
  const std::uint64_t bytes = 4 * plan.file_mib * 1024 * 1024 + headers_bytes;
  std::vector<ServerProcess> servers;
  Contestants contestants;
  const auto add_server = [&](std::string name, ServerProcess server, std::uint16_t port,
                              std::uint64_t least) {
    servers.push_back(std::move(server));
    contestants.push_back({std::move(name), [port, least] { return download(port, least); }});
  };
  const auto add_program = [&](std::string_view name, const std::string& program, std::uint64_t least) {
    const std::uint16_t port = free_port();
    add_server(std::string(name),
               ServerProcess(plan.launcher.command(
                   {program, std::to_string(port), plan.launcher.program_path(directory.path())})),
               port, least);
  };
  const auto add_archiver = [&](std::string_view name, const std::string& command) {
    contestants.push_back({std::string(name), [&directory, command, bytes] {
                             return Passes{archive(directory.path(), command, bytes - headers_bytes), 0};
                           }});
  };
  const std::uint16_t service_port = free_port();
  add_server(std::string(service_name), start_service(plan, service_port, directory.path()), service_port,
             bytes);
  add_program(plain_name, plan.minimal_path, bytes);
  if (plan.launcher.is_wine()) {
    add_program(std::string(plain_name) + ", again", plan.minimal_path, bytes);
  } else {
    add_archiver(bsdtar_name, "bsdtar -cf - --format zip --options zip:compression=store");
    add_archiver("zip -0", "zip -0 -q -");
  }
  if (!plan.bare_path.empty()) {
    add_program(bare_name, plan.bare_path, 1);
    add_program(std::string(bare_name) + ", again", plan.bare_path, 1);
  }
  for (Contestant& warming_up : contestants) static_cast<void>(warming_up.run());
  constexpr int turns_in_a_round = 3;
  for (int turn = 0; turn < plan.rounds * turns_in_a_round; ++turn) {
    for (std::size_t place = 0; place < contestants.size(); ++place) {
      give_up_if_interrupted();
      contestants[(place + static_cast<std::size_t>(turn)) % contestants.size()].take(turn /
                                                                                      turns_in_a_round);
    }
  }
  servers.front().expect_running();
  std::printf("%d rounds, each the fastest of %d downloads of 4 x %llu MiB\n", plan.rounds, turns_in_a_round,
              static_cast<unsigned long long>(plan.file_mib));
  print_pass(contestants, "the whole download", &Contestant::whole);
  print_pass(contestants, "until the first byte", &Contestant::first);
  print_pass(contestants, "from then on", &Contestant::second);
  report_rows(plan, contestants);
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
  const auto growth = static_cast<double>(service.peak_kilobytes() - idle);
  std::printf("\nmemory above idle (%ld kB) during a download of 4 x %llu MiB: %.0f kB\n", idle,
              static_cast<unsigned long long>(mib), growth);
  report({"memory, Linux",
          "growth in a download, kB",
          with_unit(growth, 0, "kB"),
          {},
          growth,
          {},
          growth_aim_kilobytes});
}

Plan read_plan(int argc, char** argv) {
  Plan plan;
  if (argc < 3) {
    give_up(
        "usage: velmora_download_comparison SERVICE MINIMAL_DOWNLOAD [--bare-reading PROGRAM] [--rounds N] "
        "[--file-mib N] [--wine LOADER]");
  }
  plan.service_path = argv[1];
  plan.minimal_path = argv[2];
  for (int index = 3; index + 1 < argc; index += 2) {
    const std::string_view name = argv[index];
    const std::string text = argv[index + 1];
    if (name == "--wine") plan.launcher = Launcher(text);
    if (name == "--bare-reading") plan.bare_path = text;
    if (name == "--wine" || name == "--bare-reading") continue;
    const int value = std::atoi(text.c_str());
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
  if (!plan.launcher.is_wine()) measure_memory(plan, 115);
}
