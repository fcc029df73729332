// Compares reading and writing an equalizer setting as JSON with the simplest C library calls for the same
// numbers, in one run. It is the same program on both systems.
//
// Usage: velmora_equalizer_bench [SYSTEM] [ROUNDS]: SYSTEM is a word for the table's heading.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "effects/equalizer.h"
#include "result_rows.h"
#include "statistics.h"

namespace velmora::bench {
namespace {

constexpr int default_rounds = 41;
constexpr int calls_per_round = 2000;

EqSettings make_settings() {
  EqSettings settings;
  settings.fade_ms = 12.3f;
  for (std::size_t index = 0; index < settings.bands.size(); ++index) {
    const auto place = static_cast<float>(index);
    settings.bands[index] = {static_cast<std::int32_t>(index % 9), band_frequency(index),
                             place * 1.7f - 12.3f, 0.707f + place * 0.11f};
  }
  return settings;
}

std::string make_body() {
  std::string body;
  write_eq_json(body, make_settings());
  return body;
}

// Every form adds what it computed, so that no compiler leaves it out.
volatile std::size_t used = 0;

void product_parse_eq(const std::string& body, const EqSettings& settings) {
  used = used + static_cast<std::size_t>(parse_eq(body, settings).error.size());
}

// The 61 numbers of the body, split already.
std::vector<std::string> numbers_of(const std::string& body) {
  std::vector<std::string> numbers;
  for (std::size_t colon = body.find(':'); colon != std::string::npos; colon = body.find(':', colon + 1)) {
    const std::string text = body.substr(colon + 1, body.find_first_of(",}", colon) - colon - 1);
    if (text.find_first_of("0123456789") == 0 || text.starts_with('-')) numbers.push_back(text);
  }
  return numbers;
}

void bare_strtof(const std::vector<std::string>& numbers) {
  float sum = 0;
  for (const std::string& number : numbers) sum += std::strtof(number.c_str(), nullptr);
  used = used + static_cast<std::size_t>(sum > 0);
}

void product_write_eq_json(const EqSettings& settings) {
  std::string out;
  write_eq_json(out, settings);
  used = used + out.size();
}

void bare_snprintf(const EqSettings& settings) {
  char band_text[160];
  std::string out = "{\"bypass\":true,\"fade_ms\":12.3,\"bands\":[";
  for (const EqBand& band : settings.bands) {
    const int length = std::snprintf(
        band_text, sizeof band_text, "{\"type\":%d,\"freq_hz\":%g,\"gain_db\":%g,\"q\":%g},", band.type,
        static_cast<double>(band.freq_hz), static_cast<double>(band.gain_db), static_cast<double>(band.q));
    out.append(band_text, static_cast<std::size_t>(length));
  }
  used = used + out.size();
}

// Microseconds for one call.
double measure(const std::function<void()>& call) {
  const auto start = std::chrono::steady_clock::now();
  for (int count = 0; count < calls_per_round; ++count) call();
  return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count() /
         calls_per_round;
}

struct Pair {
  std::string name;
  std::function<void()> ours;
  std::function<void()> peer;
};

void compare(const std::string& system, const Pair& pair, int rounds) {
  std::vector<double> ours, peer, control;
  const std::function<void()>* calls[] = {&pair.ours, &pair.peer, &pair.peer};
  std::vector<double>* times[] = {&ours, &peer, &control};
  for (int round = 0; round < rounds; ++round) {
    for (int turn = 0; turn < 3; ++turn) {
      const int who = (round + turn) % 3;
      times[who]->push_back(measure(*calls[who]));
    }
  }
  const ResultRow row{"equalizer, " + system,
                      pair.name,
                      with_unit(spread_of(ours).median, 2, "us"),
                      with_unit(spread_of(peer).median, 2, "us"),
                      spread_of_ratios(peer, ours).median,
                      spread_of_ratios(peer, control).median,
                      {}};
  std::printf("%-26s %12s %12s %21.3f %18.3f\n", row.name.c_str(), row.ours.c_str(), row.peer.c_str(),
              *row.ratio, *row.control);
  add_result_row(row);
}

}  // namespace
}  // namespace velmora::bench

int main(int argc, char** argv) {
  using namespace velmora::bench;
  const std::string system = argc > 1 ? argv[1] : "Linux";
  const int rounds = argc > 2 ? std::atoi(argv[2]) : default_rounds;
  if (rounds < 1) return 2;
  const velmora::EqSettings settings = make_settings();
  const std::string body = make_body();
  const std::vector<std::string> numbers = numbers_of(body);
  std::printf("equalizer, %-15s %12s %12s %21s %18s\n", system.c_str(), "product", "C library",
              "C library / product", "C library / again");
  compare(system,
          {"parse_eq, 15 bands", [&] { product_parse_eq(body, settings); }, [&] { bare_strtof(numbers); }},
          rounds);
  compare(system,
          {"write_eq_json", [&] { product_write_eq_json(settings); }, [&] { bare_snprintf(settings); }},
          rounds);
}
