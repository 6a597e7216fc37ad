// libcurl, loaded at the first request: it brings thirty libraries with it, which a command line tool that answers in
// milliseconds, or an application whose phone is switched off, must not pay for.
#pragma once

#include <curl/curl.h>

namespace tovi {

struct CurlLibrary {
  decltype(&::curl_global_init) globalInit = nullptr;
  decltype(&::curl_easy_init) easyInit = nullptr;
  decltype(&::curl_easy_cleanup) easyCleanup = nullptr;
  decltype(&::curl_easy_getinfo) easyGetinfo = nullptr;
  decltype(&::curl_easy_setopt) easySetopt = nullptr;
  decltype(&::curl_multi_init) multiInit = nullptr;
  decltype(&::curl_multi_cleanup) multiCleanup = nullptr;
  decltype(&::curl_multi_add_handle) multiAddHandle = nullptr;
  decltype(&::curl_multi_remove_handle) multiRemoveHandle = nullptr;
  decltype(&::curl_multi_setopt) multiSetopt = nullptr;
  decltype(&::curl_multi_socket_action) multiSocketAction = nullptr;
  decltype(&::curl_multi_info_read) multiInfoRead = nullptr;
  decltype(&::curl_slist_append) slistAppend = nullptr;
  decltype(&::curl_slist_free_all) slistFreeAll = nullptr;

  // Ready for use, or null if there is no such library. It stays loaded.
  static const CurlLibrary* get();
};

}  // namespace tovi
