// The HTTP server of the machine in memory.
#include "memory/http_service.h"
#include "platform/http_surroundings.h"

namespace velmora::surroundings {

void HttpServerKind::release(Native) noexcept {
  {
    const std::lock_guard lock(memory::http_service().guard);
    EXPECT_TRUE(memory::http_service().open.empty());
    EXPECT_TRUE(memory::http_service().replies.empty());
  }
  memory::reset_http_service();
}

HttpServer serve_http(const std::vector<HttpAnswer>& answers) {
  memory::reset_http_service();
  for (const HttpAnswer& answer : answers) {
    memory::HttpReply reply;
    reply.status = answer.status;
    reply.body = answer.body;
    memory::http_service().replies.push_back(std::move(reply));
  }
  return HttpServer(1);
}

std::uint16_t http_port(const HttpServer&) { return 31337; }

}  // namespace velmora::surroundings
