#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <string>
#include <thread>

#include "platform/clock.h"
#include "platform/machine.h"
#include "platform/posix/errors.h"
#include "platform/socket_exchange.h"
#include "platform/sockets.h"
#include "platform/surroundings.h"

namespace velmora {
namespace {

using surroundings::Exchange;

class PosixSockets : public surroundings::ArrangedSockets {};

int descriptor_of(const Socket& socket) { return static_cast<int>(socket.native()); }

std::atomic<int> signals_taken{0};

bool take_event(std::uint32_t) {
  ++signals_taken;
  return true;
}

// Interrupts `victim` again and again, so that some of the signals find it inside its call, until `done` or
// `at_most` signals were sent.
void interrupt(pthread_t victim, const std::atomic<bool>& done, int at_most) {
  for (int round = 0; round < at_most && !done; ++round) {
    sleep_ms(2);
    pthread_kill(victim, SIGTERM);
  }
}

// Without SA_RESTART, so that the call itself is interrupted and not continued by the kernel.
void install_interrupting_handler() {
  install_console_handler(take_event);
  struct sigaction action {};
  ASSERT_EQ(sigaction(SIGTERM, nullptr, &action), 0);
  action.sa_flags &= ~SA_RESTART;
  ASSERT_EQ(sigaction(SIGTERM, &action, nullptr), 0);
}

TEST_F(PosixSockets, AreNotInheritedByProgramsThatWeStart) {
  const Exchange exchange;
  for (const Socket* socket : {&exchange.listener, &exchange.service}) {
    EXPECT_EQ(fcntl(descriptor_of(*socket), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
  }
}

TEST_F(PosixSockets, AreBoundToTheLoopbackAddressAndThePort) {
  const Exchange exchange;
  sockaddr_in address{};
  socklen_t size = sizeof address;
  ASSERT_EQ(getsockname(descriptor_of(exchange.listener), reinterpret_cast<sockaddr*>(&address), &size), 0);
  EXPECT_EQ(ntohl(address.sin_addr.s_addr), INADDR_LOOPBACK);
  EXPECT_EQ(ntohs(address.sin_port), exchange.port);
}

TEST_F(PosixSockets, BindAPortThatWouldBeRefusedWithoutAddressReuse) {
  Exchange exchange;
  exchange.service.close();
  EXPECT_EQ(surroundings::receive_until_end(exchange.peer), "");
  exchange.peer.close();
  exchange.listener.close();

  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(exchange.port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const int plain = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  EXPECT_EQ(bind(plain, reinterpret_cast<const sockaddr*>(&address), sizeof address), -1);
  EXPECT_EQ(errno, EADDRINUSE);
  close(plain);

  Socket listener;
  ASSERT_EQ(open_tcp_socket(listener), std::nullopt);
  EXPECT_EQ(bind_loopback(listener, exchange.port), std::nullopt);
  EXPECT_EQ(listen_at_maximum(listener), std::nullopt);
}

TEST_F(PosixSockets, SurviveAPeerThatIsGoneWhenThePipeSignalWouldKill) {
  struct sigaction present {};
  ASSERT_EQ(sigaction(SIGPIPE, nullptr, &present), 0);
  ASSERT_TRUE(present.sa_handler == SIG_DFL);
  Exchange exchange;
  surroundings::reset_connection(exchange.peer);
  EXPECT_EQ(send_bytes(exchange.service, "a", 1).error, 10054);
  EXPECT_EQ(send_bytes(exchange.service, "a", 1).error, 10053);
}

TEST_F(PosixSockets, ReportAResetAs10054) {
  Exchange exchange;
  surroundings::reset_connection(exchange.peer);
  char byte = '#';
  const SocketCount got = receive_bytes(exchange.service, &byte, 1);
  EXPECT_EQ(got.count, -1);
  EXPECT_EQ(got.error, 10054);
}

// Runs `call` while signals interrupt it, and then what lets it end on a thread of its own.
template <typename Call, typename LetEnd>
void expect_to_survive_signals(Call call, LetEnd let_end) {
  install_interrupting_handler();
  signals_taken = 0;
  const pthread_t self = pthread_self();
  std::thread other([&] {
    const std::atomic<bool> never{false};
    interrupt(self, never, 10);
    let_end();
  });
  call();
  other.join();
  EXPECT_GT(signals_taken.load(), 0);
}

TEST_F(PosixSockets, ReceiveOnWhenASignalComesIn) {
  Exchange exchange;
  std::array<char, 16> buffer{};
  SocketCount got{};
  expect_to_survive_signals([&] { got = receive_bytes(exchange.service, buffer.data(), buffer.size()); },
                            [&] { surroundings::send_all(exchange.peer, "late"); });
  EXPECT_EQ(got.count, 4);
  EXPECT_EQ(got.error, 0);
}

TEST_F(PosixSockets, SendOnWhenASignalComesIn) {
  Exchange exchange;
  const std::string answer(24'000'000, 'x');
  std::string received;
  expect_to_survive_signals(
      [&] {
        EXPECT_EQ(surroundings::send_whole(exchange.service, answer), answer.size());
        exchange.service.close();
      },
      [&] { received = surroundings::receive_until_end(exchange.peer); });
  EXPECT_EQ(received.size(), answer.size());
}

TEST_F(PosixSockets, AcceptOnWhenASignalComesIn) {
  Exchange exchange;
  surroundings::Peer late;
  Socket accepted;
  expect_to_survive_signals([&] { EXPECT_EQ(accept_connection(exchange.listener, accepted), std::nullopt); },
                            [&] { late = surroundings::connect_to(exchange.port); });
  EXPECT_TRUE(accepted.is_open());
}

TEST_F(PosixSockets, WaitNoLongerThanUntilAStopSignal) {
  Exchange exchange;
  install_console_handler(take_event);
  signals_taken = 0;
  const pthread_t self = pthread_self();
  std::atomic<bool> done{false};
  std::thread other([&] { interrupt(self, done, 5000); });
  const SocketCount ready = wait_readable(exchange.listener, 3'600'000'000);
  done = true;
  other.join();
  EXPECT_EQ(ready.count, -1);
  EXPECT_EQ(ready.error, 10004);
  EXPECT_GT(signals_taken.load(), 0);
}

TEST_F(PosixSockets, AreRefusedBy10038WhenTheirDescriptorIsClosedBehindTheirBack) {
  const Exchange exchange;
  const int descriptor = descriptor_of(exchange.listener);
  const int kept = fcntl(descriptor, F_DUPFD_CLOEXEC, 0);
  ASSERT_GE(kept, 0);
  close(descriptor);
  const SocketCount ready = wait_readable(exchange.listener, 3'600'000'000);
  // The owner closes the number again, so it gets back what it owns.
  ASSERT_EQ(dup3(kept, descriptor, O_CLOEXEC), descriptor);
  close(kept);
  EXPECT_EQ(ready.count, -1);
  EXPECT_EQ(ready.error, 10038);
}

TEST(PosixErrors, BecomeWinsockNumbers) {
  const struct {
    int error;
    int code;
  } cases[] = {{EINTR, 10004},        {EBADF, 10009},      {EACCES, 10013},        {EINVAL, 10022},
               {EMFILE, 10024},       {ENFILE, 10024},     {EAGAIN, 10035},        {ENOTSOCK, 10038},
               {EOPNOTSUPP, 10045},   {EADDRINUSE, 10048}, {EADDRNOTAVAIL, 10049}, {EPIPE, 10053},
               {ECONNABORTED, 10053}, {ECONNRESET, 10054}, {ENOBUFS, 10055},       {ENOMEM, 10055},
               {ENOTCONN, 10057},     {ETIMEDOUT, 10060},  {ECONNREFUSED, 10061},  {ECHILD, 10107}};
  for (const auto& entry : cases) {
    SCOPED_TRACE(entry.error);
    EXPECT_EQ(winsock_from_errno(entry.error), entry.code);
  }
}

TEST(PosixErrors, BecomeWin32Numbers) {
  const struct {
    int error;
    std::uint32_t code;
  } cases[] = {{ENOENT, 2},   {ENOTDIR, 3},  {EMFILE, 4},   {ENFILE, 4},         {EACCES, 5},
               {EPERM, 5},    {EISDIR, 5},   {EBADF, 6},    {ENOMEM, 8},         {EINVAL, 87},
               {ENOSPC, 112}, {EBUSY, 170},  {EEXIST, 183}, {ENAMETOOLONG, 206}, {EROFS, 19},
               {EFBIG, 112},  {EDQUOT, 112}, {ELOOP, 1921}, {ECHILD, 31}};
  for (const auto& entry : cases) {
    SCOPED_TRACE(entry.error);
    EXPECT_EQ(win32_from_errno(entry.error), entry.code);
  }
}

}  // namespace
}  // namespace velmora
