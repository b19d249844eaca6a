#pragma once

#include "platform/http/curl_functions.hpp"
#include "platform/http/curl_http.hpp"

#include <memory>
#include <string>

namespace sorvel {

/// One request on its way: the library's handle and everything that handle points to.
class CurlTransfer {
public:
    /// Prepares the handle; `handle()` is null if that failed. The library must be open.
    CurlTransfer(HttpRequest request, HttpSession::Completion completion, const CurlHttpOptions& options);
    CurlTransfer(const CurlTransfer&) = delete;
    CurlTransfer& operator=(const CurlTransfer&) = delete;
    ~CurlTransfer() = default;

    CURL* handle() const noexcept { return m_handle.get(); }
    static CurlTransfer* of(CURL* handle) noexcept;

    /// Calls the completion, with the response if the exchange succeeded.
    void complete(CURLcode result) noexcept;

private:
    bool prepare(const CurlHttpOptions& options);
    bool addHeaders();
    static std::size_t receiveBody(char* data, std::size_t size, std::size_t count, void* self) noexcept;
    static std::size_t receiveHeader(char* data, std::size_t size, std::size_t count, void* self) noexcept;

    struct Deleter {
        void operator()(CURL* handle) const noexcept { curlFunctions().easy_cleanup(handle); }
        void operator()(curl_slist* list) const noexcept { curlFunctions().slist_free_all(list); }
    };
    HttpRequest m_request;
    HttpSession::Completion m_completion;
    HttpResponse m_response;
    std::size_t m_limit_bytes;
    std::size_t m_headerBytes = 0;
    std::unique_ptr<curl_slist, Deleter> m_headers;
    std::unique_ptr<CURL, Deleter> m_handle; // last: it is closed before what it points to goes
};

} // namespace sorvel
