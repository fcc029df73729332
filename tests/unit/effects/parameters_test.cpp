#include "effects/parameters.h"

#include <gtest/gtest.h>

#include "unit/support/fresh_machine.h"

namespace velmora {
namespace {

// The values before a body is applied. They differ from the defaults and from the values of the bodies.
AlgorithmParameters present() { return {-3.0f, 0.5f, 7, false, -6.0f, 3, 0}; }

bool same(const AlgorithmParameters& left, const AlgorithmParameters& right) {
  return left.output_trim_db == right.output_trim_db && left.mask_time_alpha == right.mask_time_alpha &&
         left.mask_frequency_smooth == right.mask_frequency_smooth &&
         left.limiter_enabled == right.limiter_enabled &&
         left.limiter_ceiling_db == right.limiter_ceiling_db && left.stereo_link == right.stereo_link;
}

TEST(AlgorithmBody, ChangesOnlyThePresentKeys) {
  const struct {
    std::string_view body;
    AlgorithmParameters expected;
  } rows[] = {
      {R"({"output_trim_db":-60})", {-60.0f, 0.5f, 7, false, -6.0f, 3, 0}},
      {R"({"output_trim_db":20})", {20.0f, 0.5f, 7, false, -6.0f, 3, 0}},
      {R"({"mask_time_alpha":0})", {-3.0f, 0.0f, 7, false, -6.0f, 3, 0}},
      {R"({"mask_time_alpha":0.95})", {-3.0f, 0.95f, 7, false, -6.0f, 3, 0}},
      {R"({"mask_frequency_smooth":0})", {-3.0f, 0.5f, 0, false, -6.0f, 3, 0}},
      {R"({"mask_frequency_smooth":0.5})", {-3.0f, 0.5f, 0, false, -6.0f, 3, 0}},
      {R"({"mask_frequency_smooth":0.999})", {-3.0f, 0.5f, 0, false, -6.0f, 3, 0}},
      {R"({"mask_frequency_smooth":1})", {-3.0f, 0.5f, 1, false, -6.0f, 3, 0}},
      {R"({"limiter_enabled":true})", {-3.0f, 0.5f, 7, true, -6.0f, 3, 0}},
      {R"({"limiter_ceiling_db":0})", {-3.0f, 0.5f, 7, false, 0.0f, 3, 0}},
      {R"({"limiter_ceiling_db":-12})", {-3.0f, 0.5f, 7, false, -12.0f, 3, 0}},
      {R"({"stereo_link":0})", {-3.0f, 0.5f, 7, false, -6.0f, 0, 0}},
      {R"({"stereo_link":2})", {-3.0f, 0.5f, 7, false, -6.0f, 2, 0}},
      {R"({"stereo_link":1.9})", {-3.0f, 0.5f, 7, false, -6.0f, 1, 0}},
      {R"({"output_trim_db":1,"mask_time_alpha":0.25,"mask_frequency_smooth":0,"limiter_enabled":true,)"
       R"("limiter_ceiling_db":-2,"stereo_link":1})",
       {1.0f, 0.25f, 0, true, -2.0f, 1, 0}},
      {"", present()},
      {"{}", present()},
      {"not json", present()},
      {R"({"other":1})", present()},
      {R"({"stereo_link":"2"})", present()},
      {R"({"stereo_link":null})", present()},
      {R"({"limiter_enabled":1})", present()},
      {R"({"limiter_enabled":"true"})", present()},
      {R"({"output_trim_db":inf})", present()},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.body);
    const ExactBlock body(row.body);
    const Parsed<AlgorithmParameters> parsed = parse_algorithm_body(body.view(), present());
    EXPECT_EQ(parsed.error, "");
    EXPECT_TRUE(same(parsed.value, row.expected));
  }
}

TEST(AlgorithmBody, SwitchesTheLimiter) {
  for (const bool before : {false, true}) {
    SCOPED_TRACE(before);
    AlgorithmParameters parameters = present();
    parameters.limiter_enabled = before;
    EXPECT_EQ(parse_algorithm_body("{}", parameters).value.limiter_enabled, before);
    EXPECT_FALSE(parse_algorithm_body(R"({"limiter_enabled":false})", parameters).value.limiter_enabled);
    EXPECT_TRUE(parse_algorithm_body(R"({"limiter_enabled":true})", parameters).value.limiter_enabled);
  }
}

TEST(AlgorithmBody, IsRefusedForItsFirstKeyOutOfRange) {
  const std::string_view trim = "output_trim_db must be between -60 and 20";
  const std::string_view alpha = "mask_time_alpha must be between 0 and 0.95";
  const std::string_view smooth = "mask_frequency_smooth must be 0 or 1";
  const std::string_view ceiling = "limiter_ceiling_db must be between -12 and 0";
  const std::string_view stereo = "stereo_link must be 0, 1 or 2";
  const struct {
    std::string_view body;
    std::string_view message;
  } rows[] = {
      {R"({"output_trim_db":-60.5})", trim},
      {R"({"output_trim_db":-60.00001})", trim},
      {R"({"output_trim_db":20.5})", trim},
      {R"({"mask_time_alpha":-0.001})", alpha},
      {R"({"mask_time_alpha":0.9501})", alpha},
      {R"({"mask_time_alpha":0.96})", alpha},
      {R"({"mask_frequency_smooth":-0.5})", smooth},
      {R"({"mask_frequency_smooth":1.1})", smooth},
      {R"({"mask_frequency_smooth":2})", smooth},
      {R"({"limiter_ceiling_db":-12.1})", ceiling},
      {R"({"limiter_ceiling_db":0.1})", ceiling},
      {R"({"stereo_link":-0.1})", stereo},
      {R"({"stereo_link":2.5})", stereo},
      {R"({"stereo_link":3})", stereo},
      {R"({"stereo_link":3e38})", stereo},
      // The order is that of the checks, not that of the body.
      {R"({"stereo_link":3,"limiter_ceiling_db":1,"mask_frequency_smooth":2,"mask_time_alpha":1,"output_trim_db":21})",
       trim},
      {R"({"stereo_link":3,"limiter_ceiling_db":1,"mask_frequency_smooth":2,"mask_time_alpha":1})", alpha},
      {R"({"stereo_link":3,"limiter_ceiling_db":1,"mask_frequency_smooth":2})", smooth},
      {R"({"stereo_link":3,"limiter_ceiling_db":1,"limiter_enabled":true})", ceiling},
      {R"({"output_trim_db":-6,"stereo_link":3})", stereo},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.body);
    const ExactBlock body(row.body);
    EXPECT_EQ(parse_algorithm_body(body.view(), present()).error, row.message);
  }
}

TEST(FootstepBody, RequiresBypassAndStrength) {
  const struct {
    std::string_view body;
    bool bypass, bypass_all;
    float strength;
  } rows[] = {
      {R"({"bypass":false,"enhance_strength":0.5})", false, false, 0.5f},
      {R"({"bypass":true,"enhance_strength":0})", true, false, 0.0f},
      {R"({"bypass":true,"enhance_strength":1,"bypass_all":true})", true, true, 1.0f},
      {R"({"bypass_all":false,"enhance_strength":1e0,"bypass":false})", false, false, 1.0f},
      {R"({"bypass":false,"enhance_strength":0.5,"bypass_all":1})", false, false, 0.5f},
      {R"({"bypass":false,"enhance_strength":-0})", false, false, 0.0f},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.body);
    const ExactBlock body(row.body);
    const auto [footstep, error] = parse_footstep_body(body.view());
    EXPECT_EQ(error, "");
    EXPECT_EQ(footstep.bypass, row.bypass);
    EXPECT_EQ(footstep.bypass_all, row.bypass_all);
    EXPECT_EQ(footstep.enhance_strength, row.strength);
    EXPECT_EQ(footstep.raw, 0u);
  }
}

TEST(FootstepBody, IsRefusedWithoutEitherOrOutOfRange) {
  for (const std::string_view row :
       {"", "{}", R"({"bypass":false})", R"({"enhance_strength":0.5})",
        R"({"bypass":false,"enhance_strength":1.01})", R"({"bypass":false,"enhance_strength":1.0000002})",
        R"({"bypass":false,"enhance_strength":-0.001})", R"({"bypass":false,"enhance_strength":"0.5"})",
        R"({"bypass":0,"enhance_strength":0.5})", R"({"bypass":false,"enhance_strength":nan})",
        R"({"bypass":false,"enhance_strength":inf})", R"({"bypass_all":true,"enhance_strength":0.5})",
        R"({"bypass":"false","enhance_strength":0.5})"}) {
    SCOPED_TRACE(row);
    const ExactBlock body(row);
    EXPECT_EQ(parse_footstep_body(body.view()).error, "bypass and enhance_strength (0..1) are required");
  }
}

}  // namespace
}  // namespace velmora
