// One file because it mirrors one source, whose start has many ways to fail.
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
    algorithm_version.clear();
  }
  void TearDown() override {
    capture_directory_override.clear();
    preset_directory_override.clear();
    algorithm_version.clear();
    FreshMachine::TearDown();
  }

  static void put_pages(const std::string& web_root) {
    for (const std::string& name : page_names) {
      memory::system().files[web_root + "/" + name].bytes = "page " + name + " __VELMORA_UI_STAMP__";
    }
  }

  static ExitCode run(const Arguments& arguments = {}) { return run_program(arguments); }
  static const std::string& out() { return memory::system().standard_output; }
  static const std::string& error_out() { return memory::system().standard_error; }

  // Nothing that the program set up is left.
  static void expect_all_released() {
    EXPECT_TRUE(memory::system().handles.empty());
    EXPECT_EQ(memory::system().com_started, 0);
    EXPECT_EQ(memory::system().sockets_started, 0);
  }
};

const Log until_bridge = {"CreateFileW",
                          "CreateFileW",
                          "CreateFileW",
                          "CreateFileW",
                          "BCryptGenRandom",
                          "OpenFileMappingW",
                          "ConvertStringSecurityDescriptorToSecurityDescriptorW",
                          "CreateFileMappingW",
                          "MapViewOfFile"};

Log joined(Log left, const Log& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

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

TEST_F(Service, StartsAndStopsInItsOrder) {
  EXPECT_EQ(run(), ExitCode::done);
  EXPECT_EQ(memory::system().log,
            joined(until_bridge,
                   {"CoInitializeEx", "WSAStartup", "socket", "bind", "listen", "SetConsoleCtrlHandler",
                    "stdout", "DeleteFileW", "stdout", "select", "closesocket", "WSACleanup",
                    "CoUninitialize", "UnmapViewOfFile", "CloseHandle"}));
  expect_all_released();
}

TEST_F(Service, PrintsItsBannerAndNothingElse) {
  EXPECT_EQ(run(), ExitCode::done);
  EXPECT_EQ(out(), default_banner);
  EXPECT_EQ(error_out(), "");
}

TEST_F(Service, HasWrittenItsBannerBeforeItWaits) {
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

TEST_F(Service, ShowsAGivenTokenAsItIs) {
  const std::string token(32, '\xE9');
  EXPECT_EQ(run({"--token", token}), ExitCode::done);
  EXPECT_NE(out().find("/?token=" + token + "\n"), std::string::npos);
}

TEST_F(Service, ProbesTheAlgorithmBetweenTheHandlerAndTheBanner) {
  const std::string path = "/opt/velmora/fse.dll";
  memory::system().files[path] = {};
  memory::system().libraries[path] = {};
  EXPECT_EQ(run(), ExitCode::done);
  EXPECT_EQ(algorithm_version, "unknown");
  EXPECT_EQ(out().find("Velmora 1.2.0  (algorithm unknown)\n"), 0u);
  EXPECT_EQ(memory::system().log,
            joined(until_bridge,
                   {"CoInitializeEx", "WSAStartup", "socket", "bind", "listen", "SetConsoleCtrlHandler",
                    "LoadLibraryW", "FreeLibrary", "stdout", "DeleteFileW", "stdout", "select", "closesocket",
                    "WSACleanup", "CoUninitialize", "UnmapViewOfFile", "CloseHandle"}));
}

TEST_F(Service, OpensTheBrowserAfterItsBanner) {
  EXPECT_EQ(run({"--open-browser"}), ExitCode::done);
  EXPECT_EQ(memory::system().browser_addresses,
            std::vector<std::string>{"http://127.0.0.1:17831/?token=" + std::string(generated_token)});
  EXPECT_EQ(out(), default_banner);
  EXPECT_EQ(memory::system().log,
            joined(until_bridge,
                   {"CoInitializeEx", "WSAStartup", "socket", "bind", "listen", "SetConsoleCtrlHandler",
                    "stdout", "DeleteFileW", "stdout", "ShellExecuteW", "select", "closesocket", "WSACleanup",
                    "CoUninitialize", "UnmapViewOfFile", "CloseHandle"}));
}

TEST_F(Service, OpensNoBrowserUnasked) {
  EXPECT_EQ(run(), ExitCode::done);
  EXPECT_EQ(calls_of("ShellExecuteW"), 0);
}

TEST_F(Service, SaysSoWhereNoBrowserOpensAndGoesOn) {
  const struct {
    std::intptr_t result;
    bool told;
  } rows[] = {{0, true}, {2, true}, {31, true}, {32, true}, {33, false}, {42, false}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.result);
    memory::system().browser_result = row.result;
    stop_requested = false;
    memory::system().standard_output.clear();
    std::size_t written_bytes = 0;
    memory::system().on_idle = [&] {
      written_bytes = out().size();
      stop_requested = true;
    };
    EXPECT_EQ(run({"--open-browser"}), ExitCode::done);
    const std::string line =
        "  (could not open a browser automatically -- copy the address above into one)\n";
    EXPECT_EQ(out(), default_banner + (row.told ? line : ""));
    EXPECT_EQ(written_bytes, out().size());
  }
  EXPECT_EQ(error_out(), "");
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
  expect_all_released();
}

TEST_F(Service, StampsPagesWithNothingWhereTheTimeIsNotKnown) {
  const auto client =
      memory::connect_client({"GET /advanced.html HTTP/1.1\r\nHost: 127.0.0.1:17831\r\n\r\n"});
  EXPECT_EQ(run(), ExitCode::done);
  EXPECT_EQ(client->from_service,
            expected_response("200 OK", "text/html; charset=utf-8", "page advanced.html "));
}

TEST_F(Service, ServesPagesFromMemoryWhateverTheWebRootHoldsByNow) {
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

TEST_F(Service, WritesNothingIntoARecordThatItFindsAndLeaves) {
  std::shared_ptr<memory::Region> held;
  memory::system().on_idle = [&] {
    held = memory::system().regions.at(u"Global\\VelmoraControlV1").lock();
    stop_requested = true;
  };
  EXPECT_EQ(run(), ExitCode::done);
  ASSERT_TRUE(held);
  held->words[2] = 0x000000023F000000u;
  const std::vector<std::uint64_t> before = held->words;
  stop_requested = false;
  EXPECT_EQ(run(), ExitCode::done);
  EXPECT_EQ(held->words, before);
}

TEST_F(Service, StopsAtEachEventOfTheConsoleThatIsItsOwn) {
  for (const std::uint32_t event : {0u, 1u, 2u, 6u}) {
    stop_requested = false;
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

TEST_F(Service, HandsTheDirectoriesOfItsOptionsOn) {
  EXPECT_EQ(run({"--capture-directory", "c/d", "--preset-directory", "p/q"}), ExitCode::done);
  EXPECT_EQ(capture_directory_override, "c/d");
  EXPECT_EQ(preset_directory_override, "p/q");
  stop_requested = false;
  EXPECT_EQ(run(), ExitCode::done);
  EXPECT_EQ(capture_directory_override, "");
  EXPECT_EQ(preset_directory_override, "");
}

TEST_F(Service, RefusesABadCommandLineAndTouchesNothing) {
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
    memory::system().standard_error.clear();
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
  expect_all_released();
}

TEST_F(Service, EndsWith1WhereTheSelfTestFails) {
  memory::system().random_available = false;
  EXPECT_EQ(run({"--self-test"}), ExitCode::self_test_failed);
  EXPECT_EQ(out(), "Velmora control self-test failed\n");
}

TEST_F(Service, NeedsEachOfItsFourPages) {
  for (std::size_t bad = 0; bad < 4; ++bad) {
    for (int fault = 0; fault < 4; ++fault) {
      memory::reset();
      memory::system().standard_error.clear();
      put_pages(std::string(default_root));
      const std::string path = std::string(default_root) + "/" + page_names[bad];
      SCOPED_TRACE(path + " with fault " + std::to_string(fault));
      if (fault == 0) memory::system().files.erase(path);
      if (fault == 1) memory::system().files[path].bytes.clear();
      if (fault == 2) memory::system().files[path].kind = FileKind::directory;
      if (fault == 3) memory::system().files[path].read_error = 23;
      EXPECT_EQ(run(), ExitCode::page_unreadable);
      EXPECT_EQ(error_out(), "Unable to read \"" + path + "\"\n");
      EXPECT_EQ(out(), "");
      EXPECT_EQ(memory::system().log, joined(Log(bad + 1, "CreateFileW"), {"stderr"}));
      expect_all_released();
    }
  }
}

TEST_F(Service, QuotesThePathOfAPageThatItCannotRead) {
  EXPECT_EQ(run({"--web-root", "C:\\we\"b"}), ExitCode::page_unreadable);
  EXPECT_EQ(error_out(), "Unable to read \"C:\\\\we\\\"b\\\\index.html\"\n");
}

TEST_F(Service, NeedsRandomBytesForATokenOfItsOwn) {
  memory::system().random_available = false;
  EXPECT_EQ(run(), ExitCode::no_token);
  EXPECT_EQ(error_out(), "Unable to generate a session token\n");
  EXPECT_EQ(memory::system().log,
            (Log{"CreateFileW", "CreateFileW", "CreateFileW", "CreateFileW", "BCryptGenRandom", "stderr"}));
  expect_all_released();
}

TEST_F(Service, NeedsNoRandomBytesForATokenThatIsGiven) {
  memory::system().random_available = false;
  EXPECT_EQ(run({"--token", given_token}), ExitCode::done);
}

TEST_F(Service, NeedsItsBridge) {
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
    memory::system().standard_error.clear();
    put_pages(std::string(default_root));
    if (!row.operation.empty()) memory::system().faults[row.operation] = {row.error};
    EXPECT_EQ(run({"--control-map", row.name}), ExitCode::no_bridge);
    EXPECT_EQ(error_out(), start + row.message + "\n");
    EXPECT_EQ(out(), "");
    EXPECT_EQ(calls_of("CoInitializeEx"), 0);
    expect_all_released();
  }
}

TEST_F(Service, RefusesABridgeOfAnotherLayoutOrWithoutAnEnd) {
  const std::uint64_t first_words[] = {(std::uint64_t{7} << 32) | 0x31434D56, 0};
  for (const std::uint64_t word : first_words) {
    memory::system().standard_error.clear();
    const auto region = memory::hold_region(u"Global\\VelmoraControlV1", 576);
    region->words[0] = word;
    region->words[1] = 576;
    EXPECT_EQ(run(), ExitCode::no_bridge);
    EXPECT_EQ(
        error_out(),
        "Unable to create shared control bridge: existing control mapping has an incompatible layout\n");
    expect_all_released();
  }
}

TEST_F(Service, TellsTheResultOfComInLowerCaseHex) {
  const struct {
    std::uint32_t result;
    std::string text;
  } rows[] = {{0x80010106, "80010106"}, {0xFFFFFFFF, "ffffffff"}, {0x8007000E, "8007000e"}};
  for (const auto& row : rows) {
    memory::system().standard_error.clear();
    memory::system().log.clear();
    memory::system().com_result = static_cast<std::int32_t>(row.result);
    EXPECT_EQ(run(), ExitCode::no_com);
    EXPECT_EQ(error_out(), "CoInitializeEx failed: " + row.text + "\n");
    EXPECT_EQ(out(), "");
    EXPECT_EQ(memory::system().log,
              joined(until_bridge, {"CoInitializeEx", "stderr", "UnmapViewOfFile", "CloseHandle"}));
    expect_all_released();
  }
}

TEST_F(Service, TakesComThatWasStartedAlreadyForASuccess) {
  memory::system().com_result = 1;
  EXPECT_EQ(run(), ExitCode::done);
  EXPECT_EQ(calls_of("CoUninitialize"), 1);
  expect_all_released();
}

// Where the network cannot be had: what was set up is taken down in reverse order, and said once.
TEST_F(Service, TakesEverythingDownWhereItCannotListen) {
  const std::string unable = "Unable to bind 127.0.0.1:17831 (Winsock error ";
  const std::string already =
      "Another control service is already running on this port.\n"
      "Stop it first (run the stop script, or end velmora_control_demo), then start again.\n";
  const struct {
    std::string operation;
    std::int64_t error;
    ExitCode code;
    std::string message;
    Log log;  // behind CoInitializeEx, in front of the bridge's release
  } rows[] = {
      {"WSAStartup",
       10091,
       ExitCode::no_sockets,
       "WSAStartup failed\n",
       {"WSAStartup", "CoUninitialize", "stderr"}},
      {"socket",
       10024,
       ExitCode::no_listener_socket,
       "socket failed\n",
       {"WSAStartup", "socket", "WSACleanup", "CoUninitialize", "stderr"}},
      {"bind",
       10048,
       ExitCode::not_bound,
       unable + "10048)\n" + already,
       {"WSAStartup", "socket", "bind", "stderr", "closesocket", "WSACleanup", "CoUninitialize"}},
      {"bind",
       10013,
       ExitCode::not_bound,
       unable + "10013)\n",
       {"WSAStartup", "socket", "bind", "stderr", "closesocket", "WSACleanup", "CoUninitialize"}},
      {"listen",
       10048,
       ExitCode::not_bound,
       unable + "10048)\n" + already,
       {"WSAStartup", "socket", "bind", "listen", "stderr", "closesocket", "WSACleanup", "CoUninitialize"}},
      {"listen",
       10055,
       ExitCode::not_bound,
       unable + "10055)\n",
       {"WSAStartup", "socket", "bind", "listen", "stderr", "closesocket", "WSACleanup", "CoUninitialize"}},
      {"WSAStartup",
       memory::failure_without_number,
       ExitCode::no_sockets,
       "WSAStartup failed\n",
       {"WSAStartup", "CoUninitialize", "stderr"}},
      {"socket",
       memory::failure_without_number,
       ExitCode::no_listener_socket,
       "socket failed\n",
       {"WSAStartup", "socket", "WSACleanup", "CoUninitialize", "stderr"}},
      {"bind",
       memory::failure_without_number,
       ExitCode::not_bound,
       unable + "0)\n",
       {"WSAStartup", "socket", "bind", "stderr", "closesocket", "WSACleanup", "CoUninitialize"}},
      {"listen",
       memory::failure_without_number,
       ExitCode::not_bound,
       unable + "0)\n",
       {"WSAStartup", "socket", "bind", "listen", "stderr", "closesocket", "WSACleanup", "CoUninitialize"}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.operation + " " + std::to_string(row.error));
    memory::system().log.clear();
    memory::system().standard_error.clear();
    memory::system().faults[row.operation] = {row.error};
    EXPECT_EQ(run(), row.code);
    EXPECT_EQ(error_out(), row.message);
    EXPECT_EQ(out(), "");
    EXPECT_EQ(memory::system().log, joined(joined(joined(until_bridge, {"CoInitializeEx"}), row.log),
                                           {"UnmapViewOfFile", "CloseHandle"}));
    expect_all_released();
  }
}

TEST_F(Service, TellsAPortThatAnotherHasByItsNumber) {
  memory::system().ports_of_others.insert(65535);
  EXPECT_EQ(run({"--port", "65535"}), ExitCode::not_bound);
  EXPECT_EQ(error_out().find("Unable to bind 127.0.0.1:65535 (Winsock error 10048)\n"), 0u);
}

TEST_F(Service, BindsThePortThatItIsGiven) {
  for (const std::string_view port : {"1", "65535"}) {
    stop_requested = false;
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

TEST_F(Service, OutlivesFailuresOfItsLoop) {
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

TEST_F(Service, EndsWithTenWhenItsMachineCannotBeRead) {
  memory::system().machine_trouble = "/machines/laptop.reg:7: a value without a key";
  // Behind the options and in front of the pages: the page that is missing is not even looked for.
  memory::system().files.clear();
  EXPECT_EQ(run(), ExitCode::machine_unreadable);
  EXPECT_EQ(static_cast<int>(ExitCode::machine_unreadable), 10);
  EXPECT_EQ(error_out(), "Unable to read the machine /machines/laptop.reg:7: a value without a key\n");
  EXPECT_EQ(out(), "");
  EXPECT_EQ(memory::system().log, Log({"stderr"}));
  expect_all_released();
}

TEST_F(Service, LooksAtItsOptionsBeforeItsMachine) {
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

// Somebody signs in as soon as the service serves.
void sign_in_by_poll() {
  answer_next(200, R"({"status":"issued","account_hash":"h","session_token":"t"})");
  memory::connect_client({api_request("GET /api/v1/account/poll?state=s")});
}

TEST_F(Service, RemovesASessionFileInFrontOfItsBannersLastLine) {
  memory::system().files[session_file].bytes = "{}";
  EXPECT_EQ(run(), ExitCode::done);
  EXPECT_FALSE(memory::system().files.contains(session_file));
  const Log& log = memory::system().log;
  const Log start = {"listen", "SetConsoleCtrlHandler", "stdout", "DeleteFileW", "stdout", "select"};
  EXPECT_NE(std::search(log.begin(), log.end(), start.begin(), start.end()), log.end());
  EXPECT_EQ(calls_of("DeleteFileW"), 1);
  EXPECT_EQ(out(), default_banner);
}

TEST_F(Service, KeepsASessionFileThatItCannotRemoveOrWhereItCannotListen) {
  memory::system().files[session_file].bytes = "{}";
  memory::system().faults["DeleteFileW"] = {5};
  EXPECT_EQ(run(), ExitCode::done);
  EXPECT_TRUE(memory::system().files.contains(session_file));
  EXPECT_EQ(out(), default_banner);
  EXPECT_EQ(error_out(), "");
  stop_requested = false;
  memory::system().faults["bind"] = {10048};
  EXPECT_EQ(run(), ExitCode::not_bound);
  EXPECT_TRUE(memory::system().files.contains(session_file));
}

TEST_F(Service, GivesTheSessionBackAtTheEnd) {
  sign_in_by_poll();
  answer_next(200, "{}");
  EXPECT_EQ(run(with_account), ExitCode::done);
  EXPECT_EQ(take_requests(), (Requests{poll_request, release_request}));
  EXPECT_EQ(out(), default_banner);
  EXPECT_EQ(error_out(), "");
}

TEST_F(Service, GivesTheSessionBackWhileItStillHasEverything) {
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
    // The service waits for the answer to its release meanwhile.
    if (wait_until([] { return count_calls("WinHttpReceiveResponse") == 2; })) log = memory::system().log;
    held_back.let_go();
  });
  EXPECT_EQ(run(with_account), ExitCode::done);
  other.join();
  const Log served = {"stdout", "select", "accept", "send", "shutdown", "closesocket", "select"};
  ASSERT_GE(log.size(), served.size());
  EXPECT_EQ(Log(log.end() - static_cast<std::ptrdiff_t>(served.size()), log.end()), served);
  EXPECT_EQ(
      Log(memory::system().log.begin() + static_cast<std::ptrdiff_t>(log.size()), memory::system().log.end()),
      (Log{"closesocket", "WSACleanup", "CoUninitialize", "UnmapViewOfFile", "CloseHandle"}));
  EXPECT_EQ(take_requests(), (Requests{poll_request, release_request}));
}

TEST_F(Service, EndsAsEverWhereTheSessionCannotBeGivenBack) {
  const std::function<void()> troubles[] = {[] {}, [] { answer_next(500, R"({"detail":"no"})"); },
                                            [] {
                                              fail_next("WinHttpOpen", {0, 8});
                                            },
                                            [] {
                                              fail_next("WinHttpSendRequest", {0, 12029});
                                            }};
  for (const auto& make_trouble : troubles) {
    stop_requested = false;
    memory::system().standard_output.clear();
    sign_in_by_poll();
    make_trouble();
    EXPECT_EQ(run(with_account), ExitCode::done);
    EXPECT_EQ(out(), default_banner);
    EXPECT_EQ(error_out(), "");
    expect_all_released();
    memory::reset_http_service();
  }
}

TEST_F(Service, HasNothingToGiveBackWithoutASession) {
  EXPECT_EQ(run(with_account), ExitCode::done);
  EXPECT_TRUE(http_log().empty());
  stop_requested = false;
  sign_in_by_poll();
  memory::connect_client({api_request("POST /api/v1/account/logout")});
  EXPECT_EQ(run(with_account), ExitCode::done);
  EXPECT_EQ(take_requests(), (Requests{poll_request}));
}

TEST_F(Service, GivesNothingBackThatAnotherDeviceHas) {
  answer_next(200, R"({"status":"issued","account_hash":"h","session_token":"t","session_check_seconds":1})");
  answer_next(200, R"({"active":false})");
  memory::connect_client({api_request("GET /api/v1/account/poll?state=s")});
  // The clock stands still from the check on, so that no other one is due until its answer is seen.
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

TEST_F(Service, GoesNowhereWithoutAnAccountService) {
  const auto client = memory::connect_client({api_request("GET /api/v1/account/poll?state=s")});
  EXPECT_EQ(run(), ExitCode::done);
  EXPECT_EQ(client->from_service, expected_error("501 Not Implemented", "未配置账号服务"));
  EXPECT_TRUE(http_log().empty());
}

// What signs in and what ends is this run's alone.
TEST_F(Service, StartsSignedOutEachTime) {
  sign_in_by_poll();
  EXPECT_EQ(run(with_account), ExitCode::done);
  EXPECT_EQ(take_requests(), (Requests{poll_request, release_request}));
  stop_requested = false;
  EXPECT_EQ(run(with_account), ExitCode::done);
  EXPECT_TRUE(http_log().empty());
}

}  // namespace
}  // namespace velmora
