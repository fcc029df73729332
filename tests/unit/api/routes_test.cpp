#include "api/routes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "unit/account/support/account_service.h"
#include "unit/api/support/routes.h"
#include "unit/endpoints/support/audio_machine.h"
#include "unit/support/eq_body.h"
#include "unit/support/split.h"

namespace velmora {
namespace {

const std::string token = "0123456789abcdef0123456789abcdef";
const std::string local_host = "Host: 127.0.0.1:17831\r\n";
const std::string token_line = "X-Velmora-Token: " + token + "\r\n";
const std::string api_headers = local_host + token_line;
const std::string foreign_host = "Host: example.com\r\n" + token_line;

const std::string bad_request = expected_error("400 Bad Request", "invalid request");
const std::string not_local = expected_error("403 Forbidden", "invalid local origin");
const std::string not_found = expected_error("404 Not Found", "route not found");
const std::string no_token = expected_error("401 Unauthorized", "missing or invalid session token");
const std::string index_page = expected_response("200 OK", "text/html; charset=utf-8", "<index>");

class Routes : public OpenBridge {
 protected:
  void SetUp() override {
    OpenBridge::SetUp();
    state_.port = 17831;
    state_.session_token = token;
    state_.pages = pages_with("<index>", "<advanced>", "script()", "<help>");
    state_.bridge = std::move(bridge_);
    state_.account.service_url = service_url;
  }
  void TearDown() override {
    state_.bridge.close();
    OpenBridge::TearDown();
  }

  // The whole answer to these bytes, after which the client closes its side.
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
};

TEST_F(Routes, ServesPagesWithoutAToken) {
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
    EXPECT_EQ(answer("GET " + row.target, api_headers), row.answer);
  }
}

TEST_F(Routes, FindsNoPageByAnotherNameOrMethod) {
  for (const std::string& target :
       split("HEAD /|POST /|get /|PUT /index.html|DELETE /help.html|OPTIONS /|GETX /|"
             "GET /index.html#top|GET /index.htm|GET /INDEX.HTML|GET /index.html/|GET //|"
             "GET /%69ndex.html|GET index.html|GET http://127.0.0.1:17831/|GET *|GET /api|POST /api|"
             "GET /API/v1/status|GET /apix/|GET /../api/|GET /favicon.ico|GET /velmora-eq.js/x",
             '|')) {
    SCOPED_TRACE(target);
    EXPECT_EQ(answer(target, local_host), not_found);
    EXPECT_EQ(answer(target, api_headers), not_found);
  }
}

TEST_F(Routes, AcceptsTheExactTokenOnly) {
  const std::string accepted[] = {token_line, "x-velmora-token:" + token + "\r\n",
                                  "X-VELMORA-TOKEN : \t " + token + " \t \r\n",
                                  "X-Velmora-Token: wrong\r\n" + token_line};
  for (const std::string& line : accepted) {
    EXPECT_EQ(answer("GET /api/", local_host + line), not_found) << line;
  }
  const std::string refused[] = {
      token_line + "X-Velmora-Token: wrong\r\n", "X-Velmora-Token: 0123456789Abcdef0123456789abcdef\r\n",
      "X-Velmora-Token: " + token + "0\r\n",     "X-Velmora-Token:\r\n",
      "Velmora-Token: " + token + "\r\n",        ""};
  for (const std::string& line : refused) {
    EXPECT_EQ(answer("GET /api/", local_host + line), no_token) << line;
  }
  EXPECT_EQ(answer("GET /api/?token=" + token, local_host), no_token);
}

TEST_F(Routes, RefusesForeignRequestsBeforePagesAndToken) {
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
      EXPECT_EQ(answer("PUT " + target, lines + token_line), not_local);
    }
  }
}

TEST_F(Routes, AcceptsEverySpellingOfTheLocalHost) {
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
  for (const std::string& lines : rows) EXPECT_EQ(answer("GET /", lines), index_page) << lines;
  state_.port = 80;
  EXPECT_EQ(answer("GET /", "Host: localhost:80\r\n"), index_page);
}

TEST_F(Routes, AnswersABadRequestBeforeAnythingElse) {
  const std::string rows[] = {
      "",
      "GET / HTTP/1.1\r\n" + local_host,
      "GET / HTTP/2.0\r\n" + local_host + "\r\n",
      "GET / HTTP/1.1\r\nHost: example.com\r\nContent-Length: +5\r\n\r\n",
      "PUT / HTTP/1.1\r\n" + local_host + "Content-Length: 10\r\n\r\n12345",
      std::string(65536, 'a'),
  };
  for (const std::string& bytes : rows) EXPECT_EQ(answer(bytes), bad_request) << bytes.substr(0, 80);
}

TEST_F(Routes, AnswersOneRequestPerConnection) {
  const std::string request = "GET / HTTP/1.1\r\n" + local_host + "\r\n";
  EXPECT_EQ(answer(request + request), index_page);
  EXPECT_EQ(calls_of("send"), 1);
}

TEST_F(Routes, TriesOneSendWhenTheClientHasReset) {
  const Accepted accepted = accept_client({});
  accepted.client->client_gone = true;
  handle_connection(accepted.socket, state_);
  EXPECT_EQ(accepted.client->from_service, "");
  EXPECT_EQ(calls_of("send"), 1);
}

// A body that no route accepts, except those that need none and those of the account service.
const std::string refused_body = R"({"output_trim_db":99,"endpoint_id":"","username":"u","password":"p"})";
const std::string unreachable = "\"连接账号服务失败（错误 12030）\"";

// Every route and a text that only its answer to `refused_body` contains, on a machine without endpoints and
// with an account service that cannot be reached.
const struct Route {
  std::string method;
  std::string path;
  std::string status;
  std::string text;
} routes[] = {
    {"GET", "/api/v1/status", "200 OK", R"({"render":{"available":false,)"},
    {"PUT", "/api/v1/render/effects/footstep", "400 Bad Request", "bypass and enhance_strength"},
    {"PUT", "/api/v1/render/effects/algorithm", "400 Bad Request", "output_trim_db must be"},
    {"PUT", "/api/v1/render/effects/eq", "400 Bad Request", "bands must be an array"},
    {"GET", "/api/v1/render/effects/eq", "200 OK", R"({"bypass":true,"fade_ms":20,"bands":[)"},
    {"POST", "/api/v1/account/register", "400 Bad Request", unreachable},
    {"POST", "/api/v1/account/password", "401 Unauthorized", unreachable},
    {"POST", "/api/v1/account/qrcode", "502 Bad Gateway", unreachable},
    {"GET", "/api/v1/account/poll", "400 Bad Request", "缺少 state"},
    {"POST", "/api/v1/account/referrer", "400 Bad Request", "请填写推荐人的用户 ID"},
    {"POST", "/api/v1/account/unbind", "400 Bad Request", "请先扫码登录，再更换常用电脑"},
    {"POST", "/api/v1/account/logout", "200 OK", R"({"ok":true})"},
    {"POST", "/api/v1/debug/capture", "400 Bad Request", "action must be start, stop or export"},
    {"GET", "/api/v1/debug/capture/ready", "200 OK", R"({"ready":false,"bytes":0})"},
    {"GET", "/api/v1/debug/capture/download", "404 Not Found", "no exported capture found"},
    {"GET", "/api/v1/devices", "200 OK", R"({"render":[],"capture":[],)"},
    {"PUT", "/api/v1/devices/render", "400 Bad Request", "endpoint_id must be a non-empty string"},
    {"PUT", "/api/v1/devices/capture", "400 Bad Request", "endpoint_id must be a non-empty string"},
    {"POST", "/api/v1/render/apo", "400 Bad Request", "attach must be a boolean"},
    {"PUT", "/api/v1/render/volume", "400 Bad Request", "volume must be between 0 and 1"},
    {"PUT", "/api/v1/render/mute", "400 Bad Request", "muted must be a boolean"},
};
const std::string presets_path = "/api/v1/eq/presets";

TEST_F(Routes, ReachesEachRouteByItsMethodAndPath) {
  for (const Route& route : routes) {
    for (const std::string query : {"", "?x=y"}) {
      SCOPED_TRACE(route.method + " " + route.path + query);
      const std::string text = answer(route.method + " " + route.path + query, api_headers, refused_body);
      EXPECT_TRUE(text.starts_with("HTTP/1.1 " + route.status + "\r\n")) << text;
      EXPECT_NE(text.find(route.text), std::string::npos) << text;
    }
  }
}

TEST_F(Routes, FindsNoRouteByAnotherMethodOrSpelling) {
  const std::vector<std::uint64_t> before = record();
  for (const Route& route : routes) {
    for (const std::string method : {"GET", "PUT", "POST", "DELETE", "HEAD", "PATCH", "get", "put", "post"}) {
      const bool known = std::any_of(std::begin(routes), std::end(routes), [&](const Route& other) {
        return other.method == method && other.path == route.path;
      });
      if (known) continue;
      EXPECT_EQ(answer(method + " " + route.path, api_headers, refused_body), not_found)
          << method << " " << route.path;
    }
    const std::size_t last = route.path.rfind('/');
    const std::string parent = route.path.substr(0, last);
    const std::string name = route.path.substr(last + 1);
    for (const std::string& path :
         {route.path + "/", route.path + "x", route.path + "#x", parent + "//" + name, parent + "/x/" + name,
          parent + "/" + static_cast<char>(name[0] - 32) + name.substr(1), "/api/v2" + route.path.substr(7),
          parent + "/%" + (name[0] < 'p' ? "6" : "7") + "0123456789abcdef"[name[0] % 16] + name.substr(1)}) {
      EXPECT_EQ(answer(route.method + " " + path, api_headers, refused_body), not_found) << path;
    }
  }
  for (const std::string& path :
       split("/api/ /api/v1/nothing /api/v1/render /api/v1/render/ /api/v1/render/effects/ "
             "/api/v1/debug /api/v1/debug/captures /api/v1/account /api/v1/account/login "
             "/api/v1/device /api/v1/capture/volume /api/v1/capture/mute /api/v1/eq /api/v1/eq/ "
             "/api/v1/eq/preset /api/v1/eq/Presets /api/v1//eq/presets /api/v1/eq/%70resets "
             "/api/v2/eq/presets /api/v1/eq?/presets")) {
    for (const std::string method : {"GET ", "PUT ", "POST "}) {
      EXPECT_EQ(answer(method + path, api_headers, refused_body), not_found) << method << path;
    }
  }
  EXPECT_EQ(record(), before);
  EXPECT_TRUE(http_log().empty());
}

TEST_F(Routes, RequiresTheTokenAndALocalHostForEachRoute) {
  audio::put_usual_machine();
  const hosted::RegistryTree registry = memory::system().state.registry;
  const std::vector<std::uint64_t> before = record();
  std::vector<std::string> targets = {"GET " + presets_path,
                                      "PUT " + presets_path + "/a",
                                      "GET " + presets_path + "/..%2Fa",
                                      "GET " + presets_path + "X",
                                      "GET /api/",
                                      "PUT /api/v1/nothing"};
  for (const Route& route : routes) targets.push_back(route.method + " " + route.path);
  // Every route would accept one part of it.
  const std::string body = eq_body(
      eq_bands_text(15),
      R"(,"bypass":false,"enhance_strength":0.5,"volume":0.5,"muted":true,"attach":true,"action":"start",)"
      R"("endpoint_id":"{0.0.0.00000000}.{feab839f-3407-471a-aa45-bcd41f1bb5f6}","username":"u","password":"p"})");
  for (const std::string& target : targets) {
    SCOPED_TRACE(target);
    EXPECT_EQ(answer(target, local_host, body), no_token);
    EXPECT_EQ(answer(target + "?token=" + token, local_host, body), no_token);
    EXPECT_EQ(answer(target, local_host + "X-Velmora-Token: wrong\r\n", body), no_token);
    EXPECT_EQ(answer(target, foreign_host, body), not_local);
  }
  EXPECT_EQ(record(), before);
  EXPECT_EQ(memory::system().state.registry, registry);
  EXPECT_TRUE(memory::system().files.empty());
  EXPECT_TRUE(http_log().empty());
  EXPECT_EQ(calls_of("RegGetValueW SOFTWARE\\Velmora CaptureDirectory (64-bit view)"), 0);
}

TEST_F(Routes, HandsEveryPathThatStartsLikeThePresetsToTheirRoute) {
  const std::string empty_list = expected_document(R"({"presets":[]})");
  const std::string bad_method = expected_error("405 Method Not Allowed", "unsupported method");
  const std::string bad_name =
      expected_error("400 Bad Request", "preset name may contain letters, digits, spaces, - and _ only");
  // Only that route looks up the directory.
  const std::string lookup = "RegGetValueW SOFTWARE\\Velmora CaptureDirectory (64-bit view)";
  const struct {
    std::string method;
    std::string rest;
    std::string answer;
  } rows[] = {
      {"POST ", "", not_found},           {"GET ", "/", not_found},        {"GET ", "X", not_found},
      {"PUT ", "X/name", not_found},      {"DELETE ", ".json", not_found}, {"GET ", "/?name", not_found},
      {"GET ", "#top", not_found},        {"GET ", "", empty_list},        {"GET ", "?x", empty_list},
      {"PATCH ", "/name", bad_method},    {"PATCH ", "/na.me", bad_name},  {"HEAD ", "//", bad_name},
      {"GET ", "/..%2Fescape", bad_name}, {"GET ", "/a#top", bad_name},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.method + row.rest);
    memory::system().log.clear();
    EXPECT_EQ(answer(row.method + presets_path + row.rest, api_headers, eq_body()), row.answer);
    EXPECT_EQ(calls_of(lookup), 1);
  }
  EXPECT_TRUE(memory::system().files.empty());
  EXPECT_EQ(answer("PUT " + presets_path + "/my+set?x=y", api_headers, eq_body()), expected_ok());
  EXPECT_EQ(answer("GET " + presets_path, api_headers), expected_document(R"({"presets":["my set"]})"));
}

TEST_F(Routes, KeepsTheSelectedEndpointsForLaterRequests) {
  EXPECT_EQ(answer("POST /api/v1/render/apo", api_headers, R"({"attach":true})"),
            expected_error("400 Bad Request", "no render endpoint is selected"));
  audio::put_usual_machine();
  EXPECT_EQ(answer("PUT /api/v1/devices/render", api_headers,
                   R"({"endpoint_id":"{0.0.0.00000000}.{feab839f-3407-471a-aa45-bcd41f1bb5f6}"})"),
            expected_ok());
  EXPECT_EQ(answer("PUT /api/v1/devices/capture?/render", api_headers,
                   R"({"endpoint_id":"{0.0.1.00000000}.{bbbbbbbb-0000-1111-2222-333344445555}"})"),
            expected_ok());
  EXPECT_EQ(state_.endpoints.selected_render_id, audio::speakers_id);
  EXPECT_EQ(state_.endpoints.selected_capture_id, audio::line_in_id);
  EXPECT_EQ(answer("PUT /api/v1/render/volume", api_headers, R"({"volume":0.5})"), expected_ok());
  EXPECT_EQ(answer("PUT /api/v1/render/mute", api_headers, R"({"muted":true})"), expected_ok());
  EXPECT_EQ(audio::volume_text(audio::speakers_id), "0.5");
  EXPECT_EQ(audio::mute_value(audio::speakers_id), true);
  EXPECT_EQ(audio::volume_text(audio::headphones_id), "");
  state_.endpoints.selected_render_id = u"x";
  EXPECT_EQ(answer("POST /api/v1/render/apo", api_headers, R"({"attach":true})"),
            expected_error("400 Bad Request", "endpoint_id must be a render endpoint identifier"));
}

TEST_F(Routes, WritesTheRecordThatTheEffectReads) {
  const std::string footstep = R"({"bypass":false,"enhance_strength":0.5})";
  EXPECT_EQ(answer("PUT /api/v1/render/effects/footstep", api_headers, footstep), expected_ok());
  EXPECT_EQ(word_at(0x010), 0x000000003F000000u);
  state_.bridge.close();
  EXPECT_EQ(answer("PUT /api/v1/render/effects/footstep", api_headers, footstep), publication_failed);
  EXPECT_EQ(answer("GET /", local_host), index_page);
}

TEST_F(Routes, ShowsInTheStatusTheSessionThatTheAccountRoutesChange) {
  answer_next(200,
              R"({"status":"issued","account_hash":"h","session_token":"the credential","public_id":"P1"})");
  EXPECT_EQ(answer("GET /api/v1/account/poll?state=s", api_headers),
            expected_document(R"({"status":"issued","detail":"","nickname":"","public_id":"P1"})"));
  EXPECT_EQ(state_.account.session.token, "the credential");
  const std::string shown = answer("GET /api/v1/status", api_headers);
  EXPECT_NE(shown.find(R"("account":"h","signed_in":true,)"), std::string::npos);
  EXPECT_NE(shown.find(R"("control_bridge_available":true,)"), std::string::npos);
  EXPECT_EQ(shown.find("the credential"), std::string::npos);
  answer("POST /api/v1/account/logout", api_headers);
  EXPECT_NE(answer("GET /api/v1/status", api_headers).find(R"("account":"","signed_in":false,)"),
            std::string::npos);
}

}  // namespace
}  // namespace velmora
