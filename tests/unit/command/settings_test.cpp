#include "command/settings.h"

#include <gtest/gtest.h>

namespace velmora {
namespace {

std::string settings_of(std::string_view status, std::string_view equalizer, std::string_view devices) {
  std::string out;
  const StatusDocuments documents{
      {}, *read_document(status), *read_document(equalizer), *read_document(devices)};
  for (const auto& [name, value] : list_settings(documents)) {
    out.append(name).append("=").append(value).append("\n");
  }
  return out;
}

TEST(Settings, AreListedInWords) {
  EXPECT_EQ(
      settings_of(
          R"({"render":{"available":true,"volume":0.25,"muted":true},)"
          R"("footstep":{"bypass":false,"bypass_all":false,"enhance_strength":0.75,"output_trim_db":-3.5,)"
          R"("limiter_enabled":true,"limiter_ceiling_db":-1},"session":{"signed_in":true},)"
          R"("apo_binding":{"endpoint_id":"two"}})",
          R"({"bypass":false,"bands":[{"type":0,"gain_db":0},{"type":2,"gain_db":-1},{"type":3,"gain_db":0}]})",
          R"({"render":[{"id":"one","name":"A"},{"id":"two","name":"Speakers"}]})"),
      "device=Speakers\nvolume=25 %, muted\nenhancement=on\nstrength=75 %\nbypass all=off\n"
      "equalizer=on, 2 of 3 bands in use\noutput trim=-3.5 dB\nlimiter=on, ceiling -1 dB\n"
      "account=signed in\n");
}

TEST(Settings, AreTheOtherOnes) {
  EXPECT_EQ(
      settings_of(R"({"render":{"available":false,"volume":0.25},)"
                  R"("footstep":{"bypass":true,"bypass_all":true,"enhance_strength":0,"output_trim_db":0,)"
                  R"("limiter_enabled":false,"limiter_ceiling_db":0},"session":{"signed_in":false},)"
                  R"("apo_binding":{"endpoint_id":""}})",
                  R"({"bypass":true,"bands":[]})", R"({"render":[]})"),
      "device=none\nvolume=cannot be read\nenhancement=off\nstrength=0 %\nbypass all=on\n"
      "equalizer=off, 0 of 0 bands in use\noutput trim=0 dB\nlimiter=off, ceiling 0 dB\n"
      "account=not signed in\n");
}

TEST(Settings, ShowTheIdOfADeviceWithoutAName) {
  for (const std::string_view devices :
       {"{}", R"({"render":[]})", R"({"render":[{"id":"two","name":""}]})"}) {
    const std::string all = settings_of(R"({"apo_binding":{"endpoint_id":"two"}})", "{}", devices);
    EXPECT_TRUE(all.starts_with("device=two\n")) << all;
  }
}

TEST(Settings, AreUnknownWithoutDocuments) {
  EXPECT_EQ(settings_of("{}", "{}", "{}"),
            "device=?\nvolume=?\nenhancement=?\nstrength=?\nbypass all=?\nequalizer=?\noutput trim=?\n"
            "limiter=?, ceiling ?\naccount=?\n");
}

}  // namespace
}  // namespace velmora
