#include "api/parameter_routes.h"

#include <gtest/gtest.h>

#include "unit/api/support/routes.h"

namespace velmora {
namespace {

const std::string footstep_refused =
    expected_error("400 Bad Request", "bypass and enhance_strength (0..1) are required");

class ParameterRoutes : public OpenBridge {
 protected:
  std::string footstep(const std::string& body) {
    return answer_of(put_footstep, request_with(body), bridge_);
  }
  std::string algorithm(const std::string& body) {
    return answer_of(put_algorithm, request_with(body), bridge_);
  }
  std::uint64_t& footstep_word() { return word_at(0x010); }
  std::uint64_t& algorithm_word() { return word_at(0x0B8); }
};

TEST_F(ParameterRoutes, StoresAFootstep) {
  EXPECT_EQ(footstep(R"({"bypass":false,"enhance_strength":0.5,"bypass_all":true})"), expected_ok());
  EXPECT_EQ(footstep_word(), 0x000000023F000000u);
  // A client that does not send bypass_all clears it.
  EXPECT_EQ(footstep(R"({"bypass":false,"enhance_strength":0.5})"), expected_ok());
  EXPECT_EQ(footstep_word(), 0x000000003F000000u);
  EXPECT_EQ(footstep(R"({"bypass":true,"enhance_strength":0})"), expected_ok());
  EXPECT_EQ(footstep_word(), 0x0000000100000000u);
}

TEST_F(ParameterRoutes, RefusesAnInvalidFootstepAndChangesNothing) {
  const std::uint64_t before = footstep_word() = 0x000000023F000000;
  for (const std::string body : {"", R"({"bypass":false})", R"({"bypass":false,"enhance_strength":1.01})"}) {
    EXPECT_EQ(footstep(body), footstep_refused) << body;
  }
  EXPECT_EQ(footstep_word(), before);
}

TEST_F(ParameterRoutes, UpdatesTheAlgorithmFromTheRecord) {
  AlgorithmParameters expected{-5.5f, 0.6f, 1, false, -3.0f, 2, 0};
  ASSERT_EQ(bridge_.publish_algorithm(expected), BridgeResult::done);
  EXPECT_EQ(algorithm(R"({"output_trim_db":6})"), expected_ok());
  expected.output_trim_db = 6;
  EXPECT_EQ(algorithm_word(), pack_algorithm(expected));
  // A body without a known key publishes the same values.
  for (const std::string body : {"", R"({"stereo_link":"1"})", R"({"limiter_enabled":1})"}) {
    EXPECT_EQ(algorithm(body), expected_ok()) << body;
    EXPECT_EQ(algorithm_word(), pack_algorithm(expected));
  }
}

TEST_F(ParameterRoutes, KeepsEveryStoredAlphaOnAnEmptyUpdate) {
  for (int step = 0; step < 256; ++step) {
    ASSERT_EQ(bridge_.publish_algorithm({0, static_cast<float>(step) / 255.0f, 0, true, 0, 0, 0}),
              BridgeResult::done);
    const std::uint64_t before = algorithm_word();
    EXPECT_EQ(algorithm("{}"), expected_ok());
    EXPECT_EQ(algorithm_word(), before) << step;
  }
}

TEST_F(ParameterRoutes, StartsFromTheDefaultsIfTheWordIsInvalid) {
  algorithm_word() = 0xFFFFFFFFFFFFFFFEu;
  EXPECT_EQ(algorithm(R"({"stereo_link":2})"), expected_ok());
  AlgorithmParameters expected;
  expected.stereo_link = 2;
  EXPECT_EQ(algorithm_word(), pack_algorithm(expected));
}

TEST_F(ParameterRoutes, RefusesAnAlgorithmForItsFirstBadKeyAndChangesNothing) {
  const std::uint64_t before = algorithm_word();
  EXPECT_EQ(algorithm(R"({"output_trim_db":-6,"mask_time_alpha":0.96,"stereo_link":3})"),
            expected_error("400 Bad Request", "mask_time_alpha must be between 0 and 0.95"));
  EXPECT_EQ(algorithm_word(), before);
}

TEST_F(ParameterRoutes, ChecksTheBodyBeforeTheBridge) {
  bridge_.close();
  EXPECT_EQ(footstep(R"({"bypass":false,"enhance_strength":0.5})"), publication_failed);
  EXPECT_EQ(footstep("{}"), footstep_refused);
  EXPECT_EQ(algorithm("{}"), publication_failed);
  EXPECT_EQ(algorithm(R"({"stereo_link":3})"),
            expected_error("400 Bad Request", "stereo_link must be 0, 1 or 2"));
}

}  // namespace
}  // namespace velmora
