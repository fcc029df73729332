// Plays the part of Windows' audio service for the test engine: it starts the engine, ends it and
// starts it anew when the service restarts `Audiosrv` on the machine of VELMORA_MACHINE, and plays sound on
// the device that the machine names (sound.h). As on Windows, chains are read when an engine starts: it loads
// the effect if an active device has it in its chain. The test effect lives as this program says
// (effect/engine_life.h). Each thing that happens is one line on standard output.
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/text.h"
#include "binding/binding.h"
#include "engine_process.h"
#include "options.h"
#include "platform/clock.h"
#include "platform/hosted/audio_tree.h"
#include "platform/hosted/machine_state.h"
#include "platform/machine.h"
#include "platform/services.h"
#include "sound.h"

namespace velmora::supervisor {
namespace {

constexpr int exit_done = 0;
constexpr int exit_no_engine = 1;
constexpr int exit_usage = 2;
constexpr int exit_machine_unreadable = 10;

constexpr std::uint32_t poll_ms = 20;
constexpr std::string_view audio_service = "Audiosrv";

std::atomic<bool> stop_requested{false};

bool take_console_event(std::uint32_t) {
  stop_requested = true;
  return true;
}

void print_line(std::string line) { write_standard_output(line += '\n'); }

bool audio_service_runs_at_first() {
  ServiceManager manager;
  Service service;
  std::uint32_t state = service_running;
  if (open_service_manager(manager) != 0) return true;
  // A machine without the service has sound all the same.
  if (open_service(manager, wide_from_ascii(audio_service), service_query_status, service) != 0) return true;
  return query_service_state(service, state) != 0 || state != service_stopped;
}

// The states of the audio service that were logged since the last look, in order.
class ServiceLog {
 public:
  explicit ServiceLog(std::string path) : path_(std::move(path)) {}

  std::vector<std::uint32_t> read() {
    std::vector<std::uint32_t> states;
    std::ifstream file(path_);
    file.seekg(position_);
    for (std::string line; std::getline(file, line) && !file.eof();) {
      position_ = file.tellg();
      const std::size_t blank = line.find(' ');
      if (blank == std::string::npos) continue;
      const std::u16string name = wide_from_ascii(line.substr(0, blank));
      if (!hosted::same_name(name, wide_from_ascii(audio_service))) continue;
      states.push_back(static_cast<std::uint32_t>(std::atoi(line.c_str() + blank)));
    }
    return states;
  }

 private:
  std::string path_;
  std::streamoff position_ = 0;
};

struct BoundEndpoint {
  std::u16string id;
  bool active;
};

// The render endpoints that have the effect in their chains.
std::vector<BoundEndpoint> read_bound_endpoints() {
  std::vector<BoundEndpoint> bound;
  for (const auto& endpoint : hosted::endpoints_of(hosted::machine_state().registry, EndpointFlow::render)) {
    EndpointBindingState state;
    if (inspect_endpoint_binding(utf8_from_wide_replacing(endpoint.id), state) != 0 || !state.bound) continue;
    bound.push_back({endpoint.id, endpoint.active});
  }
  return bound;
}

// Replaces the file whole: its reader sees the former text or this one.
void replace_file(const std::string& path, const std::string& text) {
  const std::string temporary = path + ".new";
  std::ofstream(temporary) << text;
  static_cast<void>(std::rename(temporary.c_str(), path.c_str()));
}

class Supervisor {
 public:
  explicit Supervisor(const Options& options) : options_(options), log_(options.service_log) {}

  [[nodiscard]] bool start_engine() {
    // Chains first: what changes later counts from the next start on.
    bound_ = read_bound_endpoints();
    effect_loaded_ = false;
    if (!engine_.start(options_.engine)) return false;
    if (std::any_of(bound_.begin(), bound_.end(), [](const BoundEndpoint& one) { return one.active; })) {
      load_effect();
    }
    return true;
  }

  void follow_service() {
    for (const std::uint32_t state : log_.read()) {
      if (state == service_stopped && !options_.keep_running) engine_.end();
      if (state == service_running && !engine_.is_running()) static_cast<void>(start_engine());
    }
  }

  void follow_sound() {
    const bool running = engine_.is_running();
    // While the machine cannot be read, sound goes on as it is.
    if (hosted::enter("look at the sound", u"") == 0) {
      const hosted::RegistryTree& registry = hosted::machine_state().registry;
      const auto choice = chosen_sound(registry);
      std::u16string playing = choice && running ? find_playing_endpoint(registry, *choice) : u"";
      if (choice && playing_ != playing) move_sound(std::move(playing));
    }
    publish_life(running);
  }

  void silence() {
    engine_.end();
    if (playing_ && !playing_->empty()) move_sound(u"");
    publish_life(false);
  }

 private:
  void load_effect() {
    effect_loaded_ = true;
    engine_.load(options_.effect_library);
    if (!options_.algorithm_library.empty()) engine_.load(options_.algorithm_library);
  }

  void move_sound(std::u16string playing) {
    const hosted::RegistryChange change = hosted::begin_registry_change();
    if (hosted::enter("move the sound", u"") != 0) return;
    hosted::RegistryTree& registry = hosted::machine_state().registry;
    hosted::RegistryTree before = registry;
    put_sound(registry, playing, own_process_id());
    if (registry != before && hosted::keep_or_undo(std::move(before)) != 0) return;
    print_line("sound " + (playing.empty() ? "none" : utf8_from_wide_replacing(playing)));
    playing_ = std::move(playing);
  }

  // Sound passes through the effect where it plays on a device whose chain had it when the engine started.
  void publish_life(bool running) {
    const bool through_effect = running && playing_ &&
                                std::any_of(bound_.begin(), bound_.end(),
                                            [this](const BoundEndpoint& one) { return one.id == *playing_; });
    if (through_effect && !effect_loaded_) load_effect();
    std::string life;
    if (running && effect_loaded_) {
      life = std::to_string(engine_.id()) + (through_effect ? " playing\n" : " quiet\n");
    }
    if (life == life_) return;
    replace_file(options_.life_state, life);
    life_ = std::move(life);
  }

  const Options& options_;
  ServiceLog log_;
  EngineProcess engine_;
  std::vector<BoundEndpoint> bound_;  // as the engine found it when it started
  bool effect_loaded_ = false;
  std::optional<std::u16string> playing_;  // an endpoint's id, or empty; no value: not yet chosen
  std::string life_;
};

int run(int argc, const char* const* argv) {
  prepare_process();
  const auto options = parse_options(argc, argv);
  if (!options) {
    write_standard_error(usage);
    return exit_usage;
  }
  if (const std::string trouble = load_machine(); !trouble.empty()) {
    write_standard_error("Unable to read the machine " + trouble + '\n');
    return exit_machine_unreadable;
  }
  install_console_handler(take_console_event);
  std::signal(SIGPIPE, SIG_IGN);
  const pid_t parent = getppid();
  Supervisor supervisor(*options);
  if (audio_service_runs_at_first() && !supervisor.start_engine()) {
    write_standard_error("the engine cannot be started\n");
    return exit_no_engine;
  }
  // Whoever started us may be killed and ends us no more.
  while (!stop_requested && getppid() == parent) {
    supervisor.follow_service();
    supervisor.follow_sound();
    sleep_ms(poll_ms);
  }
  supervisor.silence();
  return exit_done;
}

}  // namespace
}  // namespace velmora::supervisor

int main(int argc, char** argv) { return velmora::supervisor::run(argc, argv); }
