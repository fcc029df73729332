#include "engine_life.h"

#include <array>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

namespace velmora::effect {
namespace {

struct State {
  std::uint32_t engine = 0;
  bool quiet = true;
};

// No value when the file holds something else.
std::optional<State> read_state(const std::string& path) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "r"), std::fclose);
  std::array<char, 64> line{};
  if (!file || std::fgets(line.data(), line.size(), file.get()) == nullptr) return State{};
  State state;
  std::array<char, 16> sound{};
  if (std::sscanf(line.data(), "%u %15s", &state.engine, sound.data()) != 2) return std::nullopt;
  const std::string_view word = sound.data();
  if (state.engine == 0 || (word != "playing" && word != "quiet")) return std::nullopt;
  state.quiet = word == "quiet";
  return state;
}

}  // namespace

bool EngineLife::look() {
  const auto state = read_state(options_.life_state);
  if (!state) return false;
  const bool is_new = state->engine != engine_;
  if (is_new) end();
  quiet_ = state->quiet;
  if (!is_new || state->engine == 0) return false;
  engine_ = state->engine;
  life_.emplace(record_, options_, stop_, quiet_);
  return true;
}

void EngineLife::end() {
  stop_ = true;
  life_.reset();
  stop_ = false;
  engine_ = 0;
}

}  // namespace velmora::effect
