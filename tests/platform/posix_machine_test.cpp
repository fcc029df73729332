#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <string>
#include <vector>

#include "platform/machine.h"
#include "platform/posix_child.h"
#include "platform/surroundings.h"

namespace velmora {
namespace {

class PosixMachine : public surroundings::Arranged {};

bool take_event(std::uint32_t) { return true; }

auto handler_of(int signal) {
  struct sigaction present {};
  EXPECT_EQ(sigaction(signal, nullptr, &present), 0);
  return present.sa_handler;
}

// What a descriptor leads to, as the system names it. Empty when it is closed.
std::string target_of(int descriptor) {
  std::array<char, 256> target{};
  const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
  const ssize_t length = readlink(link.c_str(), target.data(), target.size());
  return length < 0 ? std::string() : std::string(target.data(), static_cast<std::size_t>(length));
}

TEST_F(PosixMachine, LeavesAHangUpIgnoredThatTheParentHadIgnored) {
  signal(SIGHUP, SIG_IGN);
  install_console_handler(take_event);
  EXPECT_TRUE(handler_of(SIGHUP) == SIG_IGN);
  EXPECT_EQ(raise(SIGHUP), 0);
}

TEST_F(PosixMachine, TakesTheOtherSignalsThoughTheParentHadIgnoredThem) {
  for (const int number : {SIGINT, SIGQUIT, SIGTERM}) signal(number, SIG_IGN);
  install_console_handler(take_event);
  for (const int number : {SIGINT, SIGQUIT, SIGHUP, SIGTERM}) {
    SCOPED_TRACE(number);
    EXPECT_FALSE(handler_of(number) == SIG_IGN);
    EXPECT_FALSE(handler_of(number) == SIG_DFL);
  }
}

TEST_F(PosixMachine, KeepsTheErrorNumberAcrossASignal) {
  install_console_handler([](std::uint32_t) {
    errno = EIO;
    return true;
  });
  errno = ENOENT;
  raise(SIGTERM);
  EXPECT_EQ(errno, ENOENT);
}

TEST_F(PosixMachine, WritesBytesAsTheyAreAndAtOnce) {
  const std::string text = "a\nb\r\n\xC3\xB6\n";
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  const pid_t child = fork();
  if (child == 0) {
    dup2(ends[1], STDOUT_FILENO);
    dup2(ends[1], STDERR_FILENO);
    write_standard_output("1" + text);
    write_standard_error("2" + text);
    _exit(0);  // without any flush
  }
  close(ends[1]);
  std::array<char, 64> buffer{};
  std::string received;
  for (ssize_t count = 1; count > 0;) {
    count = read(ends[0], buffer.data(), buffer.size());
    if (count > 0) received.append(buffer.data(), static_cast<std::size_t>(count));
  }
  close(ends[0]);
  EXPECT_EQ(waitpid(child, nullptr, 0), child);
  EXPECT_EQ(received, "1" + text + "2" + text);
}

TEST_F(PosixMachine, GoesOnAfterAWriteThatNobodyReads) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  close(ends[0]);
  EXPECT_EQ(answer_of_child([&ends] {
              dup2(ends[1], STDOUT_FILENO);
              prepare_process();
              if (write_standard_output("lost")) return 2;
              return write(STDOUT_FILENO, "x", 1) == -1 && errno == EPIPE ? 0 : 1;
            }),
            0);
  close(ends[1]);
}

TEST_F(PosixMachine, ReportsWhatAFullDiskDidNotTake) {
  EXPECT_EQ(answer_of_child([] {
              dup2(open("/dev/full", O_WRONLY | O_CLOEXEC), STDOUT_FILENO);
              const bool is_written = write_standard_output("lost");
              dup2(open("/dev/null", O_WRONLY | O_CLOEXEC), STDOUT_FILENO);
              return !is_written && write_standard_output("taken") ? 0 : 1;
            }),
            0);
}

// Each wrong stream sets its bit; the next descriptor must be none of them.
int prepare_with_closed_streams(const std::vector<int>& closed) {
  for (const int stream : closed) close(stream);
  std::array<std::string, 3> expected;
  for (std::size_t stream = 0; stream <= 2; ++stream) {
    expected[stream] = target_of(static_cast<int>(stream));
    if (expected[stream].empty()) expected[stream] = "/dev/null";
  }
  prepare_process();
  int wrong = open("/", O_RDONLY) <= 2 ? 8 : 0;
  for (int stream = 0; stream <= 2; ++stream) {
    if (target_of(stream) != expected[static_cast<std::size_t>(stream)]) wrong |= 1 << stream;
  }
  for (const int stream : closed) {
    if (write(stream, "x", 1) != 1) wrong |= 16;
  }
  return wrong;
}

TEST_F(PosixMachine, OpensClosedStandardStreamsOnDevNull) {
  for (const std::vector<int>& closed :
       std::vector<std::vector<int>>{{}, {0}, {1}, {2}, {0, 1}, {1, 2}, {0, 1, 2}}) {
    SCOPED_TRACE(testing::PrintToString(closed));
    EXPECT_EQ(answer_of_child([&closed] { return prepare_with_closed_streams(closed); }), 0);
  }
}

TEST_F(PosixMachine, StartsTheBrowserWithNothingOfOurs) {
  prepare_process();
  // As one that the program which started us left open.
  const int inherited = open("/dev/zero", O_RDONLY);
  const surroundings::Browser browser = surroundings::install_browser();
  ASSERT_GT(open_in_browser(surroundings::browser_address()), 32);
  const auto record = surroundings::read_browser_record();
  close(inherited);
  ASSERT_EQ(record.size(), 4u);
  EXPECT_EQ(record[1], "0=/dev/null;1=/dev/null;2=/dev/null;");
  EXPECT_EQ(record[2], "default") << "the pipe signal";
  EXPECT_NE(record[3], std::to_string(getsid(0))) << "the session";
}

// 0 when a browser was started by a process without standard streams.
int open_browser_without_streams() {
  return answer_of_child([] {
    for (int stream = 0; stream <= 2; ++stream) close(stream);
    return open_in_browser(surroundings::browser_address()) > 32 ? 0 : 1;
  });
}

TEST_F(PosixMachine, StartsTheBrowserWithStandardStreamsThoughOursAreClosed) {
  const surroundings::Browser browser = surroundings::install_browser();
  EXPECT_EQ(open_browser_without_streams(), 0);
  const auto record = surroundings::read_browser_record();
  ASSERT_EQ(record.size(), 4u);
  EXPECT_EQ(record[1], "0=/dev/null;1=/dev/null;2=/dev/null;");
}

TEST_F(PosixMachine, ReportsAMissingBrowserThoughTheStandardStreamsAreClosed) {
  const surroundings::Browser none = surroundings::remove_browser();
  EXPECT_EQ(open_browser_without_streams(), 1);
}

TEST_F(PosixMachine, LeavesNoChildBehindWhetherTheBrowserStartsOrNot) {
  {
    const surroundings::Browser browser = surroundings::install_browser();
    EXPECT_GT(open_in_browser(surroundings::browser_address()), 32);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
    EXPECT_FALSE(surroundings::read_browser_record().empty());
  }
  const surroundings::Browser none = surroundings::remove_browser();
  EXPECT_EQ(open_in_browser(surroundings::browser_address()), 2);
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
}

TEST_F(PosixMachine, OpensNoDescriptorForGood) {
  const int before = dup(0);
  close(before);
  const surroundings::Browser none = surroundings::remove_browser();
  EXPECT_LE(open_in_browser(surroundings::browser_address()), 32);
  const int after = dup(0);
  close(after);
  EXPECT_EQ(before, after);
}

TEST_F(PosixMachine, ReportsItsProcessNumber) {
  EXPECT_EQ(own_process_id(), static_cast<std::uint32_t>(getpid()));
}

}  // namespace
}  // namespace velmora
