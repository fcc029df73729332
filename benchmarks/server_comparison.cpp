// Compares requests, start and memory of the service with a minimal loop of the same system calls. A second
// copy of that loop is the control. docs/performance.md explains the output.
//
// Usage: velmora_server_comparison SERVICE MINIMAL_LOOP [--rounds N] [--connections N] [--starts N]
//   [--wine LOADER]
//
// With --wine both programs are Windows', and LOADER is Wine's loader (a program, not a script).
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "queued_load.h"
#include "result_rows.h"
#include "server_process.h"
#include "statistics.h"
#include "wine_program.h"

namespace velmora::bench {
namespace {

constexpr Aim speed_aim{AimKind::at_least, 0.95};
constexpr Aim speed_aim_under_wine{AimKind::at_least, 0.93};
constexpr Aim start_aim{AimKind::at_most, 1.2};
constexpr long peak_aim_kilobytes = 4096;
constexpr std::size_t small_page_bytes = 2560;
constexpr std::size_t large_page_bytes = 20480;
constexpr std::size_t largest_request_bytes = 65536;
constexpr std::string_view token = "0123456789abcdef0123456789abcdef0123456789abcdef";
constexpr std::string_view footstep_body = "{\"bypass\":false,\"bypass_all\":false,\"enhance_strength\":0.5}";
// Headers that a browser adds to a script's request.
constexpr std::string_view browser_headers =
    "Connection: keep-alive\r\n"
    "sec-ch-ua: \"Chromium\";v=\"120\", \"Not?A_Brand\";v=\"8\"\r\n"
    "sec-ch-ua-mobile: ?0\r\n"
    "sec-ch-ua-platform: \"Windows\"\r\n"
    "User-Agent: Mozilla/5.0 (Windows NT 10.0; Win64; x64) AppleWebKit/537.36 (KHTML, like Gecko) "
    "Chrome/120.0.0.0 Safari/537.36\r\n"
    "Accept: */*\r\n"
    "Sec-Fetch-Site: same-origin\r\n"
    "Sec-Fetch-Mode: cors\r\n"
    "Sec-Fetch-Dest: empty\r\n"
    "Accept-Encoding: gzip, deflate, br\r\n"
    "Accept-Language: en-GB,en;q=0.9\r\n";

// Headers that a browser sends when it opens a page.
constexpr std::string_view browser_page_headers =
    "Connection: keep-alive\r\n"
    "sec-ch-ua: \"Chromium\";v=\"120\", \"Not?A_Brand\";v=\"8\"\r\n"
    "sec-ch-ua-mobile: ?0\r\n"
    "sec-ch-ua-platform: \"Windows\"\r\n"
    "Upgrade-Insecure-Requests: 1\r\n"
    "User-Agent: Mozilla/5.0 (Windows NT 10.0; Win64; x64) AppleWebKit/537.36 (KHTML, like Gecko) "
    "Chrome/120.0.0.0 Safari/537.36\r\n"
    "Accept: "
    "text/html,application/xhtml+xml,application/xml;q=0.9,image/avif,image/webp,image/apng,*/*;q=0.8\r\n"
    "Sec-Fetch-Site: none\r\n"
    "Sec-Fetch-Mode: navigate\r\n"
    "Sec-Fetch-User: ?1\r\n"
    "Sec-Fetch-Dest: document\r\n"
    "Accept-Encoding: gzip, deflate, br\r\n"
    "Accept-Language: en-GB,en;q=0.9\r\n";

struct Plan {
  Launcher launcher;
  std::string service_path;
  std::string loop_path;
  std::size_t rounds = 401;
  std::size_t connections = 100;
  std::size_t starts = 201;
};

// Index into everything that is measured three times.
enum Contestant : std::size_t { service, minimal, control, contestants };

// What each contestant took for one request or start, in microseconds, by round.
using ThreeSets = std::array<std::vector<double>, contestants>;

// A ratio over all rounds, and the lowest and the highest over a fifth of them.
struct Ratio {
  double value;
  double low;
  double high;
};

// One kind of answer, its three servers and the measurements.
struct Row {
  std::string_view name;
  // False if the service queries its machine for the answer, which no loop does.
  bool has_aim = true;
  std::string request = {};
  std::size_t answer_bytes = 0;
  std::vector<const ServerProcess*> servers = {};
  std::vector<std::uint16_t> ports = {};
  ThreeSets wall_us = {};
  ThreeSets processor_us = {};
};

// A temporary web root with pages of the measured sizes. The destructor removes it.
class WebRoot {
 public:
  WebRoot() {
    std::string pattern = (std::filesystem::temp_directory_path() / "velmora-bench-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) give_up("no directory for pages");
    path_ = pattern;
    const auto write_page = [&](std::string_view name, std::size_t bytes) {
      std::ofstream(path_ / name) << std::string(bytes, 'p');
    };
    write_page("index.html", small_page_bytes);
    write_page("advanced.html", large_page_bytes);
    write_page("velmora-eq.js", small_page_bytes);
    write_page("help.html", small_page_bytes);
  }
  WebRoot(const WebRoot&) = delete;
  WebRoot& operator=(const WebRoot&) = delete;
  ~WebRoot() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  [[nodiscard]] std::string path() const { return path_.string(); }

 private:
  std::filesystem::path path_;
};

std::string request_of(std::string_view line, std::uint16_t port, std::string_view more_headers,
                       std::string_view body) {
  std::string request = std::string(line) + " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) + "\r\n";
  request += more_headers;
  if (!body.empty()) {
    request += "X-Velmora-Token: " + std::string(token) +
               "\r\nContent-Type: application/json\r\nContent-Length: " + std::to_string(body.size()) +
               "\r\n";
  }
  return request + "\r\n" + std::string(body);
}

std::string footstep_request(std::uint16_t port, std::string_view more_headers) {
  return request_of("PUT /api/v1/render/effects/footstep", port, more_headers, footstep_body);
}

// Returns a footstep request of the largest size that the service accepts.
std::string largest_request(std::uint16_t port) {
  std::string body(footstep_body);
  std::string request = request_of("PUT /api/v1/render/effects/footstep", port, "", body);
  constexpr std::size_t digits_of_length = 3;  // the length grows from two digits to five
  body.append(largest_request_bytes - request.size() - digits_of_length, ' ');
  return request_of("PUT /api/v1/render/effects/footstep", port, "", body);
}

ServerProcess start_service(const Plan& plan, const WebRoot& web_root, std::uint16_t port) {
  return ServerProcess(
      plan.launcher.command({plan.service_path, "--port", std::to_string(port), "--web-root",
                             plan.launcher.program_path(web_root.path()), "--token", std::string(token),
                             "--control-map", "Local\\VelmoraBench-" + std::to_string(port)}));
}

ServerProcess start_loop(const Plan& plan, std::size_t answer_bytes, std::uint16_t port) {
  return ServerProcess(
      plan.launcher.command({plan.loop_path, std::to_string(port), std::to_string(answer_bytes)}));
}

// The servers of all rows: one service for all rows, and two loops for each row.
class Field {
 public:
  Field(const Plan& plan, const WebRoot& web_root, std::vector<Row>& rows) {
    servers_.reserve(1 + 2 * rows.size());
    const std::uint16_t port = free_port();
    servers_.push_back(start_service(plan, web_root, port));
    fill_requests(rows, port);
    for (Row& row : rows) {
      const std::string answer = exchange_when_up(servers_.front(), port, row.request).answer;
      if (!answer.starts_with("HTTP/1.1 200 ")) give_up("the service refused: " + answer);
      row.answer_bytes = answer.size();
      row.servers = {&servers_.front()};
      row.ports = {port};
      for (const Contestant loop : {minimal, control}) add_loop(plan, row, loop);
    }
    port_ = port;
  }

  // Sends the largest request and returns the service's peak memory.
  [[nodiscard]] long peak_kilobytes() const {
    const std::string answer = exchange_when_up(servers_.front(), port_, largest_request(port_)).answer;
    if (!answer.starts_with("HTTP/1.1 200 ")) give_up("the service refused the largest request: " + answer);
    return servers_.front().peak_kilobytes();
  }

 private:
  static void fill_requests(std::vector<Row>& rows, std::uint16_t port) {
    rows[0].request = footstep_request(port, "");
    rows[1].request = footstep_request(port, browser_headers);
    rows[2].request = request_of("GET /", port, "", "");
    rows[3].request = request_of("GET /", port, browser_page_headers, "");
    rows[4].request = request_of("GET /advanced.html", port, "", "");
    rows[5].request =
        request_of("GET /api/v1/status", port, "X-Velmora-Token: " + std::string(token) + "\r\n", "");
  }

  void add_loop(const Plan& plan, Row& row, Contestant loop) {
    const std::uint16_t port = free_port();
    servers_.push_back(start_loop(plan, row.answer_bytes, port));
    static_cast<void>(exchange_when_up(servers_.back(), port, row.request));
    row.servers.push_back(&servers_[servers_.size() - 1]);
    row.ports.push_back(port);
    if (row.servers.size() != loop + 1) give_up("servers out of order");
  }

  std::vector<ServerProcess> servers_;
  std::uint16_t port_ = 0;
};

void measure_queue(Row& row, std::size_t who, std::size_t connections) {
  const Taken taken =
      serve_queue(*row.servers[who], row.ports[who], row.request, row.answer_bytes, connections);
  const double requests_and_us = static_cast<double>(connections) * 1000.0;
  row.wall_us[who].push_back(static_cast<double>(taken.wall_ns) / requests_and_us);
  row.processor_us[who].push_back(static_cast<double>(taken.processor_ns) / requests_and_us);
}

// Under Wine a status document takes milliseconds.
std::size_t connections_for(const Plan& plan, const Row& row) {
  constexpr std::size_t few = 16;
  return plan.launcher.is_wine() && !row.has_aim ? std::min(plan.connections, few) : plan.connections;
}

void measure_requests(const Plan& plan, std::vector<Row>& rows) {
  for (std::size_t round = 0; round < plan.rounds; ++round) {
    for (Row& row : rows) {
      for (std::size_t turn = 0; turn < contestants; ++turn) {
        measure_queue(row, (round + turn) % contestants, connections_for(plan, row));
      }
    }
  }
}

// Microseconds from exec to the first byte of the answer to a footstep request.
double measure_start(const Plan& plan, const WebRoot& web_root, std::size_t who, std::size_t answer_bytes) {
  give_up_if_interrupted();
  const std::uint16_t port = free_port();
  const ServerProcess server =
      who == service ? start_service(plan, web_root, port) : start_loop(plan, answer_bytes, port);
  const Exchange exchange = exchange_when_up(server, port, footstep_request(port, ""));
  if (exchange.answer.size() != answer_bytes) give_up("a wrong answer after the start");
  return static_cast<double>(exchange.first_byte_ns - server.started_ns()) / 1000.0;
}

ThreeSets measure_starts(const Plan& plan, const WebRoot& web_root, std::size_t answer_bytes) {
  ThreeSets start_us;
  for (std::size_t round = 0; round < plan.starts; ++round) {
    for (std::size_t turn = 0; turn < contestants; ++turn) {
      const std::size_t who = (round + turn) % contestants;
      start_us[who].push_back(measure_start(plan, web_root, who, answer_bytes));
    }
  }
  return start_us;
}

void print_header(std::string_view what, std::string_view ratio) {
  std::printf("\n%-30s %9s %9s %9s   %-24s %17s  %s\n", std::string(what).c_str(), "service", "minimal",
              "control", std::string(ratio).c_str(), "minimal / control", "verdict");
}

// Every `step`-th value, beginning with number `first`.
std::vector<double> thinned(const std::vector<double>& values, std::size_t first, std::size_t step) {
  std::vector<double> thin;
  for (std::size_t index = first; index < values.size(); index += step) thin.push_back(values[index]);
  return thin;
}

Ratio ratio_of(const std::vector<double>& numerators, const std::vector<double>& denominators) {
  constexpr std::size_t most_parts = 5;
  const auto ratio = [&](std::size_t first, std::size_t step) {
    return undisturbed(thinned(numerators, first, step)) / undisturbed(thinned(denominators, first, step));
  };
  const std::size_t parts = std::min(most_parts, numerators.size());
  Ratio result{ratio(0, 1), ratio(0, parts), ratio(0, parts)};
  for (std::size_t part = 1; part < parts; ++part) {
    result.low = std::min(result.low, ratio(part, parts));
    result.high = std::max(result.high, ratio(part, parts));
  }
  return result;
}

// Prints the times in microseconds, the ratio with the range of its parts, the control's ratio and the
// verdict. Returns the line for the table.
ResultRow print_line(ResultRow row, const ThreeSets& sets, const Ratio& ratio) {
  row.control = ratio_of(sets[minimal], sets[control]).value;
  row.ratio = ratio.value;
  row.ours = with_unit(undisturbed(sets[service]), 2, "us");
  row.peer = with_unit(undisturbed(sets[minimal]), 2, "us");
  std::printf("%-30s %9.2f %9.2f %9.2f   %.3f (%.3f to %.3f)   %17.3f  %s\n", row.name.c_str(),
              undisturbed(sets[service]), undisturbed(sets[minimal]), undisturbed(sets[control]), ratio.value,
              ratio.low, ratio.high, *row.control, verdict_of(row).c_str());
  return row;
}

// Processor time is printed but is not in the table: under Wine most of it is in another process.
void print_speed(const Plan& plan, const std::vector<Row>& rows, bool is_processor_time) {
  print_header(is_processor_time ? "processor time for each, us" : "time for each request, us",
               "minimal / service");
  const Aim aim = plan.launcher.is_wine() ? speed_aim_under_wine : speed_aim;
  for (const Row& row : rows) {
    const ThreeSets& measured = is_processor_time ? row.processor_us : row.wall_us;
    ResultRow line{"requests, " + plan.launcher.system_name(), std::string(row.name), {}, {}};
    if (row.has_aim) line.aim = aim;
    line = print_line(line, measured, ratio_of(measured[minimal], measured[service]));
    if (!is_processor_time) add_result_row(line);
  }
}

void print_start(const Plan& plan, const ThreeSets& start_us) {
  print_header("first byte after exec, us", "service / minimal");
  ResultRow line{"start, " + plan.launcher.system_name(), "first byte after exec", {}, {}};
  if (!plan.launcher.is_wine()) line.aim = start_aim;
  add_result_row(print_line(line, start_us, ratio_of(start_us[service], start_us[minimal])));
}

void print_peak(long peak) {
  const ResultRow line{"memory, Linux",
                       "peak, kB",
                       with_unit(static_cast<double>(peak), 0, "kB"),
                       {},
                       static_cast<double>(peak),
                       {},
                       {AimKind::at_most, static_cast<double>(peak_aim_kilobytes)}};
  std::printf("\n%-30s %9ld kB   aim <= %ld kB: %s\n", "peak memory of the service", peak, peak_aim_kilobytes,
              verdict_of(line).c_str());
  add_result_row(line);
}

std::optional<Plan> parse_plan(const std::vector<std::string_view>& arguments) {
  if (arguments.size() < 2 || arguments.size() % 2 != 0) return std::nullopt;
  Plan plan;
  plan.service_path = arguments[0];
  plan.loop_path = arguments[1];
  for (std::size_t index = 2; index < arguments.size(); index += 2) {
    if (arguments[index] == "--wine") {
      plan.launcher = Launcher(std::string(arguments[index + 1]));
      continue;
    }
    const auto number = static_cast<std::size_t>(std::strtoul(arguments[index + 1].data(), nullptr, 10));
    if (number < 2) return std::nullopt;
    if (arguments[index] == "--rounds") {
      plan.rounds = number;
    } else if (arguments[index] == "--connections") {
      plan.connections = number;
    } else if (arguments[index] == "--starts") {
      plan.starts = number;
    } else {
      return std::nullopt;
    }
  }
  return plan;
}

int compare(Plan plan) {
  notice_interruption();
  plan.connections = std::min(plan.connections, queue_limit());
  const std::string processors = part_processors();
  static const WebRoot web_root;
  plan.service_path = plan.launcher.service_program(plan.service_path, web_root.path());
  static std::vector<Row> rows{{"11 bytes"}, {"11 bytes, to a browser"},
                               {"2.5 KB"},   {"2.5 KB, to a browser"},
                               {"20 KB"},    {"the status document", false}};
  static const Field field(plan, web_root, rows);
  std::printf("%zu rounds of queues of %zu requests, %zu starts. %s\n", plan.rounds, plan.connections,
              plan.starts, processors.c_str());
  measure_requests(plan, rows);
  print_speed(plan, rows, false);
  print_speed(plan, rows, true);
  print_start(plan, measure_starts(plan, web_root, rows[0].answer_bytes));
  // Under Wine the loader's memory is most of it.
  if (!plan.launcher.is_wine()) print_peak(field.peak_kilobytes());
  return 0;
}

}  // namespace
}  // namespace velmora::bench

int main(int argc, char** argv) {
  const auto plan = velmora::bench::parse_plan({argv + (argc > 0 ? 1 : 0), argv + argc});
  if (plan) return velmora::bench::compare(*plan);
  std::fputs(
      "Usage: velmora_server_comparison SERVICE MINIMAL_LOOP [--rounds N] [--connections N] [--starts N] "
      "[--wine LOADER]\n",
      stderr);
  return 2;
}
