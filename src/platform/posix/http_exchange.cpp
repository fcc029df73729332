// HTTP exchanges over libcurl with WinHTTP's semantics. The library is loaded at the first exchange.
//
// The multi interface is driven here, so that the caller pulls the reply. libcurl's callbacks (bytes moved,
// name resolved, connected) only record progress, and end a reply with too many header lines.
#include "platform/http_exchange.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "base/text.h"
#include "platform/clock.h"
#include "platform/errors.h"
#include "platform/posix/curl_library.h"

namespace velmora {
namespace {

constexpr int most_redirections = 10;  // default of WINHTTP_OPTION_MAX_HTTP_AUTOMATIC_REDIRECTS
constexpr std::size_t most_held_bytes = 65536;
// Limit for one transfer, including the heads of interim replies, the proxy's head and trailers. libcurl
// keeps all of them in memory but limits only some.
constexpr std::size_t most_header_bytes = 262'144;
constexpr int poll_ms = 50;  // the largest delay in noticing a timeout
constexpr std::int64_t ns_per_ms = 1'000'000;

// The phase of a transfer, which selects its timeout.
enum class Phase { resolving, connecting, sending, receiving };

struct Exchange {
  CURLM* multi = nullptr;
  CURL* easy = nullptr;
  curl_slist* headers = nullptr;
  HttpTimeouts timeouts{0, 0, 0, 0};
  std::string user_agent;
  std::string host;
  std::uint16_t port = 0;
  std::string method;
  std::string target;
  std::string header;
  std::string body;
  std::string url;
  bool secure = false;
  int redirections = 0;

  Phase phase = Phase::resolving;
  std::int64_t moved_ns = 0;  // start of the phase, or the last progress in it
  std::size_t unsent = 0;     // bytes of the request body
  std::size_t header_bytes = 0;
  bool has_head = false;  // the head of the reply is complete
  bool has_ended = false;
  std::uint32_t error = 0;
  std::string held;  // part of the reply body that the caller has not read yet
  bool is_paused = false;
};

Exchange& exchange_of(const HttpExchange& exchange) {
  return *reinterpret_cast<Exchange*>(exchange.native());
}

std::uint32_t error_of(CURLcode code) {
  switch (code) {
    case CURLE_OK: return 0;
    case CURLE_UNSUPPORTED_PROTOCOL: return error_winhttp_unrecognized_scheme;
    case CURLE_URL_MALFORMAT: return error_winhttp_invalid_url;
    case CURLE_COULDNT_RESOLVE_PROXY:
    case CURLE_COULDNT_RESOLVE_HOST: return error_winhttp_name_not_resolved;
    case CURLE_COULDNT_CONNECT: return error_winhttp_cannot_connect;
    case CURLE_OPERATION_TIMEDOUT: return error_winhttp_timeout;
    case CURLE_SSL_CONNECT_ERROR: return error_winhttp_secure_channel_error;
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_ISSUER_ERROR: return error_winhttp_secure_failure;
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
    case CURLE_PARTIAL_FILE:
    case CURLE_GOT_NOTHING: return error_winhttp_connection_error;
    case CURLE_WEIRD_SERVER_REPLY:
    case CURLE_HTTP2:
    case CURLE_BAD_CONTENT_ENCODING: return error_winhttp_invalid_server_response;
    case CURLE_OUT_OF_MEMORY: return error_outofmemory;
    default: return error_winhttp_internal_error;
  }
}

void enter_phase(Exchange& exchange, Phase phase) {
  exchange.phase = phase;
  exchange.moved_ns = steady_now_ns();
}

std::int32_t limit_ms(const Exchange& exchange) {
  switch (exchange.phase) {
    case Phase::resolving: return exchange.timeouts.resolve_ms;
    case Phase::connecting: return exchange.timeouts.connect_ms;
    case Phase::sending: return exchange.timeouts.send_ms;
    case Phase::receiving: break;
  }
  return exchange.timeouts.receive_ms;
}

bool is_too_slow(const Exchange& exchange) {
  const std::int64_t limit_ns = limit_ms(exchange) * ns_per_ms;
  return limit_ns > 0 && steady_now_ns() - exchange.moved_ns >= limit_ns;
}

// Callbacks of libcurl. `user` is the exchange.

// libcurl wants a socket, so the name is resolved. Each address has its own connect timeout.
int note_socket(void* user, curl_socket_t, curlsocktype) {
  auto& exchange = *static_cast<Exchange*>(user);
  if (exchange.phase <= Phase::connecting) enter_phase(exchange, Phase::connecting);
  return CURL_SOCKOPT_OK;
}

// Connected, including TLS.
int note_connected(void* user, char*, char*, int, int) {
  enter_phase(*static_cast<Exchange*>(user), Phase::sending);
  return CURL_PREREQFUNC_OK;
}

int note_moved(CURL*, curl_infotype what, char*, std::size_t count, void* user) {
  auto& exchange = *static_cast<Exchange*>(user);
  if (count == 0) return 0;  // the socket accepted no bytes
  if (exchange.phase != Phase::sending && exchange.phase != Phase::receiving) return 0;
  if (what == CURLINFO_DATA_OUT) exchange.unsent -= std::min(count, exchange.unsent);
  // Once the whole request is sent, wait for the reply.
  if (what == CURLINFO_HEADER_OUT || what == CURLINFO_DATA_OUT) {
    enter_phase(exchange, exchange.unsent == 0 ? Phase::receiving : Phase::sending);
  }
  if (what == CURLINFO_HEADER_IN || what == CURLINFO_DATA_IN) enter_phase(exchange, Phase::receiving);
  return 0;
}

// An empty line ends a head. After an interim reply (1xx) another head follows.
std::size_t note_header(char* bytes, std::size_t, std::size_t count, void* user) {
  auto& exchange = *static_cast<Exchange*>(user);
  exchange.header_bytes += count;
  if (exchange.header_bytes > most_header_bytes) return 0;  // ends the transfer
  const std::string_view line(bytes, count);
  if (line != "\r\n" && line != "\n") return count;
  long status = 0;
  curl().easy_getinfo(exchange.easy, CURLINFO_RESPONSE_CODE, &status);
  exchange.has_head = status >= 200;
  return count;
}

std::size_t note_body(char* bytes, std::size_t, std::size_t count, void* user) {
  auto& exchange = *static_cast<Exchange*>(user);
  if (!exchange.held.empty() && exchange.held.size() + count > most_held_bytes) {
    exchange.is_paused = true;
    return CURL_WRITEFUNC_PAUSE;
  }
  exchange.held.append(bytes, count);
  return count;
}

// Maps the result of a transfer. Some codes mean something else once a peer has been contacted.
std::uint32_t error_at_end(const Exchange& exchange, CURLcode code) {
  if (exchange.header_bytes > most_header_bytes) return error_winhttp_header_size_overflow;
  const bool has_peer = exchange.phase != Phase::resolving;
  // The reply is not HTTP; the URL was fine.
  if (has_peer && code == CURLE_UNSUPPORTED_PROTOCOL) return error_winhttp_invalid_server_response;
  // A header line is longer than libcurl allows; this is not about memory.
  if (has_peer && code == CURLE_OUT_OF_MEMORY) return error_winhttp_header_size_overflow;
  return error_of(code);
}

// Runs the transfer until it has ended or `is_enough` holds.
template <typename Condition>
void drive(Exchange& exchange, Condition is_enough) {
  if (exchange.phase == Phase::receiving) exchange.moved_ns = steady_now_ns();
  while (!exchange.has_ended && !is_enough(exchange)) {
    int running = 0;
    if (curl().multi_perform(exchange.multi, &running) != CURLM_OK) {
      exchange.error = error_winhttp_internal_error;
      exchange.has_ended = true;
      return;
    }
    int left = 0;
    while (const CURLMsg* message = curl().multi_info_read(exchange.multi, &left)) {
      if (message->msg != CURLMSG_DONE) continue;
      exchange.error = error_at_end(exchange, message->data.result);
      exchange.has_ended = true;
    }
    if (exchange.has_ended || is_enough(exchange)) return;
    if (is_too_slow(exchange)) {
      exchange.error = error_winhttp_timeout;
      exchange.has_ended = true;
      return;
    }
    curl().multi_poll(exchange.multi, nullptr, 0, poll_ms, nullptr);
  }
}

std::string origin_of(const Exchange& exchange) {
  return (exchange.secure ? "https://" : "http://") + exchange.host + ':' + std::to_string(exchange.port);
}

// Whether libcurl can send the target unchanged as part of the URL. Proxies and relative redirections need it
// there. Other targets are passed separately.
bool goes_into_url(std::string_view target) {
  return target.starts_with('/') && std::all_of(target.begin(), target.end(), [](char byte) {
           return byte > ' ' && byte < 0x7F && byte != '#';
         });
}

void end_transfer(Exchange& exchange) {
  if (exchange.easy != nullptr) {
    if (exchange.multi != nullptr) curl().multi_remove_handle(exchange.multi, exchange.easy);
    curl().easy_cleanup(exchange.easy);
  }
  if (exchange.headers != nullptr) curl().slist_free_all(exchange.headers);
  exchange.easy = nullptr;
  exchange.headers = nullptr;
}

// WinHTTP sends neither Accept nor Expect.
curl_slist* make_headers(const Exchange& exchange) {
  curl_slist* headers = curl().slist_append(nullptr, "Accept:");
  headers = curl().slist_append(headers, "Expect:");
  if (!exchange.header.empty()) {
    headers = curl().slist_append(headers, exchange.header.c_str());
  } else {
    headers = curl().slist_append(headers, "Content-Type:");
  }
  return headers;
}

void set_request(Exchange& exchange) {
  const auto set = [&](CURLoption option, auto value) {
    static_cast<void>(curl().easy_setopt(exchange.easy, option, value));
  };
  set(CURLOPT_URL, exchange.url.c_str());
  // Our own target is sent byte for byte. A redirection uses the target in its URL.
  if (!exchange.target.empty()) set(CURLOPT_REQUEST_TARGET, exchange.target.c_str());
  set(CURLOPT_USERAGENT, exchange.user_agent.c_str());
  set(CURLOPT_HTTPHEADER, exchange.headers);
  if (exchange.method == "GET") {
    set(CURLOPT_HTTPGET, 1L);
  } else {
    set(CURLOPT_POST, 1L);
    set(CURLOPT_POSTFIELDS, exchange.body.data());
    set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(exchange.body.size()));
    if (exchange.method != "POST") set(CURLOPT_CUSTOMREQUEST, exchange.method.c_str());
  }
}

void set_transfer(Exchange& exchange) {
  const auto set = [&](CURLoption option, auto value) {
    static_cast<void>(curl().easy_setopt(exchange.easy, option, value));
  };
  set(CURLOPT_NOSIGNAL, 1L);
  // Closing does not wait for a name lookup that is still running.
  set(CURLOPT_QUICK_EXIT, 1L);
  set(CURLOPT_PATH_AS_IS, 1L);
  set(CURLOPT_PROTOCOLS_STR, "http,https");
  set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
  set(CURLOPT_FOLLOWLOCATION, 0L);
  set(CURLOPT_CONNECTTIMEOUT_MS,
      static_cast<long>(exchange.timeouts.resolve_ms) + exchange.timeouts.connect_ms);
  // The tools of this system use SSL_CERT_FILE; libcurl ignores it by default.
  const char* authorities = std::getenv("SSL_CERT_FILE");
  if (authorities != nullptr && *authorities != '\0') set(CURLOPT_CAINFO, authorities);
  set(CURLOPT_SOCKOPTFUNCTION, note_socket);
  set(CURLOPT_SOCKOPTDATA, &exchange);
  set(CURLOPT_PREREQFUNCTION, note_connected);
  set(CURLOPT_PREREQDATA, &exchange);
  set(CURLOPT_VERBOSE, 1L);
  set(CURLOPT_DEBUGFUNCTION, note_moved);
  set(CURLOPT_DEBUGDATA, &exchange);
  set(CURLOPT_HEADERFUNCTION, note_header);
  set(CURLOPT_HEADERDATA, &exchange);
  set(CURLOPT_WRITEFUNCTION, note_body);
  set(CURLOPT_WRITEDATA, &exchange);
}

std::uint32_t begin_transfer(Exchange& exchange) {
  exchange.easy = curl().easy_init();
  if (exchange.easy == nullptr) return error_outofmemory;
  exchange.headers = make_headers(exchange);
  set_transfer(exchange);
  set_request(exchange);
  exchange.has_head = exchange.has_ended = exchange.is_paused = false;
  exchange.held.clear();
  exchange.error = 0;
  exchange.header_bytes = 0;
  exchange.unsent = exchange.method == "GET" ? 0 : exchange.body.size();
  enter_phase(exchange, Phase::resolving);
  return curl().multi_add_handle(exchange.multi, exchange.easy) == CURLM_OK ? 0
                                                                            : error_winhttp_internal_error;
}

// The target of a redirection. `url` is empty if the reply is none.
struct Redirection {
  std::string url;
  std::uint32_t error = 0;
};

Redirection redirection_of(const Exchange& exchange) {
  long status = 0;
  curl().easy_getinfo(exchange.easy, CURLINFO_RESPONSE_CODE, &status);
  const bool is_redirection =
      status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
  if (!is_redirection) return {};
  curl_header* location = nullptr;
  if (curl().easy_header(exchange.easy, "Location", 0, CURLH_HEADER, -1, &location) != CURLHE_OK) {
    return {{}, error_winhttp_header_not_found};
  }
  // CURLINFO_REDIRECT_URL is available only at the end of the reply.
  constexpr unsigned leniently = CURLU_URLENCODE | CURLU_ALLOW_SPACE | CURLU_NON_SUPPORT_SCHEME;
  const std::unique_ptr<CURLU, decltype(curl().url_cleanup)> url(curl().url(), curl().url_cleanup);
  char* text = nullptr;
  if (!url || curl().url_set(url.get(), CURLUPART_URL, exchange.url.c_str(), leniently) != CURLUE_OK ||
      curl().url_set(url.get(), CURLUPART_URL, location->value, leniently) != CURLUE_OK ||
      curl().url_get(url.get(), CURLUPART_URL, &text, 0) != CURLUE_OK) {
    return {};
  }
  Redirection redirection{text, 0};
  curl().free(text);
  return redirection;
}

// Refuses redirections from https to http.
bool may_follow(const Exchange& exchange, std::string_view url) {
  return !exchange.secure || url.starts_with("https://");
}

std::uint32_t follow(Exchange& exchange, std::string url) {
  if (++exchange.redirections > most_redirections) return error_winhttp_redirect_failed;
  long status = 0;
  curl().easy_getinfo(exchange.easy, CURLINFO_RESPONSE_CODE, &status);
  end_transfer(exchange);
  // Only 307 and 308 repeat the same request. Browsers and WinHTTP do the same.
  if (status != 307 && status != 308 && exchange.method == "POST") {
    exchange.method = "GET";
    exchange.body.clear();
    exchange.header.clear();
  }
  exchange.secure = url.starts_with("https://");
  exchange.url = std::move(url);
  exchange.target.clear();
  return begin_transfer(exchange);
}

}  // namespace

void HttpExchangeKind::release(Native native) noexcept {
  const std::unique_ptr<Exchange> exchange(reinterpret_cast<Exchange*>(native));
  end_transfer(*exchange);
  if (exchange->multi != nullptr) curl().multi_cleanup(exchange->multi);
}

std::uint32_t open_http_session(std::u16string_view user_agent, HttpExchange& out) {
  if (!curl().is_ready) return error_mod_not_found;
  auto exchange = std::make_unique<Exchange>();
  exchange->user_agent = utf8_from_wide_replacing(user_agent);
  exchange->multi = curl().multi_init();
  if (exchange->multi == nullptr) return error_outofmemory;
  out = HttpExchange(reinterpret_cast<std::uintptr_t>(exchange.release()));
  return 0;
}

std::uint32_t set_http_timeouts(const HttpExchange& exchange, const HttpTimeouts& timeouts) {
  exchange_of(exchange).timeouts = timeouts;
  return 0;
}

std::uint32_t connect_http(const HttpExchange& exchange, std::u16string_view host, std::uint16_t port) {
  exchange_of(exchange).host = utf8_from_wide_replacing(host);
  exchange_of(exchange).port = port;
  return 0;
}

std::uint32_t open_http_request(const HttpExchange& exchange, std::u16string_view method,
                                std::u16string_view path, bool secure) {
  Exchange& request = exchange_of(exchange);
  request.method = utf8_from_wide_replacing(method);
  request.target = utf8_from_wide_replacing(path);
  // A URL without a path requests the root, even with a query.
  if (!request.target.starts_with('/')) request.target.insert(0, 1, '/');
  request.secure = secure;
  request.url = origin_of(request) + '/';
  if (goes_into_url(request.target)) {
    request.url.replace(request.url.size() - 1, 1, request.target);
    request.target.clear();
  }
  return 0;
}

std::uint32_t send_http_request(const HttpExchange& exchange, std::u16string_view header,
                                std::string_view body) {
  Exchange& request = exchange_of(exchange);
  request.header = utf8_from_wide_replacing(header);
  request.body = body;
  if (const std::uint32_t error = begin_transfer(request)) return error;
  drive(request,
        [](const Exchange& at) { return at.phase == Phase::sending || at.phase == Phase::receiving; });
  return request.has_head ? 0 : request.error;
}

std::uint32_t receive_http_response(const HttpExchange& exchange) {
  Exchange& request = exchange_of(exchange);
  for (;;) {
    drive(request, [](const Exchange& at) { return at.has_head; });
    if (request.error != 0 && !request.has_head) return request.error;
    if (!request.has_head) return error_winhttp_connection_error;
    Redirection redirection = redirection_of(request);
    if (redirection.error != 0) return redirection.error;
    if (redirection.url.empty()) return 0;
    if (!may_follow(request, redirection.url)) return error_winhttp_redirect_failed;
    if (const std::uint32_t error = follow(request, std::move(redirection.url))) return error;
  }
}

std::uint32_t query_http_status(const HttpExchange& exchange, std::uint32_t& out) {
  const Exchange& request = exchange_of(exchange);
  long status = 0;
  if (!request.has_head || curl().easy_getinfo(request.easy, CURLINFO_RESPONSE_CODE, &status) != CURLE_OK) {
    return error_winhttp_header_not_found;
  }
  out = static_cast<std::uint32_t>(status);
  return 0;
}

HttpRead read_http_response(const HttpExchange& exchange, char* buffer, std::size_t capacity) {
  Exchange& request = exchange_of(exchange);
  if (request.held.empty() && request.is_paused) {
    request.is_paused = false;
    static_cast<void>(curl().easy_pause(request.easy, CURLPAUSE_CONT));
  }
  drive(request, [](const Exchange& at) { return !at.held.empty(); });
  if (request.held.empty()) return {0, request.error};
  const std::size_t count = std::min(capacity, request.held.size());
  std::copy_n(request.held.begin(), count, buffer);
  request.held.erase(0, count);
  return {count, 0};
}

}  // namespace velmora
