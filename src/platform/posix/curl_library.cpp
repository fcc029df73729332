#include "platform/posix/curl_library.h"

#include <cstdint>

namespace velmora {
namespace {

// libcurl's TLS library would clean up at process exit, while another thread may still be using it. This
// disables that exit handler.
void keep_tls_until_the_end(void* library) {
  using Initialise = int(std::uint64_t options, const void* settings);
  constexpr std::uint64_t no_exit_handler = 0x00080000;  // OPENSSL_INIT_NO_ATEXIT, openssl/crypto.h
  auto* const initialise = reinterpret_cast<Initialise*>(dlsym(library, "OPENSSL_init_crypto"));
  if (initialise != nullptr) static_cast<void>(initialise(no_exit_handler, nullptr));
}

}  // namespace

bool Curl::begin() const {
  keep_tls_until_the_end(library);
  return global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
}

const Curl& curl() {
  static const Curl functions;
  return functions;
}

}  // namespace velmora
