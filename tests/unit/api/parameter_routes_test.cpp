#include "api/parameter_routes.h"

#include <gtest/gtest.h>

#include "unit/support/expected_response.h"
#include "unit/support/fresh_machine.h"

namespace velmora {
namespace {

const std::string footstep_refused =
    expected_error("400 Bad Request", "bypass and enhance_strength (0..1) are required");
const std::string unavailable =
    expected_error("503 Service Unavailable", "shared control bridge update failed");

class ParameterRoutes : public FreshMachine {
 protected:
  void SetUp() override {
    FreshMachine::SetUp();
    std::string message;
    ASSERT_TRUE(bridge_.create(u"Local\\parameters", message)) << message;
  }
  void TearDown() override {
    bridge_.close();
    FreshMachine::TearDown();
  }

  using Route = void (*)(const Socket&, const ApiRequest&, ControlBridge&);
  std::string answer(Route route, const std::string& body) {
    const Accepted accepted = accept_client({});
    ApiRequest request;
    request.body = body;
    route(accepted.socket, request, bridge_);
    return accepted.client->from_service;
  }
  std::uint64_t footstep_word() {
    FootstepParameters footstep{};
    static_cast<void>(bridge_.read_footstep(footstep));
    return footstep.raw;
  }
  AlgorithmParameters algorithm() {
    AlgorithmParameters parameters;
    static_cast<void>(bridge_.read_algorithm(parameters));
    return parameters;
  }

  ControlBridge bridge_;
};

TEST_F(ParameterRoutes, StoreAFootstepAndAnswerOk) {
  EXPECT_EQ(answer(put_footstep, R"({"bypass":false,"enhance_strength":0.5,"bypass_all":true})"),
            expected_ok());
  EXPECT_EQ(footstep_word(), 0x000000023F000000u);
}

TEST_F(ParameterRoutes, SwitchBypassAllOffForAClientThatKnowsNothingOfIt) {
  ASSERT_EQ(bridge_.publish_footstep(true, true, 1.0f), BridgeResult::done);
  EXPECT_EQ(answer(put_footstep, R"({"bypass":false,"enhance_strength":0.5})"), expected_ok());
  EXPECT_EQ(footstep_word(), 0x000000003F000000u);
}

TEST_F(ParameterRoutes, TakeAStrengthOfZeroWithABypass) {
  EXPECT_EQ(answer(put_footstep, R"({"bypass":true,"enhance_strength":0})"), expected_ok());
  EXPECT_EQ(footstep_word(), 0x0000000100000000u);
}

TEST_F(ParameterRoutes, RefuseAFootstepAndChangeNothing) {
  ASSERT_EQ(bridge_.publish_footstep(false, true, 0.25f), BridgeResult::done);
  const std::uint64_t before = footstep_word();
  for (const std::string body : {"", R"({"bypass":false})", R"({"enhance_strength":0.5})",
                                 R"({"bypass":false,"enhance_strength":1.01})"}) {
    EXPECT_EQ(answer(put_footstep, body), footstep_refused) << body;
  }
  EXPECT_EQ(footstep_word(), before);
}

TEST_F(ParameterRoutes, UpdateTheAlgorithmFromWhatTheRecordHolds) {
  ASSERT_EQ(bridge_.publish_algorithm({-5.5f, 0.6f, 1, false, -3.0f, 2, 0}), BridgeResult::done);
  const AlgorithmParameters before = algorithm();
  EXPECT_EQ(answer(put_algorithm, R"({"output_trim_db":6})"), expected_ok());
  AlgorithmParameters expected = before;
  expected.output_trim_db = 6;
  EXPECT_EQ(algorithm().raw, pack_algorithm(expected));
}

TEST_F(ParameterRoutes, PublishThePresentValuesAgainForABodyWithoutAKey) {
  ASSERT_EQ(bridge_.publish_algorithm({-5.5f, 0.6f, 1, false, -3.0f, 2, 0}), BridgeResult::done);
  const std::uint64_t before = algorithm().raw;
  for (const std::string body : {"", "{}", R"({"stereo_link":"1"})", R"({"limiter_enabled":1})"}) {
    EXPECT_EQ(answer(put_algorithm, body), expected_ok()) << body;
    EXPECT_EQ(algorithm().raw, before);
  }
}

TEST_F(ParameterRoutes, BringEveryStoredAlphaBackThroughAnEmptyUpdate) {
  for (int step = 0; step < 256; ++step) {
    ASSERT_EQ(bridge_.publish_algorithm({0, static_cast<float>(step) / 255.0f, 0, true, 0, 0, 0}),
              BridgeResult::done);
    const std::uint64_t before = algorithm().raw;
    EXPECT_EQ(answer(put_algorithm, "{}"), expected_ok());
    EXPECT_EQ(algorithm().raw, before) << step;
  }
}

TEST_F(ParameterRoutes, StartFromTheDefaultsWhereTheWordIsNotValid) {
  const auto region = memory::system().regions.at(u"Local\\parameters").lock();
  region->words[0x0B8 / 8] = 0xFFFFFFFFFFFFFFFEu;
  EXPECT_EQ(answer(put_algorithm, R"({"stereo_link":2})"), expected_ok());
  AlgorithmParameters expected;
  expected.stereo_link = 2;
  EXPECT_EQ(algorithm().raw, pack_algorithm(expected));
}

TEST_F(ParameterRoutes, RefuseAnAlgorithmForItsFirstBadKeyAndChangeNothing) {
  const std::uint64_t before = algorithm().raw;
  const struct {
    std::string body;
    std::string message;
  } rows[] = {
      {R"({"output_trim_db":20.5})", "output_trim_db must be between -60 and 20"},
      {R"({"mask_time_alpha":0.96})", "mask_time_alpha must be between 0 and 0.95"},
      {R"({"mask_frequency_smooth":2})", "mask_frequency_smooth must be 0 or 1"},
      {R"({"limiter_ceiling_db":0.1})", "limiter_ceiling_db must be between -12 and 0"},
      {R"({"stereo_link":2.5})", "stereo_link must be 0, 1 or 2"},
      {R"({"output_trim_db":-6,"stereo_link":3})", "stereo_link must be 0, 1 or 2"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.body);
    EXPECT_EQ(answer(put_algorithm, row.body), expected_error("400 Bad Request", row.message));
    EXPECT_EQ(algorithm().raw, before);
  }
}

TEST_F(ParameterRoutes, AnswerUnavailableOnAClosedBridgeOnceTheBodyIsGood) {
  bridge_.close();
  EXPECT_EQ(answer(put_footstep, R"({"bypass":false,"enhance_strength":0.5})"), unavailable);
  EXPECT_EQ(answer(put_footstep, "{}"), footstep_refused);
  EXPECT_EQ(answer(put_algorithm, "{}"), unavailable);
  EXPECT_EQ(answer(put_algorithm, R"({"stereo_link":3})"),
            expected_error("400 Bad Request", "stereo_link must be 0, 1 or 2"));
}

}  // namespace
}  // namespace velmora
