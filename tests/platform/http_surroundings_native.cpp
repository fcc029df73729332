// The HTTP server of a real system: on the loopback address.
#include "platform/http_surroundings.h"
#include "platform/raw_http_server.h"

namespace velmora::surroundings {
namespace {

std::string bytes_of(const HttpAnswer& answer) {
  switch (answer.framing) {
    case Framing::length: return reply_with_length(answer.status, answer.body);
    case Framing::chunked: return reply_in_chunks(answer.status, answer.body);
    case Framing::until_close: break;
  }
  return reply_until_close(answer.status, answer.body);
}

}  // namespace

void HttpServerKind::release(Native native) noexcept {
  const std::unique_ptr<RawHttpServer> server(reinterpret_cast<RawHttpServer*>(native));
  const std::size_t expected = server->finish().size();
  EXPECT_EQ(server->connections(), expected);
}

HttpServer serve_http(const std::vector<HttpAnswer>& answers) {
  std::vector<RawReply> replies;
  for (const HttpAnswer& answer : answers) {
    RawReply reply;
    reply.pieces = {bytes_of(answer)};
    reply.waits_for_all = answer.waits_for_all;
    replies.push_back(std::move(reply));
  }
  return HttpServer(reinterpret_cast<std::uintptr_t>(new RawHttpServer(std::move(replies))));
}

std::uint16_t http_port(const HttpServer& server) {
  return reinterpret_cast<const RawHttpServer*>(server.native())->port();
}

}  // namespace velmora::surroundings
