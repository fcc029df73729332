// One file because the chain of routes is one: what a request reaches depends on all that stands in front of
// it.
#include "api/routes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "capture/capture_directory.h"
#include "capture/preset_directory.h"
#include "unit/endpoints/support/audio_machine.h"
#include "unit/endpoints/support/expected_inventory.h"
#include "unit/support/eq_body.h"
#include "unit/support/expected_response.h"
#include "unit/support/fresh_machine.h"

namespace velmora {
namespace {

constexpr std::uint16_t port = 17831;
const std::string token = "0123456789abcdef0123456789abcdef";
const UiPages pages{"<index>", "<advanced>", "script()", "<help>"};
const std::string local_host = "Host: 127.0.0.1:17831\r\n";
const std::string token_line = "X-Velmora-Token: " + token + "\r\n";
const std::string footstep_path = "/api/v1/render/effects/footstep";
const std::string footstep_body = R"({"bypass":false,"enhance_strength":0.5})";

class Routes : public FreshMachine {
 protected:
  void SetUp() override {
    FreshMachine::SetUp();
    std::string message;
    ASSERT_TRUE(bridge_.create(u"Local\\routes", message)) << message;
    state_.port = port;
    state_.session_token = token;
    state_.pages = pages;
  }
  void TearDown() override {
    bridge_.close();
    preset_directory_override.clear();
    capture_directory_override.clear();
    FreshMachine::TearDown();
  }

  // The whole answer to these bytes.
  std::string answer(const std::string& bytes) {
    const Accepted accepted = accept_client({bytes});
    accepted.client->client_done = true;
    handle_connection(accepted.socket, state_);
    EXPECT_TRUE(accepted.socket.is_open());
    EXPECT_FALSE(accepted.client->shut_down);
    return accepted.client->from_service;
  }
  std::string answer(const std::string& method_and_target, const std::string& header_lines,
                     const std::string& body = "") {
    return answer(method_and_target + " HTTP/1.1\r\n" + header_lines +
                  "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body);
  }

  ServiceState state_;
  ControlBridge& bridge_ = state_.bridge;
};

const std::string bad_request = expected_error("400 Bad Request", "invalid request");
const std::string not_local = expected_error("403 Forbidden", "invalid local origin");
const std::string not_found = expected_error("404 Not Found", "route not found");
const std::string no_token = expected_error("401 Unauthorized", "missing or invalid session token");
const std::string index_page = expected_response("200 OK", "text/html; charset=utf-8", "<index>");

TEST_F(Routes, ServePagesWithoutAToken) {
  const struct {
    std::string target;
    std::string answer;
  } rows[] = {
      {"/", index_page},
      {"/index.html", index_page},
      {"/help.html", expected_response("200 OK", "text/html; charset=utf-8", "<help>")},
      {"/advanced.html", expected_response("200 OK", "text/html; charset=utf-8", "<advanced>")},
      {"/velmora-eq.js", expected_response("200 OK", "text/javascript; charset=utf-8", "script()")},
      {"/?token=" + token, index_page},
      {"/index.html?a=b?c", index_page},
      {"/?", index_page},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.target);
    EXPECT_EQ(answer("GET " + row.target, local_host), row.answer);
    EXPECT_EQ(answer("GET " + row.target, local_host + token_line), row.answer);
  }
}

TEST_F(Routes, FindNoPageByAnyOtherNameOrMethod) {
  for (const std::string method_and_target : {"HEAD /",
                                              "POST /",
                                              "get /",
                                              "PUT /index.html",
                                              "DELETE /help.html",
                                              "OPTIONS /",
                                              "GETX /",
                                              "GET /index.html#top",
                                              "GET /index.htm",
                                              "GET /INDEX.HTML",
                                              "GET /index.html/",
                                              "GET //",
                                              "GET /%69ndex.html",
                                              "GET index.html",
                                              "GET http://127.0.0.1:17831/",
                                              "GET *",
                                              "GET /api",
                                              "POST /api",
                                              "GET /API/v1/status",
                                              "GET /apix/",
                                              "GET /../api/",
                                              "GET /favicon.ico",
                                              "GET /velmora-eq.js/x"}) {
    SCOPED_TRACE(method_and_target);
    EXPECT_EQ(answer(method_and_target, local_host), not_found);
    EXPECT_EQ(answer(method_and_target, local_host + token_line), not_found);
  }
}

TEST_F(Routes, DemandTheTokenUnderTheApiBeforeAnyRoute) {
  for (const std::string target : {"/api/", "/api/v1/nothing", "/api/?x", "/api/v1/render/effects/footstep",
                                   "/api/v1/render/effects/algorithm"}) {
    SCOPED_TRACE(target);
    EXPECT_EQ(answer("PUT " + target, local_host, footstep_body), no_token);
    EXPECT_EQ(answer("GET " + target, local_host), no_token);
    EXPECT_EQ(answer("PUT " + target + "?token=" + token, local_host, footstep_body), no_token);
  }
  FootstepParameters footstep{};
  EXPECT_TRUE(bridge_.read_footstep(footstep));
  EXPECT_EQ(footstep.raw, 0x0000000100000000u);
}

TEST_F(Routes, TakeTheTokenTrimmedAndExactly) {
  const struct {
    std::string line;
    std::string answer;
  } rows[] = {
      {"X-Velmora-Token: " + token + "\r\n", not_found},
      {"x-velmora-token:" + token + "\r\n", not_found},
      {"X-VELMORA-TOKEN : \t " + token + " \t \r\n", not_found},
      {"X-Velmora-Token: wrong\r\nX-Velmora-Token: " + token + "\r\n", not_found},
      {"X-Velmora-Token: " + token + "\r\nX-Velmora-Token: wrong\r\n", no_token},
      {"X-Velmora-Token: 0123456789Abcdef0123456789abcdef\r\n", no_token},
      {"X-Velmora-Token: " + token + "0\r\n", no_token},
      {"X-Velmora-Token:\r\n", no_token},
      {"Velmora-Token: " + token + "\r\n", no_token},
      {"", no_token},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.line);
    EXPECT_EQ(answer("GET /api/", local_host + row.line), row.answer);
  }
}

TEST_F(Routes, FindNothingUnknownUnderTheApi) {
  for (const std::string method_and_target :
       {"GET /api/", "DELETE /api/v1/status", "GET /api/v1/render/effects/footstep",
        "GET /api/v1/render/effects/algorithm", "POST /api/v1/render/effects/footstep",
        "put /api/v1/render/effects/footstep", "PUT /api/v1/render/effects/footstep/",
        "PUT /api/v1/render/effects/footstepx", "PUT /api/v1/render/effects/Footstep",
        "PUT /api/v1/render/effects/algorithm/", "PUT /api/v1/render/effects/",
        "PUT /api/v1//render/effects/footstep", "PUT /api/v1/render/effects/foot%73tep",
        "PUT /api/v1/render/effects/footstep#x", "GET /api/v1/nothing"}) {
    SCOPED_TRACE(method_and_target);
    EXPECT_EQ(answer(method_and_target, local_host + token_line, footstep_body), not_found);
  }
  FootstepParameters footstep{};
  EXPECT_TRUE(bridge_.read_footstep(footstep));
  EXPECT_EQ(footstep.raw, 0x0000000100000000u);
}

TEST_F(Routes, RunTheParameterRoutes) {
  EXPECT_EQ(answer("PUT " + footstep_path, local_host + token_line, footstep_body), expected_ok());
  FootstepParameters footstep{};
  ASSERT_TRUE(bridge_.read_footstep(footstep));
  EXPECT_FALSE(footstep.bypass);
  EXPECT_EQ(footstep.enhance_strength, 0.5f);
  EXPECT_EQ(
      answer("PUT /api/v1/render/effects/algorithm?x=y", local_host + token_line, R"({"stereo_link":2})"),
      expected_ok());
  AlgorithmParameters algorithm;
  ASSERT_TRUE(bridge_.read_algorithm(algorithm));
  EXPECT_EQ(algorithm.stereo_link, 2);
}

TEST_F(Routes, RefuseWhatIsNotLocalBeforePagesAndToken) {
  const std::string rows[] = {
      "",
      "Host: 127.0.0.1\r\n",
      "Host: example.com:17831\r\n",
      "Host: [::1]:17831\r\n",
      local_host + "Host: example.com\r\n",
      local_host + "Origin:\r\n",
      local_host + "Origin: null\r\n",
      local_host + "Origin: HTTP://127.0.0.1:17831\r\n",
      local_host + "Origin: https://127.0.0.1:17831\r\n",
      local_host + "Origin: http://127.0.0.1:17832\r\n",
  };
  for (const std::string& lines : rows) {
    for (const std::string target : {"/", "/nothing", "/api/", "/api/v1/render/effects/footstep"}) {
      SCOPED_TRACE(target + " with " + lines);
      EXPECT_EQ(answer("GET " + target, lines), not_local);
      EXPECT_EQ(answer("PUT " + target, lines + token_line, footstep_body), not_local);
    }
  }
}

TEST_F(Routes, LetLocalSpellingsIn) {
  const std::string rows[] = {
      local_host,
      "Host: LOCALHOST:17831\r\n",
      "HOST : localhost:17831\r\n",
      "Host: example.com\r\n" + local_host,
      local_host + "Origin: http://127.0.0.1:17831\r\n",
      local_host + "Origin: HTTP://LOCALHOST:17831\r\n",
      "Host: localhost:17831\r\nOrigin: http://127.0.0.1:17831\r\n",
      local_host + "Referer: http://example.com/\r\n",
  };
  for (const std::string& lines : rows) {
    SCOPED_TRACE(lines);
    EXPECT_EQ(answer("GET /", lines), index_page);
  }
}

TEST_F(Routes, AnswerABadRequestBeforeAnythingElse) {
  const std::string rows[] = {
      "",
      "GET / HTTP/1.1\r\n" + local_host,
      "\r\n\r\n",
      "GET / HTTP/2.0\r\n" + local_host + "\r\n",
      "GET /\r\n" + local_host + "\r\n",
      "GET / HTTP/1.1\r\n" + local_host + "Content-Length: 5x\r\n\r\n",
      "GET / HTTP/1.1\r\nHost: example.com\r\nContent-Length: +5\r\n\r\n",
      "GET / HTTP/1.1\r\n" + local_host + "Content-Length: 65536\r\n\r\n",
      "PUT / HTTP/1.1\r\n" + local_host + "Content-Length: 10\r\n\r\n12345",
      std::string(65536, 'a'),
  };
  for (const std::string& bytes : rows) {
    SCOPED_TRACE(bytes.substr(0, 80));
    EXPECT_EQ(answer(bytes), bad_request);
  }
}

TEST_F(Routes, AnswerOneRequestAndReadNoSecond) {
  const std::string request = "GET / HTTP/1.1\r\n" + local_host + "\r\n";
  EXPECT_EQ(answer(request + request), index_page);
  EXPECT_EQ(calls_of("send"), 1);
}

TEST_F(Routes, EndInSilenceWhenThePeerHasGone) {
  const Accepted accepted = accept_client({});
  accepted.client->client_gone = true;
  handle_connection(accepted.socket, state_);
  EXPECT_EQ(accepted.client->from_service, "");
  EXPECT_EQ(calls_of("send"), 1);
}

TEST_F(Routes, UseThePortThatTheyAreGiven) {
  const Accepted accepted = accept_client({"GET / HTTP/1.1\r\nHost: localhost:80\r\n\r\n"});
  state_.port = 80;
  handle_connection(accepted.socket, state_);
  EXPECT_EQ(accepted.client->from_service, index_page);
}

TEST_F(Routes, AnswerParametersWith503OnAClosedBridge) {
  bridge_.close();
  const std::string unavailable =
      expected_error("503 Service Unavailable", "shared control bridge update failed");
  EXPECT_EQ(answer("PUT " + footstep_path, local_host + token_line, footstep_body), unavailable);
  EXPECT_EQ(answer("PUT /api/v1/render/effects/algorithm", local_host + token_line), unavailable);
  EXPECT_EQ(answer("GET /", local_host), index_page);
}

const std::string eq_path = "/api/v1/render/effects/eq";
const std::string presets_path = "/api/v1/eq/presets";
const std::string empty_list =
    expected_response("200 OK", "application/json; charset=utf-8", R"({"presets":[]})");
const std::string bad_method = expected_error("405 Method Not Allowed", "unsupported method");
const std::string bad_name =
    expected_error("400 Bad Request", "preset name may contain letters, digits, spaces, - and _ only");

TEST_F(Routes, SetAndShowTheLiveEqualizer) {
  const std::string body = eq_body(eq_bands_text(15, eq_band_text("3")));
  EXPECT_EQ(answer("PUT " + eq_path + "?x", local_host + token_line, body), expected_ok());
  const std::string shown = answer("GET " + eq_path, local_host + token_line);
  EXPECT_EQ(shown.substr(0, 15), "HTTP/1.1 200 OK");
  EXPECT_NE(shown.find(R"({"bypass":true,"fade_ms":20,"bands":[{"type":3,"freq_hz":1000,)"),
            std::string::npos);
  EXPECT_EQ(answer("GET " + eq_path + "?x=y", local_host + token_line), shown);
}

TEST_F(Routes, KeepPresetsUnderTheirNames) {
  preset_directory_override = "C:\\presets";
  EXPECT_EQ(answer("GET " + presets_path, local_host + token_line), empty_list);
  EXPECT_EQ(answer("GET " + presets_path + "?sort=x", local_host + token_line), empty_list);
  EXPECT_EQ(answer("PUT " + presets_path + "/my+set?x=y", local_host + token_line, eq_body()), expected_ok());
  EXPECT_EQ(memory::system().files.count("C:\\presets\\my set.json"), 1u);
  EXPECT_EQ(answer("GET " + presets_path, local_host + token_line),
            expected_response("200 OK", "application/json; charset=utf-8", R"({"presets":["my set"]})"));
  EXPECT_EQ(answer("GET " + presets_path + "/my%20set", local_host + token_line),
            expected_response("200 OK", "application/json; charset=utf-8",
                              memory::system().files.at("C:\\presets\\my set.json").bytes));
  EXPECT_EQ(answer("POST " + presets_path + "/my%20set", local_host + token_line, eq_body()), bad_method);
  EXPECT_EQ(answer("DELETE " + presets_path + "/my%20set", local_host + token_line), expected_ok());
  EXPECT_EQ(answer("DELETE " + presets_path + "/my%20set", local_host + token_line),
            expected_error("404 Not Found", "no such preset"));
}

TEST_F(Routes, TakeEveryPathThatBeginsLikeThePresets) {
  // Only there the directory is looked up, so that its lookup shows where a request came to.
  const std::string lookup = "RegGetValueW SOFTWARE\\Velmora CaptureDirectory (64-bit view)";
  const struct {
    std::string method_and_rest;
    std::string answer;
  } rows[] = {
      {"POST ", not_found},           {"HEAD ", not_found},       {"PUT ", not_found},
      {"DELETE ", not_found},         {"GET /", not_found},       {"POST /", not_found},
      {"GET X", not_found},           {"PUT X/name", not_found},  {"GET s", not_found},
      {"DELETE .json", not_found},    {"GET /?name", not_found},  {"get ", not_found},
      {"GET #top", not_found},        {"GET ", empty_list},       {"GET ?x", empty_list},
      {"PATCH /name", bad_method},    {"PATCH /na.me", bad_name}, {"HEAD //", bad_name},
      {"GET /..%2Fescape", bad_name}, {"GET /a#top", bad_name},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.method_and_rest);
    memory::system().log.clear();
    const std::size_t blank = row.method_and_rest.find(' ');
    EXPECT_EQ(answer(row.method_and_rest.substr(0, blank + 1) + presets_path +
                         row.method_and_rest.substr(blank + 1),
                     local_host + token_line, eq_body()),
              row.answer);
    EXPECT_EQ(calls_of(lookup), 1);
  }
  for (const std::string method_and_target :
       {"GET /api/v1/eq/preset", "GET /api/v1/eq/Presets", "GET /api/v1/eq", "GET /api/v1/eq/",
        "GET /api/v1//eq/presets", "GET /api/v1/eq/%70resets", "GET /api/v2/eq/presets",
        "GET /api/v1/eq?/presets"}) {
    SCOPED_TRACE(method_and_target);
    memory::system().log.clear();
    EXPECT_EQ(answer(method_and_target, local_host + token_line), not_found);
    EXPECT_EQ(calls_of(lookup), 0);
  }
  EXPECT_TRUE(memory::system().files.empty());
}

TEST_F(Routes, FindNothingUnderOtherSpellingsOrMethodsOfTheEqualizerAndTheCaptures) {
  const std::vector<std::uint64_t> before = memory::system().regions.at(u"Local\\routes").lock()->words;
  for (const std::string& path : {eq_path + "/", eq_path + "x", std::string("/api/v1/render/effects/EQ"),
                                  std::string("/api/v1/render/effects/e%71"), eq_path + "/presets"}) {
    for (const std::string method : {"GET", "PUT", "POST", "DELETE"}) {
      EXPECT_EQ(answer(method + " " + path, local_host + token_line, eq_body()), not_found) << method << path;
    }
  }
  const struct {
    std::string path;
    std::vector<std::string> known;
  } rows[] = {
      {eq_path, {"GET", "PUT"}},
      {"/api/v1/debug/capture", {"POST"}},
      {"/api/v1/debug/capture/ready", {"GET"}},
      {"/api/v1/debug/capture/download", {"GET"}},
      {"/api/v1/debug/capture/", {}},
      {"/api/v1/debug/capture/ready/", {}},
      {"/api/v1/debug/capture/download/", {}},
      {"/api/v1/debug/capture/other", {}},
      {"/api/v1/debug/captures", {}},
      {"/api/v1/debug", {}},
  };
  for (const auto& row : rows) {
    for (const std::string method : {"GET", "PUT", "POST", "DELETE", "HEAD", "PATCH", "get", "put", "post"}) {
      if (std::find(row.known.begin(), row.known.end(), method) != row.known.end()) continue;
      EXPECT_EQ(answer(method + " " + row.path, local_host + token_line, eq_body()), not_found)
          << method << " " << row.path;
    }
  }
  EXPECT_EQ(memory::system().regions.at(u"Local\\routes").lock()->words, before);
}

TEST_F(Routes, ReachEachRouteOfTheCaptures) {
  capture_directory_override = "C:\\wav";
  const std::string missing = answer("GET /api/v1/debug/capture/download?x", local_host + token_line);
  EXPECT_NE(missing, not_found);
  EXPECT_NE(answer("GET /api/v1/debug/capture/ready?x", local_host + token_line), not_found);
  EXPECT_NE(answer("POST /api/v1/debug/capture?x", local_host + token_line), not_found);
}

TEST_F(Routes, DemandTheTokenForTheEqualizerThePresetsAndTheCaptures) {
  preset_directory_override = "C:\\presets";
  const std::vector<std::uint64_t> before = memory::system().regions.at(u"Local\\routes").lock()->words;
  for (const std::string& path :
       {eq_path, presets_path, presets_path + "/a", presets_path + "/..%2Fa", presets_path + "X",
        std::string("/api/v1/debug/capture"), std::string("/api/v1/debug/capture/ready"),
        std::string("/api/v1/debug/capture/download")}) {
    for (const std::string method : {"GET", "PUT", "POST", "DELETE"}) {
      SCOPED_TRACE(method + " " + path);
      EXPECT_EQ(answer(method + " " + path, local_host, eq_body()), no_token);
      EXPECT_EQ(answer(method + " " + path, "Host: example.com\r\n" + token_line, eq_body()), not_local);
    }
  }
  EXPECT_TRUE(memory::system().files.empty());
  EXPECT_EQ(memory::system().regions.at(u"Local\\routes").lock()->words, before);
  EXPECT_EQ(calls_of("RegGetValueW SOFTWARE\\Velmora CaptureDirectory (64-bit view)"), 0);
}

const std::string devices_path = "/api/v1/devices";
const std::string volume_path = "/api/v1/render/volume";
const std::string mute_path = "/api/v1/render/mute";
// A body that every route of the endpoints takes.
const std::string endpoint_body =
    R"({"endpoint_id":"{0.0.0.00000000}.{feab839f-3407-471a-aa45-bcd41f1bb5f6}","volume":0.5,"muted":true})";

TEST_F(Routes, ReachEachRouteOfTheEndpointsByItsMethodAndPath) {
  audio::put_usual_machine();
  audio::ExpectedInventory expected = audio::usual_inventory();
  const auto list = [&] {
    return expected_response("200 OK", "application/json; charset=utf-8", audio::json_of(expected));
  };
  EXPECT_EQ(answer("GET " + devices_path, local_host + token_line), list());
  EXPECT_EQ(answer("PUT " + devices_path + "/render", local_host + token_line, endpoint_body), expected_ok());
  EXPECT_EQ(state_.endpoints.selected_render_id, audio::speakers_id);
  EXPECT_EQ(state_.endpoints.selected_capture_id, u"");
  EXPECT_EQ(answer("PUT " + devices_path + "/capture?/render", local_host + token_line,
                   R"({"endpoint_id":"{0.0.1.00000000}.{bbbbbbbb-0000-1111-2222-333344445555}"})"),
            expected_ok());
  EXPECT_EQ(state_.endpoints.selected_render_id, audio::speakers_id);
  EXPECT_EQ(state_.endpoints.selected_capture_id, audio::line_in_id);
  expected.chosen_id[0] = audio::narrow(audio::speakers_id);
  expected.chosen_id[1] = audio::narrow(audio::line_in_id);
  EXPECT_EQ(answer("GET " + devices_path + "?x=y", local_host + token_line), list());

  EXPECT_EQ(answer("PUT " + volume_path, local_host + token_line, endpoint_body), expected_ok());
  EXPECT_EQ(audio::volume_text(audio::speakers_id), "0.5");
  EXPECT_EQ(audio::mute_value(audio::speakers_id), std::nullopt);
  EXPECT_EQ(answer("PUT " + mute_path + "?x", local_host + token_line, endpoint_body), expected_ok());
  EXPECT_EQ(audio::mute_value(audio::speakers_id), true);
  EXPECT_EQ(audio::volume_text(audio::headphones_id), "");
  EXPECT_EQ(audio::mute_value(audio::headphones_id), std::nullopt);
}

TEST_F(Routes, GiveTheRefusalsOfTheEndpoints) {
  const struct {
    std::string method_and_target;
    std::string body;
    std::string answer;
  } rows[] = {
      {"PUT " + devices_path + "/render?endpoint_id=a", "{}",
       expected_error("400 Bad Request", "endpoint_id must be a non-empty string")},
      {"PUT " + devices_path + "/capture", R"({"endpoint_id":""})",
       expected_error("400 Bad Request", "endpoint_id must be a non-empty string")},
      {"PUT " + devices_path + "/capture", endpoint_body,
       expected_error("404 Not Found", "active endpoint not found for this direction")},
      {"PUT " + devices_path + "/render", "{\"endpoint_id\":\"\xFF\"}",
       expected_error("503 Service Unavailable", "Windows endpoint selection failed")},
      {"PUT " + volume_path, R"({"volume":"0.5"})",
       expected_error("400 Bad Request", "volume must be between 0 and 1")},
      {"PUT " + volume_path, endpoint_body,
       expected_error("503 Service Unavailable", "Windows endpoint volume update failed")},
      {"PUT " + mute_path, R"({"muted":1})", expected_error("400 Bad Request", "muted must be a boolean")},
      {"PUT " + mute_path, endpoint_body,
       expected_error("503 Service Unavailable", "Windows endpoint mute update failed")},
  };
  audio::put_usual_machine();
  state_.endpoints.selected_render_id = u"{0.0.0.00000000}.{gone}";
  for (const auto& row : rows) {
    EXPECT_EQ(answer(row.method_and_target, local_host + token_line, row.body), row.answer)
        << row.method_and_target;
  }
}

TEST_F(Routes, FindNothingUnderOtherSpellingsOrMethodsOfTheEndpoints) {
  audio::put_usual_machine();
  const hosted::RegistryTree before = memory::system().state.registry;
  const struct {
    std::string path;
    std::string known;
  } rows[] = {
      {devices_path, "GET"},
      {devices_path + "/render", "PUT"},
      {devices_path + "/capture", "PUT"},
      {volume_path, "PUT"},
      {mute_path, "PUT"},
      {devices_path + "/", ""},
      {devices_path + "x", ""},
      {devices_path + "/render/", ""},
      {devices_path + "/capture/", ""},
      {devices_path + "/renderx", ""},
      {devices_path + "/Render", ""},
      {devices_path + "/x/render", ""},
      {devices_path + "//render", ""},
      {devices_path + "/%72ender", ""},
      {devices_path + "/render/volume", ""},
      {devices_path + "#top", ""},
      {"/api/v1/Devices", ""},
      {"/api/v1/device", ""},
      {"/api/v2/devices", ""},
      {volume_path + "/", ""},
      {volume_path + "s", ""},
      {mute_path + "/", ""},
      {mute_path + "d", ""},
      {"/api/v1/render", ""},
      {"/api/v1/render/", ""},
      {"/api/v1/render/Volume", ""},
      {"/api/v1/capture/volume", ""},
      {"/api/v1/capture/mute", ""},
      {"/api/v1/volume", ""},
  };
  for (const auto& row : rows) {
    for (const std::string method : {"GET", "PUT", "POST", "DELETE", "HEAD", "PATCH", "get", "put"}) {
      if (method == row.known) continue;
      EXPECT_EQ(answer(method + " " + row.path, local_host + token_line, endpoint_body), not_found)
          << method << " " << row.path;
    }
  }
  EXPECT_EQ(memory::system().state.registry, before);
  EXPECT_EQ(state_.endpoints.selected_render_id + state_.endpoints.selected_capture_id, u"");
}

TEST_F(Routes, DemandTheTokenForTheEndpoints) {
  audio::put_usual_machine();
  const hosted::RegistryTree before = memory::system().state.registry;
  for (const std::string& path :
       {devices_path, devices_path + "/render", devices_path + "/capture", volume_path, mute_path}) {
    for (const std::string method : {"GET", "PUT"}) {
      SCOPED_TRACE(method + " " + path);
      EXPECT_EQ(answer(method + " " + path, local_host, endpoint_body), no_token);
      EXPECT_EQ(answer(method + " " + path, local_host + "X-Velmora-Token: wrong\r\n", endpoint_body),
                no_token);
      EXPECT_EQ(answer(method + " " + path, "Host: example.com\r\n" + token_line, endpoint_body), not_local);
    }
  }
  EXPECT_EQ(memory::system().state.registry, before);
  EXPECT_EQ(state_.endpoints.selected_render_id, u"");
  EXPECT_EQ(calls_of("CoCreateInstance"), 0);
}

const std::string apo_path = "/api/v1/render/apo";

TEST_F(Routes, BindTheEffectUnderTheirOneMethodAndSpellingAndWithTheTokenAlone) {
  const std::string body = R"({"attach":true,"endpoint_id":"x"})";
  const std::string reached =
      expected_error("400 Bad Request", "endpoint_id must be a render endpoint identifier");
  EXPECT_EQ(answer("POST " + apo_path, local_host + token_line, body), reached);
  EXPECT_EQ(answer("POST " + apo_path + "?x=y", local_host + token_line, body), reached);
  EXPECT_EQ(answer("POST " + apo_path, local_host, body), no_token);
  EXPECT_EQ(answer("POST " + apo_path + "?token=" + token, local_host, body), no_token);
  EXPECT_EQ(answer("POST " + apo_path, "Host: example.com\r\n" + token_line, body), not_local);
  for (const std::string& method_and_target :
       {"GET " + apo_path, "PUT " + apo_path, "DELETE " + apo_path, "HEAD " + apo_path, "post " + apo_path,
        "POST " + apo_path + "/", "POST " + apo_path + "x", "POST " + apo_path + "#x",
        std::string("POST /api/v1/render/APO"), std::string("POST /api/v1/render/a%70o"),
        std::string("POST /api/v1//render/apo"), std::string("POST /api/v1/render")}) {
    SCOPED_TRACE(method_and_target);
    EXPECT_EQ(answer(method_and_target, local_host + token_line, body), not_found);
  }
}

// The one that the service works on is the one that it keeps.
TEST_F(Routes, BindTheEffectToTheEndpointThatIsChosen) {
  const std::string body = R"({"attach":true})";
  EXPECT_EQ(answer("POST /api/v1/render/apo", local_host + token_line, body),
            expected_error("400 Bad Request", "no render endpoint is selected"));
  state_.endpoints.selected_render_id.push_back(u'x');
  EXPECT_EQ(answer("POST /api/v1/render/apo", local_host + token_line, body),
            expected_error("400 Bad Request", "endpoint_id must be a render endpoint identifier"));
}

TEST_F(Routes, ShowTheStatusAtItsOwnPathAndMethodAlone) {
  const std::string path = "/api/v1/status";
  const std::vector<std::uint64_t> before = memory::system().regions.at(u"Local\\routes").lock()->words;
  state_.account.session.account_hash = "somebody";
  for (const std::string& target : {path, path + "?x=y"}) {
    const std::string shown = answer("GET " + target, local_host + token_line);
    EXPECT_TRUE(shown.starts_with("HTTP/1.1 200 OK\r\nContent-Type: application/json; charset=utf-8\r\n"));
    EXPECT_NE(shown.find("\r\n\r\n{\"render\":{\"available\":false,"), std::string::npos);
    EXPECT_NE(shown.find("\"account\":\"somebody\",\"signed_in\":true,"), std::string::npos);
    EXPECT_NE(shown.find("\"control_bridge_available\":true,"), std::string::npos);
  }
  for (const std::string method : {"PUT", "POST", "DELETE", "HEAD", "PATCH", "get"}) {
    EXPECT_EQ(answer(method + " " + path, local_host + token_line), not_found) << method;
  }
  for (const std::string& other :
       {path + "/", path + "x", std::string("/api/v1/Status"), std::string("/api/v1//status"),
        std::string("/api/v1/st%61tus"), std::string("/api/status"), path + "#top"}) {
    EXPECT_EQ(answer("GET " + other, local_host + token_line), not_found) << other;
  }
  EXPECT_EQ(answer("GET " + path, local_host), no_token);
  EXPECT_EQ(answer("GET " + path, "Host: example.com\r\n" + token_line), not_local);
  EXPECT_EQ(memory::system().regions.at(u"Local\\routes").lock()->words, before);
}

const std::string account_routes[] = {
    "POST /api/v1/account/register", "POST /api/v1/account/password", "POST /api/v1/account/qrcode",
    "GET /api/v1/account/poll",      "POST /api/v1/account/referrer", "POST /api/v1/account/unbind",
    "POST /api/v1/account/logout",
};

TEST_F(Routes, RunTheAccountRoutes) {
  const std::string login =
      expected_error("501 Not Implemented", "未配置账号服务，请用 --account-service 指定");
  const std::string rest = expected_error("501 Not Implemented", "未配置账号服务");
  const std::string out = expected_response("200 OK", "application/json; charset=utf-8", "{\"ok\":true}");
  const std::string answers[] = {login, login, login, rest, rest, rest, out};
  for (std::size_t index = 0; index < std::size(account_routes); ++index) {
    SCOPED_TRACE(account_routes[index]);
    EXPECT_EQ(answer(account_routes[index], local_host + token_line), answers[index]);
    EXPECT_EQ(answer(account_routes[index] + "?state=x", local_host + token_line), answers[index]);
  }
}

TEST_F(Routes, SignInAndOutInTheSessionThatTheStatusShows) {
  state_.account.service_url = "http://account.example";
  memory::http_service().replies.push_back(
      {200, R"({"status":"issued","account_hash":"h","session_token":"the credential","public_id":"P1"})",
       100, 0});
  EXPECT_EQ(answer("GET /api/v1/account/poll?state=s", local_host + token_line),
            expected_response("200 OK", "application/json; charset=utf-8",
                              R"({"status":"issued","detail":"","nickname":"","public_id":"P1"})"));
  EXPECT_EQ(state_.account.session.token, "the credential");
  const std::string shown = answer("GET /api/v1/status", local_host + token_line);
  EXPECT_NE(shown.find(R"("account":"h","signed_in":true,)"), std::string::npos);
  EXPECT_EQ(shown.find("the credential"), std::string::npos);
  answer("POST /api/v1/account/logout", local_host + token_line);
  EXPECT_EQ(state_.account.session.account_hash, "");
  EXPECT_NE(answer("GET /api/v1/status", local_host + token_line).find(R"("account":"","signed_in":false,)"),
            std::string::npos);
}

TEST_F(Routes, TakeTheAccountRoutesByTheirMethodAndNameAlone) {
  for (const std::string& route : account_routes) {
    const std::string path = route.substr(route.find(' ') + 1);
    const std::string other_method = route.starts_with("GET") ? "POST " : "GET ";
    for (const std::string& method_and_target :
         {other_method + path, "PUT " + path, route + "/", route + "x", "post " + path}) {
      SCOPED_TRACE(method_and_target);
      EXPECT_EQ(answer(method_and_target, local_host + token_line), not_found);
    }
    EXPECT_EQ(answer(route, local_host), no_token);
    EXPECT_EQ(answer(route, "Host: example.com\r\n" + token_line), not_local);
  }
  for (const std::string route :
       {"POST /api/v1/account", "POST /api/v1/account/", "POST /api/v1/account/login"}) {
    EXPECT_EQ(answer(route, local_host + token_line), not_found);
  }
}

}  // namespace
}  // namespace velmora
