#include "api/status_routes.h"

#include <gtest/gtest.h>

#include "unit/api/support/routes.h"
#include "unit/api/support/status_machine.h"

namespace velmora {
namespace {

using namespace status_machine;

class StatusRoute : public StatusMachine {
 protected:
  std::string answer(const AccountSession& session = {}) {
    return answer_of(get_status, bridge_, endpoints_, session);
  }

  EndpointController endpoints_;
};

constexpr std::string_view filled_render =
    R"("render":{"available":true,"volume":0.6,"muted":true,"error_code":0})";

TEST_F(StatusRoute, ShowsTheDefaultEndpoint) {
  set_up_everything();
  EXPECT_EQ(answer(), expected_document(filled_document(filled_render)));
}

TEST_F(StatusRoute, ShowsTheSelectedEndpoint) {
  set_up_everything();
  put_number(endpoint::render_path(endpoint::other_guid), "DeviceState", 1);
  const std::string other_id = std::string("{0.0.0.00000000}.") + endpoint::other_guid;
  put_text("SOFTWARE\\VelmoraStandIn\\Audio", "DefaultRender", other_id);
  endpoints_.selected_render_id = endpoint::widen(endpoint::id);
  EXPECT_EQ(answer(), expected_document(filled_document(filled_render)));
  EXPECT_EQ(calls_of("GetDefaultAudioEndpoint 0"), 0);
}

TEST_F(StatusRoute, AnswersOnAnEmptyMachine) {
  EXPECT_EQ(answer(),
            expected_document(empty_document(
                R"("render":{"available":false,"volume":0,"muted":false,"error_code":-2147023728})")));
}

TEST_F(StatusRoute, ShowsTheBindingOfAnUnreadableEndpoint) {
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
    EXPECT_EQ(answer(), expected_document(filled_document(
                            R"("render":{"available":false,"volume":0,"muted":false,"error_code":)" +
                            std::string(row.error_code) + "}")));
    EXPECT_TRUE(memory::system().state.audio_objects.empty());
  }
}

TEST_F(StatusRoute, ShowsNoBindingIfTheEndpointIsUnknown) {
  for (const std::string operation : {"CoCreateInstance", "GetDefaultAudioEndpoint", "GetId"}) {
    SCOPED_TRACE(operation);
    bridge_.close();
    memory::reset();
    set_up_everything();
    memory::system().faults[operation] = {-2147467259};
    std::string body = filled_document(filled_render);
    body.replace(body.find(filled_binding), filled_binding.size(), default_binding);
    EXPECT_EQ(answer(), expected_document(body));
    EXPECT_EQ(calls_of("RegOpenKeyExW " + endpoint::fx_path()), 0);
  }
}

}  // namespace
}  // namespace velmora
