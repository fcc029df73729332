// One file because it tests one source, whose start can fail in many ways.
#include "service/service.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <optional>
#include <thread>

#include "capture/capture_directory.h"
#include "capture/preset_directory.h"
#include "engine/algorithm_version.h"
#include "unit/account/support/account_service.h"
#include "unit/support/expected_response.h"
#include "unit/support/fresh_machine.h"

namespace velmora {
namespace {

using Arguments = std::vector<std::string_view>;
using Log = std::vector<std::string>;

constexpr std::string_view generated_token = "f0f1f2f3f4f5f6f7f8f9fafbfcfdfeff0001020304050607";
constexpr std::string_view given_token = "a token with blanks & \"quotes\" <>!";
constexpr std::string_view default_root = "D:/proj/velmora/web";
const std::string page_names[] = {"index.html", "advanced.html", "velmora-eq.js", "help.html"};

class Service : public FreshMachine {
 protected:
  void SetUp() override {
    FreshMachine::SetUp();
    put_pages(std::string(default_root));
  }

  static void put_pages(const std::string& web_root) {
    for (const std::string& name : page_names) {
      memory::system().files[web_root + "/" + name].bytes = "page " + name + " __VELMORA_UI_STAMP__";
    }
  }

  // Run the program until it stops by itself or no client connects any more.
  static ExitCode run(const Arguments& arguments = {}) {
    stop_requested = false;
    memory::system().standard_output.clear();
    memory::system().standard_error.clear();
    const ExitCode code = run_program(arguments);
    EXPECT_TRUE(memory::system().handles.empty());
    EXPECT_EQ(memory::system().com_started, 0);
    EXPECT_EQ(memory::system().sockets_started, 0);
    return code;
  }
  static const std::string& out() { return memory::system().standard_output; }
  static const std::string& error_out() { return memory::system().standard_error; }
};

const std::string default_banner =
    "Velmora 1.2.0  (algorithm not found)\n  Open: http://127.0.0.1:17831/?token=" +
    std::string(generated_token) + "\n  Press Ctrl+C to stop.\n";

TEST(ExitCodes, AreThoseThatScriptsRelyOn) {
  const std::pair<ExitCode, int> rows[] = {{ExitCode::done, 0},
                                           {ExitCode::self_test_failed, 1},
                                           {ExitCode::bad_command_line, 2},
                                           {ExitCode::page_unreadable, 3},
                                           {ExitCode::no_token, 4},
                                           {ExitCode::no_bridge, 5},
                                           {ExitCode::no_com, 6},
                                           {ExitCode::no_sockets, 7},
                                           {ExitCode::no_listener_socket, 8},
                                           {ExitCode::not_bound, 9}};
  for (const auto& [code, number] : rows) EXPECT_EQ(static_cast<int>(code), number);
}

TEST_F(Service, PrintsOnlyItsBanner) {
  EXPECT_EQ(run(), ExitCode::done);
  EXPECT_EQ(out(), default_banner);
  EXPECT_EQ(error_out(), "");
  EXPECT_TRUE(memory::system().browser_addresses.empty());
}

TEST_F(Service, PrintsItsBannerBeforeItWaits) {
  std::size_t written_bytes = 0;
  memory::system().on_idle = [&] {
    written_bytes = out().size();
    stop_requested = true;
  };
  EXPECT_EQ(run(), ExitCode::done);
  EXPECT_EQ(written_bytes, default_banner.size());
}

TEST_F(Service, AddsThreeLinesToTheBannerWhenVerbose) {
  put_pages("we\\b \"root\"");
  EXPECT_EQ(run({"--verbose", "--port", "80", "--token", given_token, "--web-root", "we\\b \"root\"",
                 "--control-map", "Local\\mine"}),
            ExitCode::done);
  const std::string token(given_token);
  EXPECT_EQ(out(),
            "Velmora 1.2.0  (algorithm not found)\n  Open: http://127.0.0.1:80/?token=" + token +
                "\n  Advanced: http://127.0.0.1:80/advanced.html?token=" + token +
                "\n  Web root: \"we\\\\b \\\"root\\\"\"\n  Control map: Local\\mine (shared_memory_v8)\n"
                "  Press Ctrl+C to stop.\n");
  EXPECT_EQ(calls_of("BCryptGenRandom"), 0);
}

TEST_F(Service, ShowsTheAlgorithmVersionInItsBanner) {
  const std::string path = "/opt/velmora/fse.dll";
  memory::system().files[path] = {};
  memory::system().libraries[path] = {};
  EXPECT_EQ(run(), ExitCode::done);
  EXPECT_EQ(algorithm_version, "unknown");
  EXPECT_TRUE(out().starts_with("Velmora 1.2.0  (algorithm unknown)\n"));
}

TEST_F(Service, OpensTheBrowserOnRequest) {
  EXPECT_EQ(run({"--open-browser"}), ExitCode::done);
  EXPECT_EQ(memory::system().browser_addresses,
            std::vector<std::string>{"http://127.0.0.1:17831/?token=" + std::string(generated_token)});
  EXPECT_EQ(out(), default_banner);
}

TEST_F(Service, ReportsAFailedBrowserAndContinues) {
  const std::pair<std::intptr_t, bool> rows[] = {{0, true}, {32, true}, {33, false}, {42, false}};
  for (const auto& [result, reported] : rows) {
    memory::system().browser_result = result;
    std::size_t written_bytes = 0;
    memory::system().on_idle = [&] {
      written_bytes = out().size();
      stop_requested = true;
    };
    EXPECT_EQ(run({"--open-browser"}), ExitCode::done);
    const std::string line =
        "  (could not open a browser automatically -- copy the address above into one)\n";
    EXPECT_EQ(out(), default_banner + (reported ? line : "")) << result;
    EXPECT_EQ(written_bytes, out().size());
    EXPECT_EQ(error_out(), "");
  }
}

TEST_F(Service, ServesWhatItWasStartedWith) {
  memory::system().local_time = std::tm{};
  memory::system().local_time->tm_year = 126;
  memory::system().local_time->tm_mday = 2;
  const auto get = [](const std::string& path) {
    return memory::connect_client({"GET " + path + " HTTP/1.1\r\nHost: 127.0.0.1:17831\r\n\r\n"});
  };
  const auto index = get("/");
  const auto help = get("/help.html");
  const std::string body = R"({"bypass":false,"enhance_strength":0.5})";
  const auto footstep = memory::connect_client(
      {"PUT /api/v1/render/effects/footstep HTTP/1.1\r\nHost: 127.0.0.1:17831\r\nX-Velmora-Token: " +
       std::string(generated_token) + "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
       body});
  std::uint64_t footstep_word = 0;
  memory::system().on_idle = [&] {
    footstep_word = memory::system().regions.at(u"Global\\VelmoraControlV1").lock()->words[2];
    memory::system().console_handler(2);
  };
  EXPECT_EQ(run(), ExitCode::done);
  EXPECT_EQ(index->from_service,
            expected_response("200 OK", "text/html; charset=utf-8", "page index.html 2026-01-02 00:00:00"));
  EXPECT_EQ(help->from_service,
            expected_response("200 OK", "text/html; charset=utf-8", "page help.html __VELMORA_UI_STAMP__"));
  EXPECT_EQ(footstep->from_service, expected_ok());
  EXPECT_EQ(footstep_word, 0x000000003F000000u);
}

TEST_F(Service, StampsPagesWithNothingIfTheTimeIsUnknown) {
  const auto client =
      memory::connect_client({"GET /advanced.html HTTP/1.1\r\nHost: 127.0.0.1:17831\r\n\r\n"});
  EXPECT_EQ(run(), ExitCode::done);
  EXPECT_EQ(client->from_service,
            expected_response("200 OK", "text/html; charset=utf-8", "page advanced.html "));
}

TEST_F(Service, ServesPagesFromMemory) {
  bool asked = false;
  std::shared_ptr<memory::Connection> client;
  memory::system().on_idle = [&] {
    stop_requested = asked;
    if (asked) return;
    asked = true;
    memory::system().files.clear();
    client = memory::connect_client({"GET /help.html HTTP/1.1\r\nHost: 127.0.0.1:17831\r\n\r\n"});
  };
  EXPECT_EQ(run(), ExitCode::done);
  ASSERT_TRUE(client);
  EXPECT_NE(client->from_service.find("page help.html"), std::string::npos);
  EXPECT_EQ(calls_of("CreateFileW"), 4);
}

TEST_F(Service, KeepsTheValuesOfAnExistingRecord) {
  std::shared_ptr<memory::Region> held;
  memory::system().on_idle = [&] {
    held = memory::system().regions.at(u"Global\\VelmoraControlV1").lock();
    stop_requested = true;
  };
  EXPECT_EQ(run(), ExitCode::done);
  ASSERT_TRUE(held);
  held->words[2] = 0x000000023F000000u;
  const std::vector<std::uint64_t> before = held->words;
  EXPECT_EQ(run(), ExitCode::done);
  EXPECT_EQ(held->words, before);
}

TEST_F(Service, StopsAtEachStopEventOfTheConsole) {
  for (const std::uint32_t event : {0u, 1u, 2u, 6u}) {
    int waits = 0;
    memory::system().on_idle = [&] {
      ++waits;
      EXPECT_FALSE(memory::system().console_handler(5));
      if (waits == 2) {
        EXPECT_TRUE(memory::system().console_handler(event));
      }
    };
    EXPECT_EQ(run(), ExitCode::done);
    EXPECT_EQ(waits, 2);
  }
}

TEST_F(Service, AppliesTheDirectoryOptions) {
  EXPECT_EQ(run({"--capture-directory", "c/d", "--preset-directory", "p/q"}), ExitCode::done);
  EXPECT_EQ(capture_directory_override, "c/d");
  EXPECT_EQ(preset_directory_override, "p/q");
  EXPECT_EQ(run(), ExitCode::done);
  EXPECT_EQ(capture_directory_override, "");
  EXPECT_EQ(preset_directory_override, "");
}

TEST_F(Service, RefusesABadCommandLine) {
  const struct {
    Arguments arguments;
    std::string message;
  } rows[] = {
      {{"--port", "0"}, "Invalid port\n"},
      {{"--token", "short"}, "A supplied development token must contain at least 32 characters\n"},
      {{"--port"},
       "Usage: velmora_control_demo [--port N] [--web-root PATH] [--token DEV_TOKEN] [--control-map "
       "Local\\NAME|Global\\NAME] [--capture-directory PATH] [--preset-directory PATH] [--account-service "
       "URL] "
       "[--open-browser] [--verbose] [--self-test]\n"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(run(row.arguments), ExitCode::bad_command_line);
    EXPECT_EQ(error_out(), row.message);
    EXPECT_EQ(out(), "");
    EXPECT_EQ(calls_of("stderr"), static_cast<std::ptrdiff_t>(memory::system().log.size()));
  }
}

TEST_F(Service, RunsTheSelfTestInsteadOfStarting) {
  EXPECT_EQ(run({"--self-test", "unknown"}), ExitCode::done);
  EXPECT_EQ(out(), "Velmora control self-test passed\n");
  EXPECT_EQ(error_out(), "");
  for (const std::string_view operation : {"CreateFileW", "CoInitializeEx", "WSAStartup", "socket"}) {
    EXPECT_EQ(calls_of(operation), 0) << operation;
  }
}

TEST_F(Service, EndsWith1IfTheSelfTestFails) {
  memory::system().random_available = false;
  EXPECT_EQ(run({"--self-test"}), ExitCode::self_test_failed);
  EXPECT_EQ(out(), "Velmora control self-test failed\n");
}

TEST_F(Service, FailsWithoutEachOfItsFourPages) {
  for (const std::string& name : page_names) {
    memory::reset();
    put_pages(std::string(default_root));
    const std::string path = std::string(default_root) + "/" + name;
    memory::system().files.erase(path);
    EXPECT_EQ(run(), ExitCode::page_unreadable);
    EXPECT_EQ(error_out(), "Unable to read \"" + path + "\"\n");
    EXPECT_EQ(out(), "");
    EXPECT_EQ(calls_of("BCryptGenRandom"), 0);
  }
}

TEST_F(Service, QuotesThePathOfAnUnreadablePage) {
  EXPECT_EQ(run({"--web-root", "C:\\we\"b"}), ExitCode::page_unreadable);
  EXPECT_EQ(error_out(), "Unable to read \"C:\\\\we\\\"b\\\\index.html\"\n");
}

TEST_F(Service, NeedsRandomBytesForAGeneratedToken) {
  memory::system().random_available = false;
  EXPECT_EQ(run(), ExitCode::no_token);
  EXPECT_EQ(error_out(), "Unable to generate a session token\n");
  EXPECT_EQ(calls_of("OpenFileMappingW"), 0);
}

TEST_F(Service, NeedsNoRandomBytesForAGivenToken) {
  memory::system().random_available = false;
  EXPECT_EQ(run({"--token", given_token}), ExitCode::done);
}

TEST_F(Service, FailsWithoutItsBridge) {
  const std::string start = "Unable to create shared control bridge: ";
  const std::string refused_name =
      "control mapping name must be Local\\ or Global\\ plus ASCII letters, digits, '.', '-' or '_'";
  const struct {
    std::string name;
    std::string operation;
    std::int64_t error;
    std::string message;
  } rows[] = {
      {"nonsense", "", 0, refused_name},
      {"", "", 0, refused_name},
      {"Local\\caf\xC3\xA9", "", 0, refused_name},
      {"Local\\x", "ConvertStringSecurityDescriptorToSecurityDescriptorW", 1336,
       "unable to create the control mapping security descriptor: 1336"},
      {"Local\\x", "CreateFileMappingW", 5, "CreateFileMappingW failed with error 5"},
      {"Local\\x", "MapViewOfFile", 8, "MapViewOfFile failed with error 8"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.message);
    memory::reset();
    put_pages(std::string(default_root));
    if (!row.operation.empty()) memory::system().faults[row.operation] = {row.error};
    EXPECT_EQ(run({"--control-map", row.name}), ExitCode::no_bridge);
    EXPECT_EQ(error_out(), start + row.message + "\n");
    EXPECT_EQ(out(), "");
    EXPECT_EQ(calls_of("CoInitializeEx"), 0);
  }
}

TEST_F(Service, RefusesARecordOfAnotherLayout) {
  const std::uint64_t first_words[] = {(std::uint64_t{7} << 32) | 0x31434D56, 0};
  for (const std::uint64_t word : first_words) {
    const auto region = memory::hold_region(u"Global\\VelmoraControlV1", 576);
    region->words[0] = word;
    region->words[1] = 576;
    EXPECT_EQ(run(), ExitCode::no_bridge);
    EXPECT_EQ(
        error_out(),
        "Unable to create shared control bridge: existing control mapping has an incompatible layout\n");
  }
}

TEST_F(Service, ReportsAFailureOfComInLowerCaseHex) {
  const std::pair<std::uint32_t, std::string> rows[] = {
      {0x80010106, "80010106"}, {0xFFFFFFFF, "ffffffff"}, {0x8007000E, "8007000e"}};
  for (const auto& [result, text] : rows) {
    memory::system().log.clear();
    memory::system().com_result = static_cast<std::int32_t>(result);
    EXPECT_EQ(run(), ExitCode::no_com);
    EXPECT_EQ(error_out(), "CoInitializeEx failed: " + text + "\n");
    EXPECT_EQ(out(), "");
    EXPECT_EQ(calls_of("WSAStartup"), 0);
  }
}

TEST_F(Service, AcceptsComThatIsAlreadyStarted) {
  memory::system().com_result = 1;
  EXPECT_EQ(run(), ExitCode::done);
  EXPECT_EQ(calls_of("CoUninitialize"), 1);
}

TEST_F(Service, ReportsThatItCannotListen) {
  const std::string unable = "Unable to bind 127.0.0.1:65535 (Winsock error ";
  const std::string already =
      "Another control service is already running on this port.\n"
      "Stop it first (run the stop script, or end velmora_control_demo), then start again.\n";
  constexpr std::int64_t no_number = memory::failure_without_number;
  const struct {
    std::string operation;
    std::int64_t error;
    ExitCode code;
    std::string message;
  } rows[] = {
      {"WSAStartup", 10091, ExitCode::no_sockets, "WSAStartup failed\n"},
      {"WSAStartup", no_number, ExitCode::no_sockets, "WSAStartup failed\n"},
      {"socket", 10024, ExitCode::no_listener_socket, "socket failed\n"},
      {"socket", no_number, ExitCode::no_listener_socket, "socket failed\n"},
      {"bind", 10048, ExitCode::not_bound, unable + "10048)\n" + already},
      {"bind", 10013, ExitCode::not_bound, unable + "10013)\n"},
      {"bind", no_number, ExitCode::not_bound, unable + "0)\n"},
      {"listen", 10048, ExitCode::not_bound, unable + "10048)\n" + already},
      {"listen", 10055, ExitCode::not_bound, unable + "10055)\n"},
      {"listen", no_number, ExitCode::not_bound, unable + "0)\n"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.operation + " " + std::to_string(row.error));
    memory::system().faults[row.operation] = {row.error};
    EXPECT_EQ(run({"--port", "65535"}), row.code);
    EXPECT_EQ(error_out(), row.message);
    EXPECT_EQ(out(), "");
  }
}

TEST_F(Service, BindsTheGivenPort) {
  for (const std::string_view port : {"1", "65535"}) {
    std::string bound;
    memory::system().on_idle = [&] {
      for (const auto& [number, handle] : memory::system().handles) {
        if (handle.listening) bound = std::to_string(handle.port);
      }
      stop_requested = true;
    };
    EXPECT_EQ(run({"--port", port}), ExitCode::done);
    EXPECT_EQ(bound, port);
  }
}

TEST_F(Service, SurvivesFailuresOfConnections) {
  memory::system().faults["select"] = {10004};
  memory::system().faults["accept"] = {10054};
  memory::system().faults["send"] = {10054};
  const std::string request = "GET / HTTP/1.1\r\nHost: 127.0.0.1:17831\r\n\r\n";
  const auto unlucky = memory::connect_client({request});
  const auto lucky = memory::connect_client({request});
  EXPECT_EQ(run(), ExitCode::done);
  EXPECT_EQ(unlucky->from_service, "");
  EXPECT_TRUE(unlucky->closed);
  EXPECT_NE(lucky->from_service.find("page index.html"), std::string::npos);
  EXPECT_EQ(out(), default_banner);
  EXPECT_EQ(error_out(), "");
}

TEST_F(Service, EndsWith10IfTheMachineCannotBeRead) {
  memory::system().machine_trouble = "/machines/laptop.reg:7: a value without a key";
  EXPECT_EQ(run(), ExitCode::machine_unreadable);
  EXPECT_EQ(static_cast<int>(ExitCode::machine_unreadable), 10);
  EXPECT_EQ(error_out(), "Unable to read the machine /machines/laptop.reg:7: a value without a key\n");
  EXPECT_EQ(out(), "");
  EXPECT_EQ(calls_of("CreateFileW"), 0);
}

TEST_F(Service, ChecksItsOptionsBeforeTheMachine) {
  memory::system().machine_trouble = "bad:1: worse";
  EXPECT_EQ(run({"--port", "0"}), ExitCode::bad_command_line);
  EXPECT_EQ(error_out().find("machine"), std::string::npos);
}

TEST_F(Service, NeedsNoMachineForTheSelfTest) {
  memory::system().machine_trouble = "bad:1: worse";
  EXPECT_EQ(run({"--self-test"}), ExitCode::done);
  EXPECT_EQ(error_out(), "");
}

const std::string session_file = "C:\\ProgramData\\Velmora\\session.json";
const Arguments with_account = {"--account-service", service_url};
const std::string poll_request = "GET /api/v1/auth/poll?state=s ";
const std::string release_request = R"(POST /api/v1/session/release {"account_hash":"h","token":"t"})";

std::string api_request(const std::string& method_and_target) {
  return method_and_target +
         " HTTP/1.1\r\nHost: 127.0.0.1:17831\r\nX-Velmora-Token: " + std::string(generated_token) +
         "\r\n\r\n";
}

// A client signs in as soon as the service accepts connections.
void sign_in_by_poll() {
  answer_next(200, R"({"status":"issued","account_hash":"h","session_token":"t"})");
  memory::connect_client({api_request("GET /api/v1/account/poll?state=s")});
}

TEST_F(Service, RemovesAStaleSessionFile) {
  memory::system().files[session_file].bytes = "{}";
  EXPECT_EQ(run(), ExitCode::done);
  EXPECT_FALSE(memory::system().files.contains(session_file));
  EXPECT_EQ(out(), default_banner);
}

TEST_F(Service, ContinuesIfItCannotRemoveTheSessionFile) {
  memory::system().files[session_file].bytes = "{}";
  memory::system().faults["DeleteFileW"] = {5};
  EXPECT_EQ(run(), ExitCode::done);
  EXPECT_TRUE(memory::system().files.contains(session_file));
  EXPECT_EQ(out(), default_banner);
  EXPECT_EQ(error_out(), "");
  memory::system().faults["bind"] = {10048};
  EXPECT_EQ(run(), ExitCode::not_bound);
  EXPECT_TRUE(memory::system().files.contains(session_file));
}

TEST_F(Service, ReleasesTheSessionAtTheEnd) {
  sign_in_by_poll();
  answer_next(200, "{}");
  EXPECT_EQ(run(with_account), ExitCode::done);
  EXPECT_EQ(take_requests(), (Requests{poll_request, release_request}));
  EXPECT_EQ(out(), default_banner);
  EXPECT_EQ(error_out(), "");
}

TEST_F(Service, ReleasesTheSessionBeforeItsResources) {
  sign_in_by_poll();
  HeldBackService held_back;
  held_back.let_go();
  memory::system().on_idle = [] {
    stop_requested = true;
    const std::lock_guard lock(memory::http_service().guard);
    memory::http_service().holds_back = true;
  };
  Log log;
  std::thread other([&] {
    // Meanwhile the service waits for the answer to its release.
    if (wait_until([] { return count_calls("WinHttpReceiveResponse") == 2; })) log = memory::system().log;
    held_back.let_go();
  });
  EXPECT_EQ(run(with_account), ExitCode::done);
  other.join();
  EXPECT_EQ(std::count(log.begin(), log.end(), "CoUninitialize"), 0);
  EXPECT_EQ(std::count(log.begin(), log.end(), "UnmapViewOfFile"), 0);
  EXPECT_EQ(calls_of("CoUninitialize"), 1);
  EXPECT_EQ(take_requests(), (Requests{poll_request, release_request}));
}

TEST_F(Service, EndsNormallyIfTheReleaseFails) {
  const std::function<void()> troubles[] = {[] {}, [] { answer_next(500, R"({"detail":"no"})"); },
                                            [] {
                                              fail_next("WinHttpOpen", {0, 8});
                                            },
                                            [] {
                                              fail_next("WinHttpSendRequest", {0, 12029});
                                            }};
  for (const auto& make_trouble : troubles) {
    sign_in_by_poll();
    make_trouble();
    EXPECT_EQ(run(with_account), ExitCode::done);
    EXPECT_EQ(out(), default_banner);
    EXPECT_EQ(error_out(), "");
    memory::reset_http_service();
  }
}

TEST_F(Service, ReleasesNothingWithoutASession) {
  EXPECT_EQ(run(with_account), ExitCode::done);
  EXPECT_TRUE(http_log().empty());
  sign_in_by_poll();
  memory::connect_client({api_request("POST /api/v1/account/logout")});
  EXPECT_EQ(run(with_account), ExitCode::done);
  EXPECT_EQ(take_requests(), (Requests{poll_request}));
}

TEST_F(Service, ReleasesNothingAfterAnotherDeviceSignedIn) {
  answer_next(200, R"({"status":"issued","account_hash":"h","session_token":"t","session_check_seconds":1})");
  answer_next(200, R"({"active":false})");
  memory::connect_client({api_request("GET /api/v1/account/poll?state=s")});
  // The clock stops at the check, so no other check is due before its answer is seen.
  std::optional<std::int64_t> checked_ns;
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  memory::system().on_idle = [&] {
    if (count_calls("WinHttpOpen") == 2 && !checked_ns) checked_ns = memory::system().now_ns;
    if (checked_ns) memory::system().now_ns = *checked_ns;
    if (out() != default_banner || std::chrono::steady_clock::now() > limit) stop_requested = true;
  };
  EXPECT_EQ(run(with_account), ExitCode::done);
  EXPECT_EQ(out(), default_banner +
                       "The account has signed in on another device. This machine is now signed out.\n");
  EXPECT_EQ(take_requests(),
            (Requests{poll_request, R"(POST /api/v1/session/check {"account_hash":"h","token":"t"})"}));
}

TEST_F(Service, SendsNothingWithoutAnAccountService) {
  const auto client = memory::connect_client({api_request("GET /api/v1/account/poll?state=s")});
  EXPECT_EQ(run(), ExitCode::done);
  EXPECT_EQ(client->from_service, expected_error("501 Not Implemented", "未配置账号服务"));
  EXPECT_TRUE(http_log().empty());
}

TEST_F(Service, StartsSignedOut) {
  sign_in_by_poll();
  EXPECT_EQ(run(with_account), ExitCode::done);
  EXPECT_EQ(take_requests(), (Requests{poll_request, release_request}));
  EXPECT_EQ(run(with_account), ExitCode::done);
  EXPECT_TRUE(http_log().empty());
}

}  // namespace
}  // namespace velmora
