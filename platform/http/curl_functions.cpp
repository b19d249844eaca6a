#include "platform/http/curl_functions.hpp"

namespace sorvel {

CurlFunctions::CurlFunctions(const SharedLibrary& library) {
    library.find(global_init, "curl_global_init");
    library.find(slist_append, "curl_slist_append");
    library.find(slist_free_all, "curl_slist_free_all");

    library.find(easy_init, "curl_easy_init");
    library.find(easy_cleanup, "curl_easy_cleanup");
    library.find(easy_setopt, "curl_easy_setopt");
    library.find(easy_getinfo, "curl_easy_getinfo");

    library.find(multi_init, "curl_multi_init");
    library.find(multi_cleanup, "curl_multi_cleanup");
    library.find(multi_setopt, "curl_multi_setopt");
    library.find(multi_add_handle, "curl_multi_add_handle");
    library.find(multi_remove_handle, "curl_multi_remove_handle");
    library.find(multi_perform, "curl_multi_perform");
    library.find(multi_info_read, "curl_multi_info_read");
    library.find(multi_poll, "curl_multi_poll");
    library.find(multi_wakeup, "curl_multi_wakeup");

    global_init(CURL_GLOBAL_DEFAULT); // counted by the library; never undone, it is the process's as well
}

const CurlFunctions& curlFunctions() {
    static const CurlFunctions functions(SharedLibrary("libcurl.so.4", "libcurl4"));
    return functions;
}

} // namespace sorvel
