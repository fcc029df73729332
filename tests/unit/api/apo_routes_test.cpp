#include "api/apo_routes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "unit/api/support/routes.h"
#include "unit/engine/support/service_machine.h"
#include "unit/support/split.h"

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

// The texts of the fields about the restart.
struct Restarted {
  std::string happened;
  std::string error;
  std::string detail;
};
const Restarted restarted{"true", "0", "audio stack restarted"};
const Restarted not_requested{"false", "0", ""};

std::string done(const std::string& bound, const std::string& id_text, const std::string& detail,
                 const Restarted& restart = restarted) {
  return expected_document("{\"ok\":true,\"bound\":" + bound + ",\"endpoint_id\":\"" + id_text +
                           "\",\"detail\":\"" + detail + "\",\"audio_restarted\":" + restart.happened +
                           ",\"audio_restart_error\":" + restart.error + ",\"audio_restart_detail\":\"" +
                           restart.detail + "\"}");
}

const endpoint::Words bound_words{.chain = "F A", .modes = "x", .offload = "x"};
const endpoint::Words unbound_words{.chain = "F", .modes = "x", .offload = "x"};

class ApoRoutes : public FreshMachine {
 protected:
  void SetUp() override {
    FreshMachine::SetUp();
    renew(unbound_words);
  }
  // A new machine with the usual services and an endpoint with these values, which is the default one.
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
    return answer_of(post_apo, request_with(body, "POST"), controller_);
  }
  static std::string body_of(const std::string& attach, const std::string& rest = "") {
    return "{\"attach\":" + attach + rest + "}";
  }
  // Nothing but the answer has been executed.
  [[nodiscard]] bool machine_is_untouched() const {
    const Log& log = memory::system().log;
    return memory::system().state.registry == before_ &&
           std::all_of(log.begin(), log.end(),
                       [](const std::string& call) { return call == "send" || call == "closesocket"; });
  }
  static bool is_bound() {
    const hosted::TreeKey& key = endpoint::key_at(memory::system().state.registry, endpoint::fx_path());
    const hosted::TreeValue* chain = hosted::find_value(key, endpoint::widen(endpoint::chain_name));
    return chain != nullptr &&
           chain->bytes.find(endpoint::text_bytes(endpoint::class_a)) != std::string::npos;
  }
  static bool was_restarted() { return services::service_calls() == services::usual_restart(); }
  // Another program sets the chain during the restart.
  static void change_chain_during_restart(const std::string& words) {
    memory::system().before_machine_call = [words](const std::string& call) {
      if (call != "StartServiceW Audiosrv") return;
      endpoint::put(endpoint::key_at(memory::system().state.registry, endpoint::fx_path()),
                    endpoint::chain_name, endpoint::value_from_words(words, "multi"));
    };
  }

  EndpointController controller_;
  hosted::RegistryTree before_;
};

TEST_F(ApoRoutes, BindsTheDefaultEndpointAndRestartsTheAudioService) {
  EXPECT_EQ(post(R"({"attach":true})"),
            expected_document(R"({"ok":true,"bound":true,"endpoint_id":)"
                              R"("{0.0.0.00000000}.{feab839f-3407-471a-aa45-bcd41f1bb5f6}",)"
                              R"("detail":"endpoint bound","audio_restarted":true,"audio_restart_error":0,)"
                              R"("audio_restart_detail":"audio stack restarted"})"));
  EXPECT_TRUE(was_restarted());
  EXPECT_TRUE(is_bound());
}

TEST_F(ApoRoutes, ReportsWhatWasDone) {
  const struct {
    endpoint::Words words;
    std::string attach;
    std::string bound;
    std::string detail;
  } rows[] = {
      {unbound_words, "true", "true", endpoint::bound},
      {{.chain = "F", .slot = "L"}, "true", "true", endpoint::bound_with_move},
      {bound_words, "true", "true", endpoint::was_bound},
      {bound_words, "false", "false", endpoint::unbound},
      {{}, "false", "false", endpoint::was_not_bound},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.detail);
    renew(row.words);
    EXPECT_EQ(post(body_of(row.attach, ",\"endpoint_id\":\"" + endpoint_id + "\"")),
              done(row.bound, endpoint_id, row.detail));
    EXPECT_TRUE(was_restarted());
    EXPECT_EQ(is_bound(), row.bound == "true");
    renew(row.words);
    EXPECT_EQ(post(body_of(row.attach, ",\"restart_audio\":false")),
              done(row.bound, endpoint_id, row.detail, not_requested));
    EXPECT_EQ(services::service_calls(), Log());
    EXPECT_EQ(is_bound(), row.bound == "true");
  }
}

TEST_F(ApoRoutes, RequiresABooleanBeforeAnythingElse) {
  for (const std::string& attach :
       split(R"("detach":true "attach":"true" "attach":1 "attach":0 "attach":null )"
             R"("attach":[true] "attach":True "attach": "attach":tru "Attach":true )"
             R"("attach":"true","attach":true)")) {
    for (const std::string rest : {"", R"(,"endpoint_id":"{0.0.0.00000000}.{not-a-guid}")"}) {
      EXPECT_EQ(post("{" + attach + rest + "}"), no_boolean) << attach << rest;
    }
  }
  EXPECT_EQ(post(""), no_boolean);
  EXPECT_TRUE(machine_is_untouched());
}

TEST_F(ApoRoutes, AcceptsABooleanByItsFirstLetters) {
  for (const std::string body :
       {R"({ "attach" : true })", R"({"attach":truely})", R"({"x":{"attach":true,"attach":"no"}})"}) {
    renew(unbound_words);
    EXPECT_EQ(post(body), done("true", endpoint_id, endpoint::bound)) << body;
  }
}

TEST_F(ApoRoutes, UsesTheSelectedOrDefaultEndpointWhenTheBodyNamesNone) {
  for (const std::string rest : {"", R"(,"endpoint_id":"")", R"(,"endpoint_id":7)", R"(,"endpoint_id":null)",
                                 R"(,"endpoint_id":"\u007b")", R"(,"endpoint_id":"unended)"}) {
    SCOPED_TRACE(rest);
    renew(unbound_words);
    EXPECT_EQ(post(body_of("true", rest)), done("true", endpoint_id, endpoint::bound));

    renew(unbound_words);
    controller_.selected_render_id = endpoint::widen(other_id);
    controller_.selected_capture_id = endpoint::widen(capture_id);
    EXPECT_EQ(post(body_of("false", rest)), done("false", other_id, endpoint::unbound));
    EXPECT_EQ(calls_of("CoCreateInstance"), 0);
  }
}

TEST_F(ApoRoutes, ChangesOnlyTheEndpointThatTheBodyNames) {
  controller_.selected_render_id = endpoint::widen(other_id);
  EXPECT_EQ(post(body_of("true", ",\"endpoint_id\":\"" + endpoint_id + "\"")),
            done("true", endpoint_id, endpoint::bound));
  EXPECT_TRUE(is_bound());
  EXPECT_EQ(
      calls_of("CoCreateInstance") + calls_of("RegOpenKeyExW " + endpoint::fx_path(endpoint::other_guid)), 0);
  EXPECT_EQ(controller_.selected_render_id, endpoint::widen(other_id));
}

TEST_F(ApoRoutes, RefusesWhenThereIsNoEndpoint) {
  const std::pair<std::string, std::int64_t> faults[] = {{"", 0},
                                                         {"CoCreateInstance", -2147221164},
                                                         {"GetDefaultAudioEndpoint", -2147023728},
                                                         {"GetId", -2147024882}};
  for (const auto& [operation, error] : faults) {
    for (const std::string body : {R"({"attach":true})", R"({"attach":false,"endpoint_id":""})"}) {
      SCOPED_TRACE(operation + " " + body);
      renew(unbound_words);
      if (operation.empty()) memory::system().state.registry = {};
      if (!operation.empty()) memory::system().faults[operation] = {error};
      EXPECT_EQ(post(body), none_selected);
      EXPECT_EQ(services::service_calls(), Log());
      EXPECT_TRUE(memory::system().state.audio_objects.empty());
    }
  }
}

TEST_F(ApoRoutes, RefusesAMalformedIdAndOpensNothing) {
  for (const std::string id : {"{0.0.0.00000000}.{not-a-guid}", "x", " ", "{0.0.0.00000000}",
                               "{feab839f-3407-471a-aa45-bcd41f1bb5f6} "}) {
    for (const std::string attach : {"true", "false"}) {
      EXPECT_EQ(post(body_of(attach, R"(,"endpoint_id":")" + id + "\"")), no_identifier) << id;
    }
  }
  controller_.selected_render_id = u"{0.0.0.00000000}.{not-a-guid}";
  EXPECT_EQ(post(R"({"attach":true})"), no_identifier);
  EXPECT_TRUE(machine_is_untouched());
}

TEST_F(ApoRoutes, FailsForACaptureEndpoint) {
  for (const std::string attach : {"true", "false"}) {
    EXPECT_EQ(post(body_of(attach, ",\"endpoint_id\":\"" + capture_id + "\"")),
              unavailable(endpoint::not_opened));
  }
  EXPECT_EQ(memory::system().state.registry, before_);
}

TEST_F(ApoRoutes, DoesNotRestartWhenTheChangeFails) {
  const std::pair<std::string, std::string> rows[] = {{"RegOpenKeyExW", endpoint::not_opened},
                                                      {"RegQueryValueExW", endpoint::not_read},
                                                      {"RegSetValueExW", endpoint::not_written}};
  for (const auto& [operation, detail] : rows) {
    for (const std::string attach : {"true", "false"}) {
      SCOPED_TRACE(detail + " " + attach);
      renew(attach == "true" ? unbound_words : bound_words);
      memory::system().faults[operation] = {5};
      EXPECT_EQ(post(body_of(attach, ",\"restart_audio\":true")), unavailable(detail));
      EXPECT_EQ(services::service_calls(), Log());
      EXPECT_EQ(memory::system().state.registry, before_);
    }
  }
}

TEST_F(ApoRoutes, RestartsUnlessTheBodyForbidsIt) {
  const std::pair<std::string, bool> rows[] = {
      {"", true},
      {R"(,"restart_audio":true)", true},
      {R"(,"restart_audio":"false")", true},
      {R"(,"restart_audio":0)", true},
      {R"(,"restart_audio":False)", true},
      {R"(,"Restart_audio":false)", true},
      {R"(,"restart_audio":"false","restart_audio":false)", true},
      {R"(,"restart_audio" : falsely)", false},
      {R"(,"restart_audio":false,"restart_audio":true)", false},
  };
  for (const auto& [rest, restarts] : rows) {
    SCOPED_TRACE(rest);
    renew(bound_words);
    EXPECT_EQ(post(body_of("true", rest)),
              done("true", endpoint_id, endpoint::was_bound, restarts ? restarted : not_requested));
    EXPECT_EQ(was_restarted(), restarts);
  }
}

TEST_F(ApoRoutes, SucceedsAndKeepsTheBindingWhenTheRestartFails) {
  const struct {
    std::function<void()> arrange;
    Restarted restart;
  } rows[] = {
      {[] { services::behave("Audiosrv", "StopMs", services::for_ever_ms); },
       {"false", "-2147467259", "Audiosrv did not stop in time"}},
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

TEST_F(ApoRoutes, AnswersWithTheIdAsSent) {
  const std::pair<std::string, std::string> rows[] = {
      {endpoint::guid, endpoint::guid},
      {R"(a\"b\\c\/d\n.)" + std::string(endpoint::guid), R"(a\"b\\c/d\n.)" + std::string(endpoint::guid)},
      {"\xC3\xA4." + std::string(endpoint::guid), "\xC3\xA4." + std::string(endpoint::guid)},
      {"{0.0.0.00000000}.{FEAB839F-3407-471A-AA45-BCD41F1BB5F6}",
       "{0.0.0.00000000}.{FEAB839F-3407-471A-AA45-BCD41F1BB5F6}"},
      // The part before the GUID is ignored.
      {"{0.0.1.00000000}." + std::string(endpoint::guid), "{0.0.1.00000000}." + std::string(endpoint::guid)},
  };
  for (const auto& [sent, written] : rows) {
    SCOPED_TRACE(sent);
    renew(unbound_words);
    EXPECT_EQ(post("{\"attach\":true,\"endpoint_id\":\"" + sent + "\",\"restart_audio\":false}"),
              done("true", written, endpoint::bound, not_requested));
    EXPECT_TRUE(is_bound());
  }
}

TEST_F(ApoRoutes, ReadsTheBindingAgainAfterTheRestart) {
  change_chain_during_restart("F");
  EXPECT_EQ(post(R"({"attach":true})"), done("false", endpoint_id, endpoint::bound));
  renew(bound_words);
  change_chain_during_restart("F a");
  EXPECT_EQ(post(R"({"attach":false})"), done("true", endpoint_id, endpoint::unbound));
}

TEST_F(ApoRoutes, ReportsAnUnreadableEndpointAsUnbound) {
  renew(bound_words);
  memory::system().faults["RegOpenKeyExW"] = {0, 5};
  EXPECT_EQ(post(R"({"attach":true,"restart_audio":false})"),
            done("false", endpoint_id, endpoint::was_bound, not_requested));
  EXPECT_TRUE(is_bound());

  renew(bound_words);
  change_chain_during_restart("dword:1");
  EXPECT_EQ(post(R"({"attach":true})"), done("false", endpoint_id, endpoint::was_bound));
}

TEST_F(ApoRoutes, AnswersAfterTheWaitsForTheDependentServices) {
  for (const char* name : {"Player", "Mixer"}) services::behave(name, "StopError", 1052);
  const std::int64_t begin = memory::system().now_ns;
  EXPECT_EQ(post(R"({"attach":true})"),
            done("true", endpoint_id, endpoint::bound,
                 {"false", "-2147023845", "Audiosrv did not accept the stop request"}));
  EXPECT_EQ(memory::system().now_ns - begin, 20'000'000'000);
}

}  // namespace
}  // namespace velmora
