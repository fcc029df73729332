#include "platform/http_exchange.h"

#include <algorithm>
#include <memory>

#include "platform/windows/native.h"

#include <winhttp.h>

namespace velmora {
namespace {

static_assert(WINHTTP_ACCESS_TYPE_AUTOMATIC_PROXY == 4 && WINHTTP_FLAG_SECURE == 0x800000);

// WinHTTP is loaded on first use: a service without an account address starts without it.
struct WinHttp {
  HMODULE library = LoadLibraryExW(L"winhttp.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);

  template <typename Function>
  Function* find(const char* name) const {
    if (library == nullptr) return nullptr;
    return reinterpret_cast<Function*>(reinterpret_cast<void (*)()>(GetProcAddress(library, name)));
  }
  decltype(WinHttpCrackUrl)* crack_url = find<decltype(WinHttpCrackUrl)>("WinHttpCrackUrl");
  decltype(WinHttpOpen)* open = find<decltype(WinHttpOpen)>("WinHttpOpen");
  decltype(WinHttpSetTimeouts)* set_timeouts = find<decltype(WinHttpSetTimeouts)>("WinHttpSetTimeouts");
  decltype(WinHttpConnect)* connect = find<decltype(WinHttpConnect)>("WinHttpConnect");
  decltype(WinHttpOpenRequest)* open_request = find<decltype(WinHttpOpenRequest)>("WinHttpOpenRequest");
  decltype(WinHttpSendRequest)* send_request = find<decltype(WinHttpSendRequest)>("WinHttpSendRequest");
  decltype(WinHttpReceiveResponse)* receive_response =
      find<decltype(WinHttpReceiveResponse)>("WinHttpReceiveResponse");
  decltype(WinHttpQueryHeaders)* query_headers = find<decltype(WinHttpQueryHeaders)>("WinHttpQueryHeaders");
  decltype(WinHttpQueryDataAvailable)* query_data_available =
      find<decltype(WinHttpQueryDataAvailable)>("WinHttpQueryDataAvailable");
  decltype(WinHttpReadData)* read_data = find<decltype(WinHttpReadData)>("WinHttpReadData");
  decltype(WinHttpCloseHandle)* close_handle = find<decltype(WinHttpCloseHandle)>("WinHttpCloseHandle");

  [[nodiscard]] bool is_whole() const {
    return crack_url != nullptr && open != nullptr && set_timeouts != nullptr && connect != nullptr &&
           open_request != nullptr && send_request != nullptr && receive_response != nullptr &&
           query_headers != nullptr && query_data_available != nullptr && read_data != nullptr &&
           close_handle != nullptr;
  }
};

const WinHttp& winhttp() {
  static const WinHttp functions;
  return functions;
}

struct Exchange {
  HINTERNET session = nullptr;
  HINTERNET connection = nullptr;
  HINTERNET request = nullptr;
};

Exchange& exchange_of(const HttpExchange& exchange) {
  return *reinterpret_cast<Exchange*>(exchange.native());
}

std::uint32_t keep(HINTERNET handle, HINTERNET& place) {
  if (handle == nullptr) return last_error();
  place = handle;
  return 0;
}

std::uint32_t result_of(BOOL succeeded) { return succeeded ? 0 : last_error(); }

std::u16string text_of(const wchar_t* text, DWORD length) { return {text, text + length}; }

}  // namespace

void HttpExchangeKind::release(Native native) noexcept {
  const std::unique_ptr<Exchange> exchange(reinterpret_cast<Exchange*>(native));
  for (const HINTERNET handle : {exchange->request, exchange->connection, exchange->session}) {
    if (handle != nullptr) winhttp().close_handle(handle);
  }
}

bool split_url(std::u16string_view url, UrlParts& out) {
  if (!winhttp().is_whole()) return false;
  const std::wstring wide = wide_text(url);
  URL_COMPONENTS parts{};
  parts.dwStructSize = sizeof parts;
  parts.dwHostNameLength = parts.dwUrlPathLength = parts.dwExtraInfoLength = static_cast<DWORD>(-1);
  if (!winhttp().crack_url(wide.c_str(), 0, 0, &parts) || parts.dwHostNameLength == 0) return false;
  out.host = text_of(parts.lpszHostName, parts.dwHostNameLength);
  out.port = parts.nPort;
  out.path = text_of(parts.lpszUrlPath, parts.dwUrlPathLength);
  if (parts.lpszExtraInfo != nullptr) out.path += text_of(parts.lpszExtraInfo, parts.dwExtraInfoLength);
  out.secure = parts.nScheme == INTERNET_SCHEME_HTTPS;
  return true;
}

std::uint32_t open_http_session(std::u16string_view user_agent, HttpExchange& out) {
  if (!winhttp().is_whole()) return ERROR_MOD_NOT_FOUND;
  const std::wstring agent = wide_text(user_agent);
  const HINTERNET session = winhttp().open(agent.c_str(), WINHTTP_ACCESS_TYPE_AUTOMATIC_PROXY,
                                           WINHTTP_NO_PROXY_NAME, WINHTTP_NO_PROXY_BYPASS, 0);
  if (session == nullptr) return last_error();
  auto exchange = std::make_unique<Exchange>();
  exchange->session = session;
  out = HttpExchange(reinterpret_cast<std::uintptr_t>(exchange.release()));
  return 0;
}

std::uint32_t set_http_timeouts(const HttpExchange& exchange, const HttpTimeouts& timeouts) {
  return result_of(winhttp().set_timeouts(exchange_of(exchange).session, timeouts.resolve_ms,
                                          timeouts.connect_ms, timeouts.send_ms, timeouts.receive_ms));
}

std::uint32_t connect_http(const HttpExchange& exchange, std::u16string_view host, std::uint16_t port) {
  Exchange& handles = exchange_of(exchange);
  const std::wstring wide_host = wide_text(host);
  return keep(winhttp().connect(handles.session, wide_host.c_str(), port, 0), handles.connection);
}

std::uint32_t open_http_request(const HttpExchange& exchange, std::u16string_view method,
                                std::u16string_view path, bool secure) {
  Exchange& handles = exchange_of(exchange);
  const std::wstring wide_method = wide_text(method);
  const std::wstring target = wide_text(path);
  return keep(winhttp().open_request(handles.connection, wide_method.c_str(), target.c_str(), nullptr,
                                     WINHTTP_NO_REFERER, WINHTTP_DEFAULT_ACCEPT_TYPES,
                                     secure ? WINHTTP_FLAG_SECURE : 0),
              handles.request);
}

std::uint32_t send_http_request(const HttpExchange& exchange, std::u16string_view header,
                                std::string_view body) {
  const std::wstring line = header.empty() ? std::wstring() : wide_text(header) + L"\r\n";
  const auto size = static_cast<DWORD>(body.size());
  // The call takes a non-const pointer but does not modify the data.
  void* data = body.empty() ? nullptr : const_cast<char*>(body.data());
  return result_of(winhttp().send_request(exchange_of(exchange).request,
                                          line.empty() ? nullptr : line.c_str(),
                                          static_cast<DWORD>(line.size()), data, size, size, 0));
}

std::uint32_t receive_http_response(const HttpExchange& exchange) {
  return result_of(winhttp().receive_response(exchange_of(exchange).request, nullptr));
}

std::uint32_t query_http_status(const HttpExchange& exchange, std::uint32_t& out) {
  DWORD status = 0;
  DWORD size = sizeof status;
  if (!winhttp().query_headers(exchange_of(exchange).request,
                               WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER, nullptr, &status, &size,
                               nullptr)) {
    return last_error();
  }
  out = status;
  return 0;
}

HttpRead read_http_response(const HttpExchange& exchange, char* buffer, std::size_t capacity) {
  const HINTERNET request = exchange_of(exchange).request;
  DWORD available = 0;
  if (!winhttp().query_data_available(request, &available)) return {0, last_error()};
  if (available == 0) return {0, 0};
  DWORD count = 0;
  const auto wanted = static_cast<DWORD>(std::min<std::size_t>(available, capacity));
  if (!winhttp().read_data(request, buffer, wanted, &count)) return {0, last_error()};
  return {count, 0};
}

}  // namespace velmora
