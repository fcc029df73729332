// libcurl, loaded at run time, so that a service without an account service never loads it.
#pragma once

#include <curl/curl.h>
#include <dlfcn.h>

namespace velmora {

// The functions in use, named without `curl_`. Null if the library or the function is missing.
struct Curl {
  void* library = dlopen("libcurl.so.4", RTLD_NOW | RTLD_LOCAL);

  template <typename Function>
  Function* find(const char* name) const {
    return library == nullptr ? nullptr : reinterpret_cast<Function*>(dlsym(library, name));
  }
  decltype(curl_global_init)* global_init = find<decltype(curl_global_init)>("curl_global_init");
  decltype(curl_easy_init)* easy_init = find<decltype(curl_easy_init)>("curl_easy_init");
  CURLcode (*easy_setopt)(CURL*, CURLoption,
                          ...) = find<CURLcode(CURL*, CURLoption, ...)>("curl_easy_setopt");
  CURLcode (*easy_getinfo)(CURL*, CURLINFO, ...) = find<CURLcode(CURL*, CURLINFO, ...)>("curl_easy_getinfo");
  decltype(curl_easy_pause)* easy_pause = find<decltype(curl_easy_pause)>("curl_easy_pause");
  decltype(curl_easy_cleanup)* easy_cleanup = find<decltype(curl_easy_cleanup)>("curl_easy_cleanup");
  decltype(curl_multi_init)* multi_init = find<decltype(curl_multi_init)>("curl_multi_init");
  decltype(curl_multi_add_handle)* multi_add_handle =
      find<decltype(curl_multi_add_handle)>("curl_multi_add_handle");
  decltype(curl_multi_remove_handle)* multi_remove_handle =
      find<decltype(curl_multi_remove_handle)>("curl_multi_remove_handle");
  decltype(curl_multi_perform)* multi_perform = find<decltype(curl_multi_perform)>("curl_multi_perform");
  decltype(curl_multi_poll)* multi_poll = find<decltype(curl_multi_poll)>("curl_multi_poll");
  decltype(curl_multi_info_read)* multi_info_read =
      find<decltype(curl_multi_info_read)>("curl_multi_info_read");
  decltype(curl_multi_cleanup)* multi_cleanup = find<decltype(curl_multi_cleanup)>("curl_multi_cleanup");
  decltype(curl_slist_append)* slist_append = find<decltype(curl_slist_append)>("curl_slist_append");
  decltype(curl_slist_free_all)* slist_free_all = find<decltype(curl_slist_free_all)>("curl_slist_free_all");
  decltype(curl_easy_header)* easy_header = find<decltype(curl_easy_header)>("curl_easy_header");
  decltype(curl_url)* url = find<decltype(curl_url)>("curl_url");
  decltype(curl_url_set)* url_set = find<decltype(curl_url_set)>("curl_url_set");
  decltype(curl_url_get)* url_get = find<decltype(curl_url_get)>("curl_url_get");
  decltype(curl_url_cleanup)* url_cleanup = find<decltype(curl_url_cleanup)>("curl_url_cleanup");
  decltype(curl_free)* free = find<decltype(curl_free)>("curl_free");
  [[nodiscard]] bool begin() const;
  // Whether all functions were found and the library is initialised.
  bool is_ready = global_init != nullptr && easy_init != nullptr && easy_setopt != nullptr &&
                  easy_getinfo != nullptr && easy_pause != nullptr && easy_cleanup != nullptr &&
                  multi_init != nullptr && multi_add_handle != nullptr && multi_remove_handle != nullptr &&
                  multi_perform != nullptr && multi_poll != nullptr && multi_info_read != nullptr &&
                  multi_cleanup != nullptr && easy_header != nullptr && url != nullptr &&
                  url_set != nullptr && url_get != nullptr && url_cleanup != nullptr && free != nullptr &&
                  slist_append != nullptr && slist_free_all != nullptr && begin();
};

// Loads the library on the first call. It stays loaded until the process ends.
[[nodiscard]] const Curl& curl();

}  // namespace velmora
