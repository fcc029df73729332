// The account service of the memory machine: its replies, and the requests that it received.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "account/session_check.h"
#include "memory/http_service.h"
#include "unit/support/fresh_machine.h"

namespace velmora {

inline const std::string service_url = "https://account.example";

// Queue a reply to the next request that has none yet.
inline void answer_next(std::uint32_t status, std::string body) {
  memory::HttpService& service = memory::http_service();
  const std::lock_guard lock(service.guard);
  memory::HttpReply reply;
  reply.status = status;
  reply.body = std::move(body);
  service.replies.push_back(std::move(reply));
}

// The next calls of an operation fail; 0 lets one pass.
inline void fail_next(const std::string& operation, std::deque<std::uint32_t> errors) {
  memory::HttpService& service = memory::http_service();
  const std::lock_guard lock(service.guard);
  service.faults[operation] = std::move(errors);
}

inline std::vector<std::string> http_log() {
  memory::HttpService& service = memory::http_service();
  const std::lock_guard lock(service.guard);
  return service.log;
}

// The requests sent since the last call, as "METHOD PATH BODY", with a blank at the end if there is no body.
// Each went to `service_url` with the header line that its body requires.
inline std::vector<std::string> take_requests() {
  memory::HttpService& service = memory::http_service();
  const std::lock_guard lock(service.guard);
  const std::string opened = "WinHttpOpenRequest ";
  const std::string secure = " secure";
  const std::string sent = "WinHttpSendRequest ";
  std::vector<std::string> requests;
  std::string request;
  for (const std::string& entry : service.log) {
    if (entry.starts_with("WinHttpConnect ")) {
      EXPECT_EQ(entry, "WinHttpConnect account.example 443");
    }
    if (entry.starts_with(opened)) {
      EXPECT_TRUE(entry.ends_with(secure)) << entry;
      request = entry.substr(opened.size(), entry.size() - opened.size() - secure.size());
    }
    if (entry.starts_with(sent)) {
      const std::string body = entry.substr(entry.find(']') + 2);
      EXPECT_EQ(entry, sent + (body.empty() ? "[] " : "[Content-Type: application/json] ") + body);
      requests.push_back(request + ' ' + body);
    }
  }
  service.log.clear();
  return requests;
}

using Requests = std::vector<std::string>;

// Holds back all replies during its lifetime.
class HeldBackService {
 public:
  HeldBackService() { set(true); }
  ~HeldBackService() { let_go(); }
  HeldBackService(const HeldBackService&) = delete;
  HeldBackService& operator=(const HeldBackService&) = delete;
  void let_go() { set(false); }

 private:
  static void set(bool holds_back) {
    memory::HttpService& service = memory::http_service();
    const std::lock_guard lock(service.guard);
    service.holds_back = holds_back;
    service.answered.notify_all();
  }
};

// Wait until another thread makes the condition true. Return false after a minute.
template <typename Condition>
[[nodiscard]] bool wait_until(Condition condition) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::yield();
  }
  return true;
}

// Wait for the end of the check in flight, if any.
[[nodiscard]] inline bool wait_for_check(const SessionCheckCells& cells) {
  return wait_until([&] { return !cells.session_check_running; });
}

// How often an operation of the exchange was called.
[[nodiscard]] inline std::size_t count_calls(const std::string& operation) {
  std::size_t count = 0;
  for (const std::string& entry : http_log()) {
    if (entry.substr(0, entry.find(' ')) == operation) ++count;
  }
  return count;
}

}  // namespace velmora
