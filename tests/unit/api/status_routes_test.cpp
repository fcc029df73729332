#include "api/status_routes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "unit/api/support/status_machine.h"
#include "unit/support/expected_response.h"

namespace velmora {
namespace {

using namespace status_machine;

class StatusRoute : public StatusMachine {
 protected:
  std::string answer(const AccountSession& session = {}) {
    const Accepted client = accept_client({});
    get_status(client.socket, bridge_, endpoints_, session);
    EXPECT_TRUE(client.socket.is_open());
    EXPECT_FALSE(client.client->shut_down);
    return client.client->from_service;
  }
  static std::string document(const std::string& body) {
    return expected_response("200 OK", "application/json; charset=utf-8", body);
  }

  EndpointController endpoints_;
};

constexpr std::string_view filled_render =
    R"("render":{"available":true,"volume":0.6,"muted":true,"error_code":0})";

TEST_F(StatusRoute, AnswersWithTheDocumentOfTheDefaultEndpoint) {
  set_up_everything();
  EXPECT_EQ(answer(), document(filled_document(filled_render)));
  EXPECT_EQ(calls_of("send"), 1);
}

TEST_F(StatusRoute, AnswersWithTheDocumentOfTheChosenEndpoint) {
  set_up_everything();
  put_number(endpoint::render_path(endpoint::other_guid), "DeviceState", 1);
  const std::string other_id = std::string("{0.0.0.00000000}.") + endpoint::other_guid;
  put_text("SOFTWARE\\VelmoraStandIn\\Audio", "DefaultRender", other_id);
  endpoints_.selected_render_id = endpoint::widen(endpoint::id);
  EXPECT_EQ(answer(), document(filled_document(filled_render)));
  EXPECT_EQ(calls_of("GetDefaultAudioEndpoint 0"), 0);
}

TEST_F(StatusRoute, AnswersOnAMachineWithoutAnything) {
  EXPECT_EQ(answer(),
            document(empty_document(
                R"("render":{"available":false,"volume":0,"muted":false,"error_code":-2147023728})")));
}

TEST_F(StatusRoute, AsksForTheEndpointThenForItsVolumeThenForTheRest) {
  set_up_everything();
  static_cast<void>(answer());
  const std::vector<std::string>& log = memory::system().log;
  const std::string id = endpoint::id;
  const std::vector<std::string> expected{"CoCreateInstance",
                                          "GetDefaultAudioEndpoint 0",
                                          "GetId",
                                          "Release",
                                          "Release",
                                          "CoCreateInstance",
                                          "GetDefaultAudioEndpoint 0",
                                          "Activate " + id,
                                          "Release",
                                          "Release",
                                          "GetMasterVolumeLevelScalar " + id,
                                          "GetMute " + id,
                                          "Release",
                                          "GetTokenInformation"};
  ASSERT_GT(log.size(), expected.size());
  EXPECT_EQ(std::vector<std::string>(log.begin(), log.begin() + static_cast<long>(expected.size())),
            expected);
  EXPECT_EQ(std::find(log.begin(), log.end(), "send"), log.end() - 2);
  EXPECT_EQ(log.back(), "closesocket");  // by the test
}

TEST_F(StatusRoute, ShowsAnEndpointThatCannotBeReadAndStillLooksAtItsBinding) {
  const struct {
    std::string operation;
    std::deque<std::int64_t> faults;
    std::string_view error_code;
  } rows[] = {
      {"Activate", {-2147467259}, "-2147467259"},
      {"GetMasterVolumeLevelScalar", {-2004287484}, "-2004287484"},
      {"GetMute", {-2147467259}, "-2147467259"},
      {"CoCreateInstance", {0, -2147221164}, "-2147221164"},
      {"GetDefaultAudioEndpoint", {0, -2147023728}, "-2147023728"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.operation);
    bridge_.close();
    memory::reset();
    set_up_everything();
    memory::system().faults[row.operation] = row.faults;
    EXPECT_EQ(
        answer(),
        document(filled_document(R"("render":{"available":false,"volume":0,"muted":false,"error_code":)" +
                                 std::string(row.error_code) + "}")));
    EXPECT_TRUE(memory::system().state.audio_objects.empty());
  }
}

TEST_F(StatusRoute, ShowsNoBindingWhereTheEndpointIsNotKnown) {
  for (const std::string operation : {"CoCreateInstance", "GetDefaultAudioEndpoint", "GetId"}) {
    SCOPED_TRACE(operation);
    bridge_.close();
    memory::reset();
    set_up_everything();
    memory::system().faults[operation] = {-2147467259};
    std::string body = filled_document(filled_render);
    body.replace(body.find(filled_binding), filled_binding.size(), default_binding);
    EXPECT_EQ(answer(), document(body));
    EXPECT_EQ(calls_of("RegOpenKeyExW " + endpoint::fx_path()), 0);
  }
}

TEST_F(StatusRoute, ShowsTheSessionWithoutItsToken) {
  AccountSession session;
  session.account_hash = "hash";
  session.token = "Credential-4711";
  session.usage_seconds = 61;
  const std::string text = answer(session);
  EXPECT_NE(text.find(R"("session":{"account":"hash","signed_in":true,"usage_seconds":61,)"),
            std::string::npos);
  EXPECT_EQ(text.find("4711"), std::string::npos);
}

TEST_F(StatusRoute, ChangesNothingAndLeavesNothingOpen) {
  set_up_everything();
  const auto region = memory::system().regions.at(u"Local\\status").lock();
  const std::vector<std::uint64_t> words = region->words;
  const std::vector<std::string> lines = endpoint::present_lines();
  const std::size_t handles = memory::system().handles.size();
  const std::string first = answer();
  EXPECT_EQ(answer(), first);
  EXPECT_EQ(region->words, words);
  EXPECT_EQ(endpoint::present_lines(), lines);
  EXPECT_EQ(memory::system().handles.size(), handles);
  EXPECT_TRUE(memory::system().state.open_keys.empty());
  EXPECT_TRUE(memory::system().state.audio_objects.empty());
  EXPECT_TRUE(endpoints_.selected_render_id.empty());
}

TEST_F(StatusRoute, WritesOneResponseToAPeerThatHasGone) {
  set_up_everything();
  const Accepted client = accept_client({});
  client.client->client_gone = true;
  get_status(client.socket, bridge_, endpoints_, {});
  EXPECT_EQ(client.client->from_service, "");
  EXPECT_EQ(calls_of("send"), 1);
}

}  // namespace
}  // namespace velmora
