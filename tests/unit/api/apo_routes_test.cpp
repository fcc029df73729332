#include "api/apo_routes.h"

#include <gtest/gtest.h>

#include <functional>

#include "unit/engine/support/service_machine.h"
#include "unit/support/expected_response.h"
#include "unit/support/fresh_machine.h"

namespace velmora {
namespace {

using services::Log;

const std::string endpoint_id = endpoint::id;
const std::string other_id = "{0.0.0.00000000}.{00000000-3407-471a-aa45-bcd41f1bb5f6}";
const std::string capture_id = "{0.0.1.00000000}.{cccccccc-0000-1111-2222-333344445555}";
const std::string no_boolean = expected_error("400 Bad Request", "attach must be a boolean");
const std::string none_selected = expected_error("400 Bad Request", "no render endpoint is selected");
const std::string no_identifier =
    expected_error("400 Bad Request", "endpoint_id must be a render endpoint identifier");

std::string unavailable(std::string_view detail) { return expected_error("503 Service Unavailable", detail); }

// A field of the answer's text, as it is written.
struct Restarted {
  std::string happened;
  std::string error;
  std::string detail;
};
const Restarted restarted{"true", "0", "audio stack restarted"};
const Restarted not_asked_for{"false", "0", ""};

std::string done(const std::string& bound, const std::string& id_text, const std::string& detail,
                 const Restarted& restart = restarted) {
  return expected_response("200 OK", "application/json; charset=utf-8",
                           "{\"ok\":true,\"bound\":" + bound + ",\"endpoint_id\":\"" + id_text +
                               "\",\"detail\":\"" + detail + "\",\"audio_restarted\":" + restart.happened +
                               ",\"audio_restart_error\":" + restart.error + ",\"audio_restart_detail\":\"" +
                               restart.detail + "\"}");
}

// Chains of the endpoint, in words.
const endpoint::Words bound_words{.chain = "F A", .modes = "x", .offload = "x"};
const endpoint::Words unbound_words{.chain = "F", .modes = "x", .offload = "x"};

class ApoRoutes : public FreshMachine {
 protected:
  void SetUp() override {
    FreshMachine::SetUp();
    renew(unbound_words);
  }
  // A new machine: the endpoint with these values, which is the default one, and the usual services.
  void renew(const endpoint::Words& words) {
    memory::reset();
    endpoint::set_up(words);
    services::put_usual_services();
    for (const std::string& guid : {std::string(endpoint::guid), std::string(endpoint::other_guid)}) {
      hosted::TreeKey& key = endpoint::key_at(memory::system().state.registry, endpoint::render_path(guid));
      endpoint::put(key, "DeviceState", endpoint::Value{endpoint::type_dword, endpoint::number_bytes(1, 4)});
    }
    endpoint::put(endpoint::key_at(memory::system().state.registry, "SOFTWARE\\VelmoraStandIn\\Audio"),
                  "DefaultRender", endpoint::Value{endpoint::type_sz, endpoint::text_bytes(endpoint_id)});
    controller_ = {};
    before_ = memory::system().state.registry;
  }
  std::string post(const std::string& body) {
    const Accepted accepted = accept_client({});
    ApiRequest request;
    request.method = "POST";
    request.body = body;
    post_apo(accepted.socket, request, controller_);
    return accepted.client->from_service;
  }
  // What the machine was asked for, but for the answer that went out.
  static Log calls() {
    Log calls = memory::system().log;
    std::erase_if(calls, [](const std::string& call) { return call == "send" || call == "closesocket"; });
    return calls;
  }
  [[nodiscard]] bool registry_is_untouched() const { return memory::system().state.registry == before_; }
  static bool is_bound() {
    const hosted::TreeKey& key = endpoint::key_at(memory::system().state.registry, endpoint::fx_path());
    const hosted::TreeValue* chain = hosted::find_value(key, endpoint::widen(endpoint::chain_name));
    return chain != nullptr &&
           chain->bytes.find(endpoint::text_bytes(endpoint::class_a)) != std::string::npos;
  }
  static void before(const std::string& call, const std::function<void()>& act) {
    memory::system().before_machine_call = [call, act](const std::string& entry) {
      if (entry == call) act();
    };
  }
  static void put_chain(const std::string& words) {
    endpoint::put(endpoint::key_at(memory::system().state.registry, endpoint::fx_path()),
                  endpoint::chain_name, endpoint::value_from_words(words, "multi"));
  }

  EndpointController controller_;
  hosted::RegistryTree before_;
};

TEST_F(ApoRoutes, BindTheWorkingEndpointAndRestartTheAudioService) {
  EXPECT_EQ(post(R"({"attach":true})"),
            expected_response("200 OK", "application/json; charset=utf-8",
                              R"({"ok":true,"bound":true,"endpoint_id":)"
                              R"("{0.0.0.00000000}.{feab839f-3407-471a-aa45-bcd41f1bb5f6}",)"
                              R"("detail":"endpoint bound","audio_restarted":true,"audio_restart_error":0,)"
                              R"("audio_restart_detail":"audio stack restarted"})"));
  EXPECT_EQ(services::service_calls(), services::usual_restart());
  EXPECT_TRUE(is_bound());
}

TEST_F(ApoRoutes, AnswerWithWhatWasDone) {
  const struct {
    endpoint::Words words;
    std::string attach;
    std::string bound;
    std::string detail;
  } rows[] = {
      {unbound_words, "true", "true", endpoint::bound},
      {{.chain = "F"}, "true", "true", endpoint::bound_with_list},
      {{.chain = "F", .slot = "L"}, "true", "true", endpoint::bound_with_move},
      {bound_words, "true", "true", endpoint::was_bound},
      {{.chain = "A", .modes = "x", .added = "1"}, "true", "true", endpoint::list_refreshed},
      {bound_words, "false", "false", endpoint::unbound},
      {{.chain = "A L", .moved = "L"}, "false", "false", endpoint::unbound_with_restore},
      {unbound_words, "false", "false", endpoint::was_not_bound},
      {{}, "false", "false", endpoint::was_not_bound},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.detail);
    renew(row.words);
    EXPECT_EQ(post("{\"attach\":" + row.attach + ",\"endpoint_id\":\"" + endpoint_id + "\"}"),
              done(row.bound, endpoint_id, row.detail));
    EXPECT_EQ(services::service_calls(), services::usual_restart());
    EXPECT_EQ(is_bound(), row.bound == "true");
    renew(row.words);
    EXPECT_EQ(post("{\"restart_audio\":false,\"attach\":" + row.attach + "}"),
              done(row.bound, endpoint_id, row.detail, not_asked_for));
    EXPECT_EQ(services::service_calls(), Log());
    EXPECT_EQ(is_bound(), row.bound == "true");
  }
}

TEST_F(ApoRoutes, BindThenRestartThenLookInThisOrder) {
  static_cast<void>(post(R"({"attach":true})"));
  std::vector<std::string> order;
  for (const std::string& call : endpoint::calls()) {
    if (call == "open fx" || call == "set chain" || call == "OpenSCManagerW" || call == "send" ||
        call == "CloseServiceHandle" || call == "CoCreateInstance") {
      order.push_back(call);
    }
  }
  EXPECT_EQ(order, (Log{"CoCreateInstance", "open fx", "set chain", "OpenSCManagerW", "CloseServiceHandle",
                        "open fx", "send"}));
}

TEST_F(ApoRoutes, DemandABooleanBeforeAnythingElse) {
  const std::string rests[] = {"", R"(,"endpoint_id":"{0.0.0.00000000}.{not-a-guid}")",
                               ",\"endpoint_id\":\"" + endpoint_id + "\"", R"(,"restart_audio":false)"};
  for (const std::string attach :
       {R"("detach":true)", R"("attach":"true")", R"("attach":"false")", R"("attach":1)", R"("attach":0)",
        R"("attach":null)", R"("attach":[true])", R"("attach":True)", R"("attach":TRUE)", R"("attach":)",
        R"("attach":tru)", R"("Attach":true)", R"("attach":"true","attach":true)"}) {
    for (const std::string& rest : rests) {
      const std::string body = "{" + attach + rest + "}";
      SCOPED_TRACE(body);
      memory::system().log.clear();
      EXPECT_EQ(post(body), no_boolean);
      EXPECT_EQ(calls(), Log());
    }
  }
  for (const std::string body : {"", "{}", "true", "[]"}) EXPECT_EQ(post(body), no_boolean);
  EXPECT_EQ(calls(), Log());
  EXPECT_TRUE(registry_is_untouched());
}

TEST_F(ApoRoutes, TakeWhatBeginsLikeABoolean) {
  for (const std::string body :
       {R"({"attach":true})", R"({ "attach" : true })", R"({"attach":truely})", R"({"x":{"attach":true}})",
        R"({"attach":true,"attach":"no"})", "\"attach\"\n:\ttrue"}) {
    SCOPED_TRACE(body);
    renew(unbound_words);
    EXPECT_EQ(post(body), done("true", endpoint_id, endpoint::bound));
  }
}

TEST_F(ApoRoutes, UseTheWorkingEndpointWhereNoneIsNamed) {
  for (const std::string rest :
       {"", R"(,"endpoint_id":"")", R"(,"endpoint_id":7)", R"(,"endpoint_id":null)",
        R"(,"endpoint_id":["x"])", R"(,"endpoint_id":"\u007b")", R"(,"endpoint_id":"unended)"}) {
    SCOPED_TRACE(rest);
    renew(unbound_words);
    EXPECT_EQ(post("{\"attach\":true" + rest + "}"), done("true", endpoint_id, endpoint::bound));
    EXPECT_EQ(calls().front(), "CoCreateInstance");

    renew(unbound_words);
    controller_.selected_render_id = endpoint::widen(other_id);
    controller_.selected_capture_id = endpoint::widen(capture_id);
    EXPECT_EQ(post("{\"attach\":false" + rest + "}"), done("false", other_id, endpoint::unbound));
    EXPECT_EQ(calls().front(), "RegOpenKeyExW " + endpoint::fx_path(endpoint::other_guid));
    EXPECT_EQ(calls_of("CoCreateInstance"), 0);
  }
}

TEST_F(ApoRoutes, UseTheEndpointThatIsNamedAndLeaveTheOthersAlone) {
  controller_.selected_render_id = endpoint::widen(other_id);
  EXPECT_EQ(post(R"({"attach":true,"endpoint_id":")" + endpoint_id + "\"}"),
            done("true", endpoint_id, endpoint::bound));
  EXPECT_TRUE(is_bound());
  EXPECT_EQ(calls_of("CoCreateInstance"), 0);
  EXPECT_EQ(calls_of("RegOpenKeyExW " + endpoint::fx_path(endpoint::other_guid)), 0);
  EXPECT_EQ(controller_.selected_render_id, endpoint::widen(other_id));
}

TEST_F(ApoRoutes, RefuseWhereNoEndpointIsToBeFound) {
  const struct {
    std::string what;
    std::function<void()> arrange;
    Log calls;
  } rows[] = {
      {"no endpoint at all",
       [] { memory::system().state.registry = {}; },
       {"CoCreateInstance", "GetDefaultAudioEndpoint 0", "Release"}},
      {"endpoints cannot be had",
       [] { memory::system().faults["CoCreateInstance"] = {-2147221164}; },
       {"CoCreateInstance"}},
      {"no default",
       [] { memory::system().faults["GetDefaultAudioEndpoint"] = {-2147023728}; },
       {"CoCreateInstance", "GetDefaultAudioEndpoint 0", "Release"}},
      {"the default has no id",
       [] { memory::system().faults["GetId"] = {-2147024882}; },
       {"CoCreateInstance", "GetDefaultAudioEndpoint 0", "GetId", "Release", "Release"}},
  };
  for (const auto& row : rows) {
    for (const std::string body : {R"({"attach":true})", R"({"attach":false,"endpoint_id":""})"}) {
      SCOPED_TRACE(row.what + " " + body);
      renew(unbound_words);
      row.arrange();
      EXPECT_EQ(post(body), none_selected);
      EXPECT_EQ(calls(), row.calls);
    }
  }
}

TEST_F(ApoRoutes, RefuseAnIdOfAnotherShapeAndOpenNothing) {
  const std::string guid = endpoint::guid;
  for (const std::string& id :
       {std::string("{0.0.0.00000000}.{not-a-guid}"), std::string("x"), std::string(" "), std::string("{}"),
        guid + " ", " " + guid, endpoint_id + "}", endpoint_id.substr(0, endpoint_id.size() - 1),
        "{0.0.0.00000000}" + guid, "{0.0.0.00000000}." + guid + ".{x}", "{0.0.0.00000000}\\\\" + guid,
        std::string("{0.0.0.00000000}.{geab839f-3407-471a-aa45-bcd41f1bb5f6}"),
        std::string("{0.0.0.00000000}.{feab839f-3407-471a-aa45_bcd41f1bb5f6}"), std::string("default")}) {
    for (const std::string attach : {"true", "false"}) {
      SCOPED_TRACE(id);
      memory::system().log.clear();
      EXPECT_EQ(post("{\"attach\":" + attach + ",\"endpoint_id\":\"" + id + "\"}"), no_identifier);
      EXPECT_EQ(calls(), Log());
    }
  }
  // Also when it is the chosen one.
  controller_.selected_render_id = u"{0.0.0.00000000}.{not-a-guid}";
  EXPECT_EQ(post(R"({"attach":true})"), no_identifier);
  EXPECT_EQ(calls(), Log());
  EXPECT_TRUE(registry_is_untouched());
}

TEST_F(ApoRoutes, FindNoKeyForACaptureEndpoint) {
  const std::string guid = capture_id.substr(capture_id.find(".{") + 1);
  for (const std::string attach : {"true", "false"}) {
    memory::system().log.clear();
    EXPECT_EQ(post("{\"attach\":" + attach + ",\"endpoint_id\":\"" + capture_id + "\"}"),
              unavailable(endpoint::not_opened));
    EXPECT_EQ(calls(), Log{"RegOpenKeyExW " + endpoint::fx_path(guid)});
  }
  EXPECT_TRUE(registry_is_untouched());
}

TEST_F(ApoRoutes, RestartNothingWhenTheChangeFails) {
  const std::string query = "RegQueryValueExW";
  const struct {
    std::string operation;
    std::deque<std::int64_t> faults;
    std::string detail;
  } rows[] = {
      {"RegOpenKeyExW", {5}, endpoint::not_opened},
      {query, {5}, endpoint::not_read},
      {"RegSetValueExW", {5}, endpoint::not_written},
  };
  for (const auto& row : rows) {
    for (const std::string attach : {"true", "false"}) {
      SCOPED_TRACE(row.detail + " " + attach);
      renew(attach == "true" ? unbound_words : bound_words);
      memory::system().faults[row.operation] = row.faults;
      EXPECT_EQ(post("{\"attach\":" + attach + ",\"restart_audio\":true}"), unavailable(row.detail));
      EXPECT_EQ(services::service_calls(), Log());
      EXPECT_TRUE(registry_is_untouched());
      // Nobody looks at the endpoint again.
      EXPECT_EQ(calls_of("RegOpenKeyExW " + endpoint::fx_path()), 1);
    }
  }
  renew(unbound_words);
  memory::system().faults["StringFromGUID2"] = {1};
  EXPECT_EQ(post(R"({"attach":true})"), unavailable(endpoint::not_kept));
  EXPECT_EQ(services::service_calls(), Log());
}

TEST_F(ApoRoutes, RestartUnlessTheyAreToldNotTo) {
  const struct {
    std::string rest;
    bool restarts;
  } rows[] = {
      {"", true},
      {R"(,"restart_audio":true)", true},
      {R"(,"restart_audio":"false")", true},
      {R"(,"restart_audio":"true")", true},
      {R"(,"restart_audio":0)", true},
      {R"(,"restart_audio":null)", true},
      {R"(,"restart_audio":False)", true},
      {R"(,"Restart_audio":false)", true},
      {R"(,"restart":false)", true},
      {R"(,"restart_audio":"false","restart_audio":false)", true},
      {R"(,"restart_audio":false)", false},
      {R"(,"restart_audio" : falsely)", false},
      {R"(,"restart_audio":false,"restart_audio":true)", false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.rest);
    renew(bound_words);
    EXPECT_EQ(post("{\"attach\":true" + row.rest + "}"),
              done("true", endpoint_id, endpoint::was_bound, row.restarts ? restarted : not_asked_for));
    EXPECT_EQ(services::service_calls(), row.restarts ? services::usual_restart() : Log());
  }
}

TEST_F(ApoRoutes, SucceedAndKeepTheBindingWhenTheRestartFails) {
  const struct {
    std::function<void()> arrange;
    Restarted restart;
  } rows[] = {
      {[] { services::behave("Audiosrv", "StopMs", services::for_ever_ms); },
       {"false", "-2147467259", "Audiosrv did not stop in time"}},
      {[] { services::behave("Audiosrv", "StartMs", services::for_ever_ms); },
       {"false", "-2147467259", "Audiosrv did not reach the running state"}},
      {[] { services::behave("Audiosrv", "StopError", 1052); },
       {"false", "-2147023844", "Audiosrv did not accept the stop request"}},
      {[] { services::behave("Audiosrv", "StartError", 1069); },
       {"false", "-2147023827", "Audiosrv did not restart"}},
      {[] { memory::system().faults["OpenSCManagerW"] = {5}; },
       {"false", "-2147024891", "the service control manager could not be opened"}},
      {[] { services::uninstall("Audiosrv"); },
       {"false", "-2147023836", "Audiosrv could not be opened (run the control service elevated)"}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.restart.detail);
    renew(unbound_words);
    row.arrange();
    EXPECT_EQ(post(R"({"attach":true})"), done("true", endpoint_id, endpoint::bound, row.restart));
    EXPECT_TRUE(is_bound());
    renew(bound_words);
    row.arrange();
    EXPECT_EQ(post(R"({"attach":false})"), done("false", endpoint_id, endpoint::unbound, row.restart));
    EXPECT_FALSE(is_bound());
  }
}

TEST_F(ApoRoutes, AnswerWithTheWholeIdAsItWasSentAndEscaped) {
  const struct {
    std::string sent;
    std::string written;
  } rows[] = {
      {endpoint::guid, endpoint::guid},
      {R"(a\"b\\c\/d\n.)" + std::string(endpoint::guid), R"(a\"b\\c/d\n.)" + std::string(endpoint::guid)},
      {"\xC3\xA4." + std::string(endpoint::guid), "\xC3\xA4." + std::string(endpoint::guid)},
      {"{0.0.0.00000000}.{FEAB839F-3407-471A-AA45-BCD41F1BB5F6}",
       "{0.0.0.00000000}.{FEAB839F-3407-471A-AA45-BCD41F1BB5F6}"},
      // The Windows flow stands in front of the GUID, and nobody looks at it.
      {"{0.0.1.00000000}." + std::string(endpoint::guid), "{0.0.1.00000000}." + std::string(endpoint::guid)},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.sent);
    renew(unbound_words);
    EXPECT_EQ(post("{\"attach\":true,\"endpoint_id\":\"" + row.sent + "\",\"restart_audio\":false}"),
              done("true", row.written, endpoint::bound, not_asked_for));
    EXPECT_TRUE(is_bound());
  }
}

TEST_F(ApoRoutes, LookAfreshWhetherTheEffectIsBound) {
  // What another program does during the restart is seen.
  before("StartServiceW Audiosrv", [] { put_chain("F"); });
  EXPECT_EQ(post(R"({"attach":true})"), done("false", endpoint_id, endpoint::bound));
  renew(bound_words);
  before("StartServiceW Audiosrv", [] { put_chain("F a"); });
  EXPECT_EQ(post(R"({"attach":false})"), done("true", endpoint_id, endpoint::unbound));
}

TEST_F(ApoRoutes, CallAnEndpointUnboundThatCannotBeLookedAt) {
  renew(bound_words);
  memory::system().faults["RegOpenKeyExW"] = {0, 5};
  EXPECT_EQ(post(R"({"attach":true,"restart_audio":false})"),
            done("false", endpoint_id, endpoint::was_bound, not_asked_for));
  EXPECT_TRUE(is_bound());

  renew(bound_words);
  before("StartServiceW Audiosrv", [] { put_chain("dword:1"); });
  EXPECT_EQ(post(R"({"attach":true})"), done("false", endpoint_id, endpoint::was_bound));
}

TEST_F(ApoRoutes, HoldTheClientUpForAsLongAsTheDependentsTake) {
  for (const char* name : {"Player", "Mixer"}) services::behave(name, "StopError", 1052);
  const std::int64_t begin = memory::system().now_ns;
  EXPECT_EQ(post(R"({"attach":true})"),
            done("true", endpoint_id, endpoint::bound,
                 {"false", "-2147023845", "Audiosrv did not accept the stop request"}));
  EXPECT_EQ(memory::system().now_ns - begin, 20'000'000'000);
}

}  // namespace
}  // namespace velmora
