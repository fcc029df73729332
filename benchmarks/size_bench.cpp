// Measures requests about large machines: hundreds of endpoints, thousands of sessions, processes and
// presets, and a long chain, at growing sizes. docs/performance.md explains the output.
//
// It links the machine in memory, so what it measures is our own code and that machine's, without system
// calls.
//
// Usage: velmora_size_bench [MILLISECONDS [SCALE REQUEST]]: MILLISECONDS is how long each point is measured.
// With SCALE (1: the full size) and REQUEST (devices, status, presets or bind) it makes only that machine and
// sends that request 10 times, for a profile. Ends with 1 if an answer is wrong.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "api/routes.h"
#include "base/text.h"
#include "memory/system.h"
#include "platform/hosted/registry_tree.h"
#include "platform/registry.h"
#include "result_rows.h"
#include "statistics.h"

namespace velmora::bench {
namespace {

constexpr std::array<double, 5> scales = {1.0 / 16, 1.0 / 8, 1.0 / 4, 1.0 / 2, 1.0};
constexpr std::size_t least_samples = 5;
constexpr Aim longest_aim_ms{AimKind::at_most, 100};
constexpr std::string_view token = "0123456789abcdef0123456789abcdef";

constexpr std::string_view preset_directory = "C:\\ProgramData\\Velmora\\presets";

// How many of each.
struct Size {
  std::size_t render_endpoints = 400;
  std::size_t capture_endpoints = 100;
  std::size_t sessions = 2000;
  std::size_t processes = 3000;
  std::size_t chain_entries = 200;  // of the default endpoint
  std::size_t presets = 5000;
};

Size scaled(double scale) {
  const auto part = [scale](std::size_t count) {
    return static_cast<std::size_t>(static_cast<double>(count) * scale);
  };
  const Size full;
  return {part(full.render_endpoints), part(full.capture_endpoints), part(full.sessions),
          part(full.processes),        part(full.chain_entries),     part(full.presets)};
}

std::u16string numbered_guid(std::size_t number) {
  std::array<char, 40> text{};
  std::snprintf(text.data(), text.size(), "{%08zx-5d96-4f7f-a65b-eda9cf0c26ef}",
                number * 2654435761u & 0xFFFFFFFF);
  return wide_from_ascii(text.data());
}

std::string bytes_of(std::u16string_view units) {
  return {reinterpret_cast<const char*>(units.data()), units.size() * sizeof(char16_t)};
}

void put_text(hosted::TreeKey& key, std::u16string_view name, std::u16string text) {
  text += u'\0';
  hosted::put_value(key, name, reg_sz, bytes_of(text));
}

void put_number(hosted::TreeKey& key, std::u16string_view name, std::uint32_t number) {
  hosted::put_value(key, name, reg_dword, {reinterpret_cast<const char*>(&number), sizeof number});
}

void put_chain(hosted::TreeKey& key, std::size_t entries) {
  std::u16string text;
  for (std::size_t index = 0; index < entries; ++index) text += numbered_guid(1000 + index) + u'\0';
  text += u'\0';
  hosted::put_value(key, u"{d04e05a6-594b-4fb6-a80d-01af5eed7d1d},14", reg_multi_sz, bytes_of(text));
}

// Adds endpoints of one flow in the order of their keys' names, as Windows lists them.
void put_endpoints(hosted::TreeKey& devices, hosted::TreeKey& own, std::u16string_view id_prefix,
                   std::size_t count, const Size& size) {
  std::vector<std::u16string> guids;
  for (std::size_t index = 0; index < count; ++index) guids.push_back(numbered_guid(index));
  std::sort(guids.begin(), guids.end());
  const std::size_t endpoints = size.render_endpoints + size.capture_endpoints;
  const std::size_t sessions = size.sessions / std::max<std::size_t>(endpoints, 1);
  for (std::size_t index = 0; index < count; ++index) {
    hosted::TreeKey& device = hosted::make_key(devices, guids[index], hosted::KeyPlace::last);
    put_number(device, u"DeviceState", 1);
    hosted::TreeKey& properties = hosted::make_key(device, u"Properties", hosted::KeyPlace::last);
    put_text(properties, u"{a45c254e-df1c-4efd-8020-67d146a850e0},14",
             u"Loudspeakers " + wide_from_ascii(std::to_string(index)));
    hosted::TreeKey& effects = hosted::make_key(device, u"FxProperties", hosted::KeyPlace::last);
    put_chain(effects, index == 0 ? size.chain_entries : 2);
    hosted::TreeKey& state =
        hosted::make_key(own, std::u16string(id_prefix) + guids[index], hosted::KeyPlace::last);
    put_text(state, u"Volume", u"0.5");
    put_text(state, u"Peak", u"0.25");
    hosted::TreeKey& kept = hosted::make_key(state, u"Sessions", hosted::KeyPlace::last);
    for (std::size_t session = 0; session < sessions; ++session) {
      hosted::TreeKey& entry =
          hosted::make_key(kept, wide_from_ascii(std::to_string(session)), hosted::KeyPlace::last);
      put_number(entry, u"State", 1);
      put_number(entry, u"ProcessId",
                 static_cast<std::uint32_t>(4 + 4 * ((index * sessions + session) % size.processes)));
    }
  }
}

// A machine of this size. The engine is the last process, so that every other one is looked at.
void make_machine(const Size& size) {
  memory::reset();
  memory::System& machine = memory::system();
  hosted::RegistryTree& registry = machine.state.registry;
  const std::u16string devices =
      u"HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\MMDevices\\Audio\\";
  static_cast<void>(hosted::make_key(registry, devices + u"Render"));
  static_cast<void>(hosted::make_key(registry, devices + u"Capture"));
  const std::u16string own_path = u"HKEY_LOCAL_MACHINE\\SOFTWARE\\VelmoraStandIn\\Audio";
  static_cast<void>(hosted::make_key(registry, own_path));
  put_endpoints(*hosted::find_key(registry, devices + u"Render"), *hosted::find_key(registry, own_path),
                u"{0.0.0.00000000}.", size.render_endpoints, size);
  put_endpoints(*hosted::find_key(registry, devices + u"Capture"), *hosted::find_key(registry, own_path),
                u"{0.0.1.00000000}.", size.capture_endpoints, size);
  for (std::size_t index = 0; index + 1 < size.processes; ++index) {
    const auto id = static_cast<std::uint32_t>(4 + 4 * index);
    const std::u16string name = u"program-" + wide_from_ascii(std::to_string(index)) + u".exe";
    machine.processes.push_back({id, name, {}});
    machine.process_paths[id] = u"C:\\Program Files\\Some Maker\\" + name;
  }
  machine.processes.push_back({4'000'000, u"audiodg.exe", {{u"fse.dll", u"C:\\fse.dll"}}});
  machine.files[std::string(preset_directory)].kind = FileKind::directory;
  for (std::size_t index = 0; index < size.presets; ++index) {
    machine.files[std::string(preset_directory) + "\\Preset " + std::to_string(index) + ".json"].bytes = "{}";
  }
}

struct Request {
  std::string text;
  std::string wanted;  // in the answer
};

Request request_of(const std::string& line, const std::string& body, std::string wanted) {
  std::string text = line + " HTTP/1.1\r\nHost: 127.0.0.1:17831\r\nx-velmora-token: " + std::string(token) +
                     "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
  return {std::move(text), std::move(wanted)};
}

// Processor time, so that other programs' time does not count.
double processor_seconds() {
  timespec time{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

// Seconds that the service takes for one request.
double time_request(ServiceState& state, const Request& request) {
  memory::System& machine = memory::system();
  machine.log.clear();  // only this machine keeps it
  auto client = std::make_shared<memory::Connection>();
  client->to_service = {request.text};
  client->client_done = true;
  memory::Handle handle;
  handle.what = "socket";
  handle.connection = client;
  const Socket socket(memory::add_handle(std::move(handle)));
  const double start = processor_seconds();
  handle_connection(socket, state);
  const double seconds = processor_seconds() - start;
  if (client->from_service.find(request.wanted) == std::string::npos) {
    std::fprintf(stderr, "a wrong answer: %s\n", client->from_service.substr(0, 400).c_str());
    std::exit(1);
  }
  return seconds;
}

// One curve.
struct Curve {
  std::string name;
  std::string element;
  std::size_t Size::*count;
  std::vector<Request> requests;  // one after another; their sum is a sample
  std::vector<double> seconds;    // median at each scale
  double again = 0;               // a second median at the full size
};

double median_seconds(ServiceState& state, const Curve& curve, double limit_s) {
  std::vector<double> samples;
  double total = 0;
  while (samples.size() < least_samples || total < limit_s) {
    double sum = 0;
    for (const Request& request : curve.requests) sum += time_request(state, request);
    samples.push_back(sum / static_cast<double>(curve.requests.size()));
    total += sum;
  }
  return spread_of(std::move(samples)).median;
}

// The exponent of the power of the size that fits the times best (least squares of the logarithms).
double fitted_exponent(const std::vector<double>& seconds) {
  double sum_x = 0, sum_y = 0, sum_xx = 0, sum_xy = 0;
  const auto count = static_cast<double>(seconds.size());
  for (std::size_t index = 0; index < seconds.size(); ++index) {
    const double x = std::log(scales.at(index));
    const double y = std::log(seconds[index]);
    sum_x += x, sum_y += y, sum_xx += x * x, sum_xy += x * y;
  }
  return (count * sum_xy - sum_x * sum_y) / (count * sum_xx - sum_x * sum_x);
}

void print_curve(const Curve& curve) {
  std::printf("\n%s\n%10s %12s %16s\n", curve.name.c_str(), curve.element.c_str(), "ms", "us for each");
  std::vector<double> each_us;
  for (std::size_t index = 0; index < scales.size(); ++index) {
    const Size size = scaled(scales.at(index));
    const auto elements = static_cast<double>(size.*curve.count);
    each_us.push_back(curve.seconds[index] * 1e6 / elements);
    std::printf("%10.0f %12.3f %16.3f\n", elements, curve.seconds[index] * 1e3, each_us.back());
  }
  std::printf("time grows with the size to the power of %.2f\n", fitted_exponent(curve.seconds));
  add_result_row({"size, in memory", curve.name + ", us each", with_unit(each_us.back(), 2, "us"),
                  with_unit(each_us[2], 2, "us"), each_us.back() / each_us[2],
                  curve.seconds.back() / curve.again});
  add_result_row({"size, in memory",
                  curve.name + ", ms",
                  with_unit(curve.seconds.back() * 1e3, 2, "ms"),
                  {},
                  curve.seconds.back() * 1e3,
                  {},
                  longest_aim_ms});
}

std::vector<Curve> make_curves() {
  const std::string attach = R"({"attach":true,"restart_audio":false})";
  const std::string detach = R"({"attach":false,"restart_audio":false})";
  return {
      {"list of devices",
       "endpoints",
       &Size::render_endpoints,
       {request_of("GET /api/v1/devices", "", "\"error_code\":0}")},
       {}},
      {"status",
       "processes",
       &Size::processes,
       {request_of("GET /api/v1/status", "", "\"process_id\":4000000")},
       {}},
      {"list of presets",
       "presets",
       &Size::presets,
       {request_of("GET /api/v1/eq/presets", "", "\"Preset 0\"")},
       {}},
      {"bind and unbind",
       "entries",
       &Size::chain_entries,
       {request_of("POST /api/v1/render/apo", attach, "\"bound\":true"),
        request_of("POST /api/v1/render/apo", detach, "\"bound\":false")},
       {}},
  };
}

bool set_up(ServiceState& state) {
  state.port = 17831;
  state.session_token = token;
  std::string message;
  return state.bridge.create(u"Local\\bench", message);
}

int profile(double scale, std::string_view word) {
  constexpr std::size_t times = 10;
  make_machine(scaled(scale));
  ServiceState state;
  if (!set_up(state)) return 1;
  for (const Curve& curve : make_curves()) {
    if (curve.name.find(word) == std::string::npos) continue;
    std::printf("%zu elements, %zu requests\n", scaled(scale).*curve.count, times * curve.requests.size());
    for (std::size_t count = 0; count < times; ++count) {
      for (const Request& request : curve.requests) static_cast<void>(time_request(state, request));
    }
  }
  return 0;
}

int run(double limit_s) {
  std::vector<Curve> curves = make_curves();
  for (std::size_t index = 0; index < scales.size(); ++index) {
    make_machine(scaled(scales.at(index)));
    ServiceState state;
    if (!set_up(state)) return 1;
    for (Curve& curve : curves) curve.seconds.push_back(median_seconds(state, curve, limit_s));
    if (index + 1 < scales.size()) continue;
    for (Curve& curve : curves) curve.again = median_seconds(state, curve, limit_s);
  }
  const Size full;
  std::printf("%zu and %zu endpoints, %zu sessions, %zu processes, a chain of %zu, %zu presets; and less\n",
              full.render_endpoints, full.capture_endpoints, full.sessions, full.processes,
              full.chain_entries, full.presets);
  for (const Curve& curve : curves) print_curve(curve);
  return 0;
}

}  // namespace
}  // namespace velmora::bench

int main(int argc, char** argv) {
  const double milliseconds = argc > 1 ? std::atof(argv[1]) : 300;
  if (argc == 4) return velmora::bench::profile(std::atof(argv[2]), argv[3]);
  return velmora::bench::run(milliseconds / 1000);
}
