#pragma once

#include "platform/system/shared_library.hpp"

#include <curl/curl.h>

namespace sorvel {

/// The HTTP library's functions. It is opened and made ready for use with the first request.
struct CurlFunctions {
    explicit CurlFunctions(const SharedLibrary& library);

    decltype(&curl_global_init) global_init = nullptr;
    decltype(&curl_slist_append) slist_append = nullptr;
    decltype(&curl_slist_free_all) slist_free_all = nullptr;

    decltype(&curl_easy_init) easy_init = nullptr;
    decltype(&curl_easy_cleanup) easy_cleanup = nullptr;
    decltype(&curl_easy_setopt) easy_setopt = nullptr;
    decltype(&curl_easy_getinfo) easy_getinfo = nullptr;

    decltype(&curl_multi_init) multi_init = nullptr;
    decltype(&curl_multi_cleanup) multi_cleanup = nullptr;
    decltype(&curl_multi_setopt) multi_setopt = nullptr;
    decltype(&curl_multi_add_handle) multi_add_handle = nullptr;
    decltype(&curl_multi_remove_handle) multi_remove_handle = nullptr;
    decltype(&curl_multi_perform) multi_perform = nullptr;
    decltype(&curl_multi_info_read) multi_info_read = nullptr;
    decltype(&curl_multi_poll) multi_poll = nullptr;
    decltype(&curl_multi_wakeup) multi_wakeup = nullptr;
};

/// @throws SharedLibraryError  at every call, when there is no such library; never after a call that did not
const CurlFunctions& curlFunctions();

} // namespace sorvel
