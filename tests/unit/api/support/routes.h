// Shared by the tests of the routes: a fixture with an open control bridge, and one call of one route.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "api/service_state.h"
#include "bridge/mapping.h"
#include "http/request.h"
#include "unit/support/expected_response.h"
#include "unit/support/fresh_machine.h"

namespace velmora {

inline const std::string publication_failed =
    expected_error("503 Service Unavailable", "shared control bridge update failed");

// The request points to its arguments.
inline ApiRequest request_with(std::string_view body, std::string_view method = "") {
  ApiRequest request;
  request.method = method;
  request.body = body;
  return request;
}

// Pages with these texts.
inline UiPages pages_with(std::string_view index, std::string_view advanced, std::string_view eq_script,
                          std::string_view help) {
  return {StoredResponse("text/html; charset=utf-8", index),
          StoredResponse("text/html; charset=utf-8", advanced),
          StoredResponse("text/javascript; charset=utf-8", eq_script),
          StoredResponse("text/html; charset=utf-8", help)};
}

// The bytes that `route(socket, arguments...)` sends. A route answers with one send and leaves the socket
// open.
template <typename Route, typename... Arguments>
std::string answer_of(Route route, Arguments&&... arguments) {
  const Accepted accepted = accept_client({});
  const std::ptrdiff_t sends = calls_of("send");
  route(accepted.socket, std::forward<Arguments>(arguments)...);
  EXPECT_EQ(calls_of("send"), sends + 1);
  EXPECT_TRUE(accepted.socket.is_open());
  EXPECT_FALSE(accepted.client->shut_down);
  return accepted.client->from_service;
}

class OpenBridge : public FreshMachine {
 protected:
  void SetUp() override {
    FreshMachine::SetUp();
    open_bridge();
  }
  void TearDown() override {
    bridge_.close();
    FreshMachine::TearDown();
  }
  // Open the bridge on the present machine, with a new record.
  void open_bridge() {
    bridge_.close();
    region_.reset();
    std::string message;
    ASSERT_TRUE(bridge_.create(u"Local\\test", message)) << message;
    region_ = memory::system().regions.at(u"Local\\test").lock();
    memory::system().log.clear();
  }
  // The record as 72 words of 8 bytes. It outlives the bridge.
  [[nodiscard]] std::vector<std::uint64_t>& record() const { return region_->words; }
  // The word at a byte offset of the record.
  [[nodiscard]] std::uint64_t& word_at(std::size_t offset) const { return record().at(offset / 8); }

  ControlBridge bridge_;
  std::shared_ptr<memory::Region> region_;
};

}  // namespace velmora
