#include "http/routes.h"

#include <gtest/gtest.h>

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
  }
  void TearDown() override {
    bridge_.close();
    FreshMachine::TearDown();
  }

  // The whole answer to these bytes.
  std::string answer(const std::string& bytes) {
    const Accepted accepted = accept_client({bytes});
    accepted.client->client_done = true;
    handle_connection(accepted.socket, port, token, pages, bridge_);
    EXPECT_TRUE(accepted.socket.is_open());
    EXPECT_FALSE(accepted.client->shut_down);
    return accepted.client->from_service;
  }
  std::string answer(const std::string& method_and_target, const std::string& header_lines,
                     const std::string& body = "") {
    return answer(method_and_target + " HTTP/1.1\r\n" + header_lines +
                  "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body);
  }

  ControlBridge bridge_;
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
  handle_connection(accepted.socket, port, token, pages, bridge_);
  EXPECT_EQ(accepted.client->from_service, "");
  EXPECT_EQ(calls_of("send"), 1);
}

TEST_F(Routes, UseThePortThatTheyAreGiven) {
  const Accepted accepted = accept_client({"GET / HTTP/1.1\r\nHost: localhost:80\r\n\r\n"});
  handle_connection(accepted.socket, 80, token, pages, bridge_);
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

}  // namespace
}  // namespace velmora
