// A machine in memory on which commands run: a user with a home, our programs, and a service that answers.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "command/console_events.h"
#include "command/run_file.h"
#include "platform/private_files.h"
#include "unit/support/expected_response.h"
#include "unit/support/fresh_machine.h"

namespace velmora {

inline constexpr std::string_view own_program = "/opt/velmora/velmora";
inline constexpr std::string_view service_program = "/opt/velmora/velmora_control_demo";
inline constexpr std::string_view private_folder = "/home/user/.local/state/velmora/control";
inline constexpr std::string_view run_path = "/home/user/.local/state/velmora/control/run.json";
inline constexpr std::string_view stop_path = "/home/user/.local/state/velmora/control/stop.json";
inline constexpr std::string_view some_run_id = "f0f1f2f3f4f5f6f7";
inline constexpr std::string_view service_banner =
    "Velmora 1.2.0  (algorithm not found)\n  Open: http://127.0.0.1:17831/?token=secret\n"
    "  Press Ctrl+C to stop.\n";
inline constexpr std::string_view some_status =
    R"({"footstep":{"bypass":true},"apo_diagnostics":{},"apo_host":{"clsid_registered":false},)"
    R"("apo_binding":{"endpoint_id":"one"}})";

inline RunRecord some_run() { return {"1.2.0", 17831, std::string(some_run_id), 5001, "secret"}; }

class CommandMachine : public FreshMachine {
 protected:
  void SetUp() override {
    FreshMachine::SetUp();
    console_events = 0;
    memory::System& machine = memory::system();
    machine.environment[u"HOME"] = u"/home/user";
    machine.module_path = own_program;
    machine.files[std::string(own_program)].bytes = "program";
    machine.files[std::string(service_program)].bytes = "program";
    machine.files["/opt/velmora"].kind = FileKind::directory;
    // Time passes, and nothing else happens.
    machine.on_idle = [] {};
    // The helper `velmora interrupt PID`.
    machine.on_start_child = [this](memory::Child& child) {
      if (child.program == service_program) return on_start_service ? on_start_service(child) : 0;
      EXPECT_EQ(child.program, own_program);
      EXPECT_EQ(child.arguments.size(), 2u);
      const bool is_interrupted =
          helper_failures-- <= 0 &&
          memory::interrupt_child(static_cast<std::uint32_t>(std::stoul(child.arguments.at(1))));
      memory::end(child, is_interrupted ? 0 : 25);
      return 0u;
    };
  }
  void TearDown() override {
    run_file.close();
    memory::system().on_start_child = nullptr;
    FreshMachine::TearDown();
  }

  // A `start` holds the run file with this text.
  void hold_run(std::string_view text) {
    ASSERT_EQ(make_private_directory(private_folder), 0u);
    ASSERT_EQ(hold_private_file(run_path, run_file), 0u);
    ASSERT_EQ(write_held_file(run_file, text), 0u);
  }
  void hold_some_run() { hold_run(format_run_record(some_run())); }

  // Bytes that the service at each port answers, by the target of the request. A target that is missing gets
  // no answer at all.
  void answer_at(std::uint16_t port, std::map<std::string, std::string> answers) {
    memory::system().ports_of_others.insert(port);
    answers_[port] = std::move(answers);
    memory::system().on_connect = [this](std::uint16_t asked) -> std::shared_ptr<memory::Connection> {
      if (!answers_.contains(asked)) return nullptr;
      auto connection = std::make_shared<memory::Connection>();
      connection->on_sent = [this, asked](memory::Connection& peer) { answer(asked, peer); };
      return connection;
    };
  }

  static std::optional<memory::File> file(std::string_view path) {
    const auto& files = memory::system().files;
    const auto found = files.find(std::string(path));
    return found == files.end() ? std::nullopt : std::optional(found->second);
  }
  static const std::string& output() { return memory::system().standard_output; }
  static const std::string& errors() { return memory::system().standard_error; }

  HeldFile run_file;
  std::function<std::uint32_t(memory::Child&)> on_start_service;
  int helper_failures = 0;            // how many of the next helpers fail
  std::vector<std::string> requests;  // that the services got

 private:
  void answer(std::uint16_t port, memory::Connection& peer) {
    if (!peer.from_service.ends_with("\r\n\r\n")) return;
    requests.push_back(peer.from_service);
    const std::size_t begin = peer.from_service.find(' ') + 1;
    const std::string target = peer.from_service.substr(begin, peer.from_service.find(' ', begin) - begin);
    const auto found = answers_[port].find(target);
    if (found == answers_[port].end()) return;
    if (!found->second.empty()) peer.to_service.push_back(found->second);
    peer.client_done = true;
  }

  std::map<std::uint16_t, std::map<std::string, std::string>> answers_;
};

// What a service of ours answers without its token.
inline std::string token_refusal() {
  return expected_error("401 Unauthorized", "missing or invalid session token");
}

}  // namespace velmora
