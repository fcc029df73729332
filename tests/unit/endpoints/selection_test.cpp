#include "endpoints/selection.h"

#include <gtest/gtest.h>

#include <new>
#include <vector>

#include "base/text.h"
#include "unit/endpoints/support/audio_machine.h"

namespace velmora {
namespace {

using namespace audio;
using namespace std::string_literals;

const EndpointController nothing_chosen;

class Selection : public FreshMachine {
 protected:
  void SetUp() override {
    FreshMachine::SetUp();
    put_usual_machine();
  }

  std::int32_t select(EndpointFlow flow, std::string_view id) {
    return flow == EndpointFlow::render ? select_render_endpoint(controller_, id)
                                        : select_capture_endpoint(controller_, id);
  }
  void expect_chosen(std::u16string_view render, std::u16string_view capture) {
    EXPECT_EQ(controller_.selected_render_id, render);
    EXPECT_EQ(controller_.selected_capture_id, capture);
  }
  // The usual machine with an endpoint chosen for each flow.
  void renew() {
    renew_usual_machine();
    controller_ = {speakers_id, line_in_id};
  }

  EndpointController controller_;
};

TEST_F(Selection, BeginsWithNothingChosen) { expect_chosen(u"", u""); }

TEST_F(Selection, KeepsOneChoicePerFlow) {
  EXPECT_EQ(select(EndpointFlow::render, narrow(speakers_id)), 0);
  expect_chosen(speakers_id, u"");
  EXPECT_EQ(select(EndpointFlow::capture, narrow(line_in_id)), 0);
  expect_chosen(speakers_id, line_in_id);
  EXPECT_EQ(select(EndpointFlow::render, narrow(headphones_id)), 0);
  expect_chosen(headphones_id, line_in_id);
  EXPECT_EQ(select(EndpointFlow::capture, narrow(microphone_id)), 0);
  expect_chosen(headphones_id, microphone_id);
}

TEST_F(Selection, LeavesTheMachineUnchanged) {
  const hosted::RegistryTree before = memory::system().state.registry;
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(select(EndpointFlow::render, narrow(speakers_id)), 0);
    EXPECT_EQ(select(EndpointFlow::capture, narrow(line_in_id)), 0);
    expect_chosen(speakers_id, line_in_id);
  }
  EXPECT_EQ(memory::system().state.registry, before);
}

TEST_F(Selection, RefusesEmptyAndIllFormedIdsWithoutACall) {
  controller_ = {speakers_id, line_in_id};
  const std::string rows[] = {
      "",
      "\xFF",
      "\xC0\x80",
      "\xED\xA0\x80",
      "\xE2\x82",
      narrow(headphones_id) + "\x80",
      "\xC2" + narrow(headphones_id),
      std::string(60000, 'a') + "\xF4\x90\x80\x80",
  };
  for (const std::string& id : rows) {
    for (const EndpointFlow flow : {EndpointFlow::render, EndpointFlow::capture}) {
      SCOPED_TRACE(::testing::PrintToString(id.substr(0, 80)));
      EXPECT_EQ(select(flow, id), invalid_argument);
      expect_chosen(speakers_id, line_in_id);
    }
  }
  EXPECT_TRUE(memory::system().log.empty());
}

TEST_F(Selection, FindsOnlyActiveEndpointsOfTheFlowByExactId) {
  controller_ = {speakers_id, line_in_id};
  Endpoint unplugged = {EndpointFlow::render, u"{eeeeeeee-0000-1111-2222-333344445555}", u"Unplugged"};
  unplugged.active = false;
  put_endpoint(unplugged);
  const std::string id = narrow(headphones_id);
  std::string upper = id;
  for (char& letter : upper) letter = static_cast<char>(letter == 'b' ? 'B' : letter);
  ASSERT_NE(upper, id);
  const std::string rows[] = {
      narrow(microphone_id),
      narrow(id_of(unplugged)),
      upper,
      narrow(headphones.key),
      id.substr(0, id.size() - 1),
      id + "}",
      " " + id,
      id + " ",
      id + "\0"s,
      "\0"s + id,
      "\0"s,
      id + "\xCC\x81",
      "*",
      "a\"b",
      "a\\b\\c",
      "\x01\n\x1F\x7F",
      std::string(61440, 'x'),
      id + std::string(61440, '}'),
  };
  for (const std::string& row : rows) {
    SCOPED_TRACE(::testing::PrintToString(row.substr(0, 80)));
    EXPECT_EQ(select(EndpointFlow::render, row), not_found);
    expect_chosen(speakers_id, line_in_id);
  }
  EXPECT_EQ(select(EndpointFlow::capture, id), not_found);
  EXPECT_EQ(select(EndpointFlow::capture, narrow(speakers_id)), not_found);
  expect_chosen(speakers_id, line_in_id);
  EXPECT_EQ(select(EndpointFlow::render, id), 0);
  expect_chosen(headphones_id, line_in_id);
}

TEST_F(Selection, AcceptsUnusualIds) {
  const std::u16string keys[] = {
      u"quote\"d",      u"back\\slash", std::u16string(u"\x01\n\x1F\x7F"), u"\xE4\x20AC\xD83D\xDE00",
      u"{a}.{b}\xFFFF", u" ",           std::u16string(30720, u'x'),       std::u16string(20000, u'\x20AC'),
  };
  for (const std::u16string& key : keys) {
    put_endpoint({EndpointFlow::render, key, u"Odd"});
    const std::u16string id = id_of(EndpointFlow::render, key);
    EXPECT_EQ(select(EndpointFlow::render, utf8_from_wide(id)), 0)
        << ::testing::PrintToString(id.substr(0, 40));
    EXPECT_EQ(controller_.selected_render_id, id);
  }
}

TEST_F(Selection, FindsNothingOnAMachineWithoutEndpoints) {
  memory::reset();
  EXPECT_EQ(select(EndpointFlow::render, narrow(speakers_id)), not_found);
  EXPECT_EQ(select(EndpointFlow::capture, narrow(line_in_id)), not_found);
  expect_chosen(u"", u"");
}

TEST_F(Selection, ReturnsTheStatusOfAFailedCallAndKeepsTheChoice) {
  const struct {
    EndpointFlow flow;
    std::u16string id;
  } rows[] = {{EndpointFlow::render, headphones_id}, {EndpointFlow::capture, microphone_id}};
  for (const auto& row : rows) {
    renew();
    ASSERT_EQ(select(row.flow, narrow(row.id)), 0);
    const std::vector<std::string> log = memory::system().log;
    std::size_t failing_calls = 0;
    for (std::size_t place = 0; place < log.size(); ++place) {
      for (const std::int32_t status : {not_found, access_denied, smallest_status, -1}) {
        SCOPED_TRACE(log[place] + " at " + std::to_string(place));
        renew();
        memory::system().fault_at = {place + 1, status};
        const std::int32_t result = select(row.flow, narrow(row.id));
        EXPECT_TRUE(memory::system().state.audio_objects.empty());
        if (!has_audio_status(log[place])) {
          EXPECT_EQ(result, 0);
          continue;
        }
        ++failing_calls;
        EXPECT_EQ(result, status);
        expect_chosen(speakers_id, line_in_id);
      }
    }
    EXPECT_EQ(failing_calls, row.flow == EndpointFlow::render ? 24u : 16u);
  }
}

TEST_F(Selection, TakesPositiveStatusesAsSuccess) {
  ASSERT_EQ(select(EndpointFlow::render, narrow(headphones_id)), 0);
  const std::vector<std::string> log = memory::system().log;
  for (std::size_t place = 0; place < log.size(); ++place) {
    SCOPED_TRACE(log[place] + " at " + std::to_string(place));
    renew();
    memory::system().fault_at = {place + 1, 1};
    EXPECT_EQ(select(EndpointFlow::render, narrow(headphones_id)), 0);
    expect_chosen(headphones_id, line_in_id);
  }
}

TEST_F(Selection, ReportsOutOfMemoryAndKeepsTheChoice) {
  ASSERT_EQ(select(EndpointFlow::render, narrow(headphones_id)), 0);
  const std::vector<std::string> log = memory::system().log;
  std::size_t thrown = 0;
  for (std::size_t place = 0; place < log.size(); ++place) {
    if (log[place] == "Release") continue;
    SCOPED_TRACE(log[place] + " at " + std::to_string(place));
    renew();
    ++thrown;
    memory::system().before_machine_call = [place](const std::string&) {
      if (memory::system().log.size() == place + 1) throw std::bad_alloc();
    };
    EXPECT_EQ(select(EndpointFlow::render, narrow(headphones_id)), out_of_memory);
    expect_chosen(speakers_id, line_in_id);
    EXPECT_TRUE(memory::system().state.audio_objects.empty());
  }
  EXPECT_EQ(thrown, 6u);
}

TEST_F(Selection, KeepsAChosenEndpointThatIsRemoved) {
  ASSERT_EQ(select(EndpointFlow::render, narrow(speakers_id)), 0);
  remove_endpoint(speakers);
  EXPECT_EQ(select(EndpointFlow::render, narrow(speakers_id)), not_found);
  expect_chosen(speakers_id, u"");
  EXPECT_EQ(effective_render_endpoint_id(controller_), narrow(speakers_id));
  EXPECT_EQ(select(EndpointFlow::render, narrow(headphones_id)), 0);
  expect_chosen(headphones_id, u"");
}

TEST_F(Selection, VerifiesEndpointsOfBothFlows) {
  EXPECT_EQ(verify_active_endpoint(EndpointFlow::render, speakers_id), 0);
  EXPECT_EQ(verify_active_endpoint(EndpointFlow::render, headphones_id), 0);
  EXPECT_EQ(verify_active_endpoint(EndpointFlow::capture, microphone_id), 0);
  EXPECT_EQ(verify_active_endpoint(EndpointFlow::capture, line_in_id), 0);
  EXPECT_EQ(verify_active_endpoint(EndpointFlow::capture, speakers_id), not_found);
  EXPECT_EQ(verify_active_endpoint(EndpointFlow::render, microphone_id), not_found);
  EXPECT_EQ(verify_active_endpoint(EndpointFlow::render, u""), not_found);
  set_active(speakers, false);
  EXPECT_EQ(verify_active_endpoint(EndpointFlow::render, speakers_id), not_found);
}

TEST_F(Selection, ComparesIllFormedIds) {
  const std::u16string key = u"\xD800";
  put_endpoint({EndpointFlow::render, key, u"Odd"});
  EXPECT_EQ(verify_active_endpoint(EndpointFlow::render, id_of(EndpointFlow::render, key)), 0);
  for (const std::u16string_view other : {u"\xFFFD", u"\xDC00", u"\xD801", u"\xD800\xD800"}) {
    EXPECT_EQ(verify_active_endpoint(EndpointFlow::render, id_of(EndpointFlow::render, other)), not_found);
  }
}

std::int32_t look_up_default(EndpointFlow flow, std::u16string& id) {
  DeviceEnumerator enumerator;
  EXPECT_EQ(create_device_enumerator(enumerator), 0);
  return default_endpoint_id(enumerator, flow, id);
}

TEST_F(Selection, ReadsTheDefaultOfEachFlow) {
  std::u16string id = u"before";
  EXPECT_EQ(look_up_default(EndpointFlow::render, id), 0);
  EXPECT_EQ(id, headphones_id);
  EXPECT_EQ(look_up_default(EndpointFlow::capture, id), 0);
  EXPECT_EQ(id, microphone_id);
}

TEST_F(Selection, LeavesItsOutputWhenTheDefaultCannotBeRead) {
  for (const std::string operation : {"GetDefaultAudioEndpoint", "GetId"}) {
    for (const std::int32_t status : {not_found, access_denied, -1}) {
      std::u16string id = u"before";
      memory::system().faults[operation] = {status};
      EXPECT_EQ(look_up_default(EndpointFlow::render, id), status) << operation;
      EXPECT_EQ(id, u"before") << operation;
    }
    std::u16string id = u"before";
    memory::system().faults[operation] = {1};
    EXPECT_GE(look_up_default(EndpointFlow::render, id), 0) << operation;
    EXPECT_EQ(id, headphones_id) << operation;
  }
  std::u16string id = u"before";
  set_active(microphone, false);
  set_active(line_in, false);
  EXPECT_EQ(look_up_default(EndpointFlow::capture, id), not_found);
  EXPECT_EQ(id, u"before");
}

TEST_F(Selection, UsesTheDefaultUntilAnEndpointIsChosen) {
  EXPECT_EQ(effective_render_endpoint_id(controller_), narrow(headphones_id));
  controller_.selected_capture_id = line_in_id;
  EXPECT_EQ(effective_render_endpoint_id(controller_), narrow(headphones_id));
  memory::system().log.clear();
  controller_.selected_render_id = speakers_id;
  EXPECT_EQ(effective_render_endpoint_id(controller_), narrow(speakers_id));
  EXPECT_TRUE(memory::system().log.empty());
}

TEST_F(Selection, UsesNothingWithoutADefault) {
  ASSERT_EQ(effective_render_endpoint_id(nothing_chosen), narrow(headphones_id));
  const std::vector<std::string> log = memory::system().log;
  ASSERT_FALSE(log.empty());
  for (std::size_t place = 0; place < log.size(); ++place) {
    SCOPED_TRACE(log[place]);
    for (const std::int32_t status : {access_denied, not_found, -1, 1}) {
      renew_usual_machine();
      memory::system().fault_at = {place + 1, status};
      const bool fails = status < 0 && has_audio_status(log[place]);
      EXPECT_EQ(effective_render_endpoint_id(nothing_chosen), fails ? "" : narrow(headphones_id));
      EXPECT_TRUE(memory::system().state.audio_objects.empty());
    }
  }
  memory::reset();
  EXPECT_EQ(effective_render_endpoint_id(nothing_chosen), "");
}

TEST_F(Selection, ReturnsAnIllFormedIdAsEmptyText) {
  controller_.selected_render_id = speakers_id + u"\xDC00";
  EXPECT_EQ(effective_render_endpoint_id(controller_), "");
  put_endpoint({EndpointFlow::render, u"\xD800", u"Odd"});
  put_default(EndpointFlow::render, id_of(EndpointFlow::render, u"\xD800"));
  EXPECT_EQ(effective_render_endpoint_id(nothing_chosen), "");
}

}  // namespace
}  // namespace velmora
