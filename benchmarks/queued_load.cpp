#include "queued_load.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <vector>

namespace velmora::bench {
namespace {

constexpr int patience_ms = 20'000;
constexpr std::int64_t start_patience_ns = 30'000'000'000;

int open_client() {
  const int client = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP);
  if (client < 0) give_up("no socket for a client");
  const linger reset_at_close{1, 0};
  setsockopt(client, SOL_SOCKET, SO_LINGER, &reset_at_close, sizeof reset_at_close);
  return client;
}

bool try_connect(int client, std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return connect(client, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

void send_request(int client, const std::string& request) {
  const ssize_t sent = send(client, request.data(), request.size(), MSG_NOSIGNAL);
  if (sent != static_cast<ssize_t>(request.size())) give_up("a request was not taken whole");
}

std::vector<int> queue_clients(std::uint16_t port, const std::string& request, std::size_t count) {
  std::vector<int> clients;
  for (std::size_t index = 0; index < count; ++index) {
    clients.push_back(open_client());
    if (!try_connect(clients.back(), port)) give_up("a connection was not queued");
    send_request(clients.back(), request);
  }
  return clients;
}

void wait_for_closing(int client) {
  pollfd closing{client, POLLRDHUP, 0};
  while (poll(&closing, 1, patience_ms) <= 0) {
    give_up_if_interrupted();
    if (errno != EINTR) give_up("the last connection was not closed");
  }
}

void check_answer(int client, std::size_t answer_bytes) {
  int waiting = 0;
  if (ioctl(client, FIONREAD, &waiting) != 0 || waiting != static_cast<int>(answer_bytes)) {
    give_up("an answer of " + std::to_string(waiting) + " bytes instead of " + std::to_string(answer_bytes));
  }
}

}  // namespace

Exchange exchange_when_up(const ServerProcess& server, std::uint16_t port, const std::string& request) {
  const int client = open_client();
  const std::int64_t latest = now_ns() + start_patience_ns;
  while (!try_connect(client, port)) {
    server.expect_running();
    if (now_ns() > latest) give_up("a server does not listen");
  }
  send_request(client, request);
  Exchange exchange{{}, 0};
  char piece[65536];
  ssize_t received = recv(client, piece, sizeof piece, 0);
  exchange.first_byte_ns = now_ns();
  while (received > 0) {
    exchange.answer.append(piece, static_cast<std::size_t>(received));
    received = recv(client, piece, sizeof piece, 0);
  }
  close(client);
  return exchange;
}

std::size_t queue_limit() {
  constexpr rlim_t other_files = 64;
  rlimit files{};
  getrlimit(RLIMIT_NOFILE, &files);
  files.rlim_cur = files.rlim_max;
  setrlimit(RLIMIT_NOFILE, &files);
  std::size_t backlog = 0;
  std::ifstream("/proc/sys/net/core/somaxconn") >> backlog;
  if (backlog < 2 || files.rlim_cur < 2 * other_files) give_up("too few connections allowed");
  return std::min<std::size_t>(backlog - 1, files.rlim_cur - other_files);
}

Taken serve_queue(const ServerProcess& server, std::uint16_t port, const std::string& request,
                  std::size_t answer_bytes, std::size_t count) {
  give_up_if_interrupted();
  server.stop();
  const std::vector<int> clients = queue_clients(port, request, count);
  const std::int64_t processor_before_ns = server.processor_ns();
  const std::int64_t before_ns = now_ns();
  server.go_on();
  wait_for_closing(clients.back());
  const std::int64_t after_ns = now_ns();
  const std::int64_t processor_after_ns = server.processor_ns();
  for (const int client : clients) {
    check_answer(client, answer_bytes);
    close(client);
  }
  return {after_ns - before_ns, processor_after_ns - processor_before_ns};
}

}  // namespace velmora::bench
