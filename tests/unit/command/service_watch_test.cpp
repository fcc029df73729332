#include "command/service_watch.h"

#include <limits>

#include "command/run_folder.h"
#include "platform/errors.h"
#include "unit/command/support/command_machine.h"

namespace velmora {
namespace {

constexpr std::string_view ended_at_once =
    "The service was ended at once: if you were signed in, you stay signed in at the account service "
    "until that session expires.";

class ServiceWatch : public CommandMachine {
 protected:
  void SetUp() override {
    CommandMachine::SetUp();
    hold_run("");
  }

  // Runs a service that behaves as scripted.
  WatchedEnd watch(std::function<void(memory::Child&)> script, bool opens_page = false) {
    on_start_service = [script = std::move(script)](memory::Child& child) {
      script(child);
      return 0u;
    };
    ChildProcess service;
    EXPECT_EQ(start_child(service_program, {}, service), 0u);
    const std::string run_id(some_run_id);
    return watch_service(service, run_file, run_id, opens_page);
  }
  static void print(memory::Child& child, std::string_view bytes) { memory::print(child, bytes); }
};

TEST_F(ServiceWatch, RelaysBothStreamsAndTheExitCode) {
  const WatchedEnd end = watch([](memory::Child& child) {
    print(child, "one\ntw");
    memory::print(child, "wrong\n", ChildEvent::Kind::error_output);
    print(child, "o\nrest");
    memory::print(child, "no end", ChildEvent::Kind::error_output);
    memory::end(child, 9);
  });
  EXPECT_EQ(end.exit_code, 9);
  EXPECT_EQ(end.sentence, "");
  EXPECT_EQ(output(), "one\ntwo\nrest");
  EXPECT_EQ(errors(), "wrong\nno end");
  EXPECT_EQ(file(run_path)->bytes, "");
}

TEST_F(ServiceWatch, SaysThatTheServiceHasEndedUnexpectedly) {
  const struct {
    bool is_running;
    std::uint32_t exit_code;
    std::string number;
  } rows[] = {{true, 1, "1"},
              {true, 3, "3"},
              {true, 137, "137"},
              {false, 11, "11"},
              {false, 0xC0000005, "3221225477"}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.number);
    const WatchedEnd end = watch([&](memory::Child& child) {
      if (row.is_running) print(child, service_banner);
      memory::end(child, row.exit_code);
    });
    EXPECT_EQ(end.exit_code, 25);
    EXPECT_EQ(end.sentence, "The service has ended unexpectedly (code " + row.number +
                                "): start it again with velmora start.");
  }
}

// A code of its own says nothing against a clean end: somebody else may have asked the service.
TEST_F(ServiceWatch, TakesTheCodeOfACleanEndThatItDidNotAskFor) {
  const WatchedEnd end = watch([](memory::Child& child) {
    print(child, service_banner);
    memory::end(child, 0);
  });
  EXPECT_EQ(end.exit_code, 0);
  EXPECT_EQ(end.sentence, "");
}

TEST_F(ServiceWatch, CountsAServiceThatIsKilledWhileItEndsAsEndedAtOnce) {
  memory::system().on_idle = [] { console_events = 1; };
  const WatchedEnd end = watch([](memory::Child& child) {
    print(child, service_banner);
    child.on_interrupt = [](memory::Child& killed) { memory::end(killed, 1); };
  });
  EXPECT_EQ(end.exit_code, 25);
  EXPECT_EQ(end.sentence, ended_at_once);
}

// The console may have asked, and the system have ended the service, before anybody has looked.
TEST_F(ServiceWatch, KnowsAConsoleEventThatItHasNotSeenYet) {
  const WatchedEnd end = watch([](memory::Child& child) {
    child.on_wait = [](memory::Child& ending) {
      console_events = 1;
      memory::end(ending, 130);
    };
  });
  EXPECT_EQ(end.exit_code, 130);
  EXPECT_EQ(end.sentence, "");
}

// Before the service handles Ctrl+C, the system ends it.
TEST_F(ServiceWatch, ExpectsTheEndThatWasAskedFor) {
  console_events = 1;
  const WatchedEnd end = watch([](memory::Child& child) {
    child.on_interrupt = [](memory::Child& interrupted) { memory::end(interrupted, 130); };
  });
  EXPECT_EQ(end.exit_code, 130);
  EXPECT_EQ(end.sentence, "");
}

TEST_F(ServiceWatch, RelaysALineWithoutAnEndWhenNothingFollows) {
  const WatchedEnd end = watch([](memory::Child& child) {
    print(child, "waiting");
    child.on_wait = [](memory::Child& idle) {
      if (output() != "waiting") return;
      print(idle, " more\n");
      memory::end(idle, 0);
    };
  });
  EXPECT_EQ(end.exit_code, 0);
  EXPECT_EQ(output(), "waiting more\n");
}

TEST_F(ServiceWatch, WritesTheRunFileBeforeTheAddressIsSeen) {
  std::string written;
  std::string seen = "x";
  memory::system().on_idle = [&] {
    if (written.empty()) {
      written = file(run_path)->bytes;
      seen = output();
    }
    memory::end(*memory::system().children.front(), 0);
  };
  const WatchedEnd end = watch([](memory::Child& child) { print(child, service_banner); });
  EXPECT_EQ(end.exit_code, 0);
  EXPECT_EQ(seen, service_banner);
  RunRecord expected = some_run();
  expected.process_id = memory::system().children.front()->id;
  EXPECT_EQ(written, format_run_record(expected));
}

TEST_F(ServiceWatch, FindsAnAddressThatComesInPieces) {
  const WatchedEnd end = watch([](memory::Child& child) {
    print(child, service_banner.substr(0, 60));
    child.events.push_back({});  // the first piece is relayed
    print(child, service_banner.substr(60));
    memory::end(child, 0);
  });
  EXPECT_EQ(end.exit_code, 0);
  EXPECT_EQ(output(), service_banner);
  EXPECT_EQ(parse_run_record(file(run_path)->bytes)->token, "secret");
}

TEST_F(ServiceWatch, LeavesNoServiceIfTheRunFileCannotBeWritten) {
  memory::system().faults["WriteFile"] = {error_disk_full};
  const WatchedEnd end = watch([](memory::Child& child) { print(child, service_banner); });
  EXPECT_EQ(end.exit_code, 24);
  EXPECT_EQ(end.sentence, std::string(run_path) +
                              " cannot be written, because the disk is full: make room, then try again.");
  EXPECT_TRUE(memory::system().children.front()->killed);
  EXPECT_EQ(output(), "");
  EXPECT_EQ(file(run_path)->bytes, "");
}

TEST_F(ServiceWatch, InterruptsForTheConsole) {
  memory::system().on_idle = [] { console_events = 1; };
  const WatchedEnd end = watch([](memory::Child& child) {
    print(child, service_banner);
    child.on_interrupt = [](memory::Child& interrupted) {
      memory::print(interrupted, "bye\n");
      memory::end(interrupted, 0);
    };
  });
  EXPECT_EQ(end.exit_code, 0);
  EXPECT_EQ(end.sentence, "");
  EXPECT_EQ(output(), std::string(service_banner) + "bye\n");
  EXPECT_EQ(memory::system().children.front()->interrupts, 1);
  EXPECT_FALSE(memory::system().children.front()->killed);
}

TEST_F(ServiceWatch, InterruptsForAStopRequest) {
  memory::system().on_idle = [] {
    if (!file(stop_path)) {
      EXPECT_FALSE(write_stop_request({std::string(some_run_id), false}).failed());
    }
  };
  const WatchedEnd end = watch([](memory::Child& child) { print(child, service_banner); });
  EXPECT_EQ(end.exit_code, 0);
  EXPECT_EQ(memory::system().children.front()->interrupts, 1);
  EXPECT_FALSE(file(stop_path));
}

TEST_F(ServiceWatch, IgnoresAStopRequestForAnotherRun) {
  int idle = 0;
  memory::system().on_idle = [&] {
    if (++idle == 1) {
      EXPECT_FALSE(write_stop_request({"0123456789abcdef", true}).failed());
    }
    if (idle == 20) memory::end(*memory::system().children.front(), 3);
  };
  const WatchedEnd end = watch([](memory::Child&) {});
  EXPECT_EQ(end.exit_code, 3);
  EXPECT_EQ(memory::system().children.size(), 1u);
  EXPECT_FALSE(file(stop_path));
}

TEST_F(ServiceWatch, SeesAStopRequestBelowAFloodOfOutput) {
  int lines = 0;
  const WatchedEnd end = watch([&](memory::Child& child) {
    child.on_wait = [&](memory::Child& flooding) {
      memory::system().now_ns += 1'000'000;
      if (++lines == 10) {
        EXPECT_FALSE(write_stop_request({std::string(some_run_id), false}).failed());
      }
      if (lines < 2000) print(flooding, "x\n");
    };
  });
  EXPECT_EQ(end.exit_code, 0);
  EXPECT_LT(lines, 400);
}

constexpr std::string_view held_line =
    "A browser or another program holds the service, or the account service does not answer.\n"
    "The service ends as soon as they are done. Press Ctrl+C again to end it at once.\n"
    "If you are signed in, you then stay signed in at the account service until that session expires.\n";

TEST_F(ServiceWatch, EndsAHeldServiceAtTheNextConsoleEvent) {
  console_events = 1;
  memory::system().on_idle = [] {
    if (errors() == held_line) console_events = 2;
  };
  const WatchedEnd end = watch([](memory::Child& child) { child.on_interrupt = [](memory::Child&) {}; });
  EXPECT_EQ(end.exit_code, 25);
  EXPECT_EQ(end.sentence, ended_at_once);
  EXPECT_EQ(errors(), held_line);
  EXPECT_TRUE(memory::system().children.front()->killed);
}

TEST_F(ServiceWatch, EndsAtOnceForAStopRequestWithForce) {
  EXPECT_FALSE(write_stop_request({std::string(some_run_id), true}).failed());
  const WatchedEnd end = watch([](memory::Child& child) { child.on_interrupt = [](memory::Child&) {}; });
  EXPECT_EQ(end.exit_code, 25);
  EXPECT_TRUE(memory::system().children.front()->killed);
  EXPECT_EQ(memory::system().children.front()->interrupts, 0);
}

TEST_F(ServiceWatch, CountsAServiceThatCannotBeInterruptedAsHeld) {
  helper_failures = std::numeric_limits<int>::max();
  console_events = 1;
  int idle = 0;
  memory::system().on_idle = [&] {
    if (++idle == 100) memory::end(*memory::system().children.front(), 0);
  };
  const WatchedEnd end = watch([](memory::Child&) {});
  EXPECT_EQ(end.exit_code, 0);
  EXPECT_EQ(errors(), held_line);
}

TEST_F(ServiceWatch, InterruptsAgainIfTheHelperFails) {
  helper_failures = 2;
  console_events = 1;
  const WatchedEnd end = watch([](memory::Child& child) {
    child.on_interrupt = [](memory::Child& interrupted) { memory::end(interrupted, 0); };
  });
  EXPECT_EQ(end.exit_code, 0);
  EXPECT_EQ(errors(), "");
  EXPECT_EQ(memory::system().children.front()->interrupts, 1);
}

TEST_F(ServiceWatch, OpensThePageOnce) {
  answer_at(17831, {{"/api/v1/status", expected_document("{}")}});
  const auto script = [](memory::Child& child) {
    print(child, service_banner);
    print(child, service_banner);
    memory::end(child, 0);
  };
  EXPECT_EQ(watch(script, true).exit_code, 0);
  EXPECT_EQ(memory::system().browser_addresses,
            std::vector<std::string>{"http://127.0.0.1:17831/?token=secret"});
  EXPECT_EQ(errors(), "");
}

TEST_F(ServiceWatch, GoesOnWithoutABrowser) {
  answer_at(17831, {{"/api/v1/status", expected_document("{}")}});
  memory::system().browser_result = 0;
  const auto script = [](memory::Child& child) {
    print(child, service_banner);
    memory::end(child, 0);
  };
  EXPECT_EQ(watch(script, true).exit_code, 0);
  EXPECT_EQ(
      errors(),
      "The browser cannot be opened: copy the address from the window in which Velmora runs into one.\n");
}

TEST_F(ServiceWatch, WaitsForTheHelperUpToALimit) {
  memory::system().on_start_child = [](memory::Child& child) {
    EXPECT_EQ(child.arguments, (std::vector<std::string>{"interrupt", "77"}));
    return 0u;
  };
  const std::int64_t begin_ns = memory::system().now_ns;
  EXPECT_FALSE(interrupt_by_helper(77));
  EXPECT_EQ(memory::system().now_ns - begin_ns, 5'000'000'000);
  memory::system().on_start_child = [](memory::Child&) { return error_access_denied; };
  EXPECT_FALSE(interrupt_by_helper(77));
}

}  // namespace
}  // namespace velmora
