#include "platform/http/curl_transfer.hpp"

#include <algorithm>

namespace sorvel {

namespace {

constexpr long kMostRedirects = 10;
constexpr double kLongest_s = 3600.0;

/// Sets options one after another and remembers whether all were taken.
class Options {
public:
    explicit Options(CURL* handle) : m_handle(handle) {}
    template <typename Value>
    void set(CURLoption option, Value value) {
        m_areTaken = m_areTaken && curlFunctions().easy_setopt(m_handle, option, value) == CURLE_OK;
    }
    bool areTaken() const { return m_areTaken; }

private:
    CURL* m_handle;
    bool m_areTaken = true;
};

} // namespace

CurlTransfer::CurlTransfer(HttpRequest request, HttpSession::Completion completion,
                           const CurlHttpOptions& options)
    : m_request(std::move(request)), m_completion(std::move(completion)), m_limit_bytes(options.bodyBytes),
      m_handle(curlFunctions().easy_init()) {
    if (m_handle && !(addHeaders() && prepare(options))) m_handle.reset();
}

CurlTransfer* CurlTransfer::of(CURL* handle) noexcept {
    CurlTransfer* transfer = nullptr;
    curlFunctions().easy_getinfo(handle, CURLINFO_PRIVATE, &transfer);
    return transfer;
}

bool CurlTransfer::addHeaders() {
    const auto add = [&](const std::string& line) {
        curl_slist* const longer = curlFunctions().slist_append(m_headers.get(), line.c_str());
        if (longer == nullptr) return false;
        // The same list, unless this was its first line: then it was null before,
        // and nothing is freed.
        if (!m_headers) m_headers.reset(longer);
        return true;
    };
    for (const auto& [name, value] : m_request.headers) {
        if (!isHeaderSafe(name) || !isHeaderSafe(value)) return false;
        // The library leaves out a header without a value unless it ends in a semicolon.
        const bool isBlank = value.find_first_not_of(' ') == std::string::npos;
        std::string line = name;
        line.append(isBlank ? ";" : ": ").append(isBlank ? "" : value);
        if (!add(line)) return false;
    }
    // Headers that the library would add of itself.
    const bool hasType = std::any_of(m_request.headers.begin(), m_request.headers.end(),
                                     [](const auto& header) { return header.first == "Content-Type"; });
    return add("Accept:") && add("Expect:") && (hasType || add("Content-Type:"));
}

bool CurlTransfer::prepare(const CurlHttpOptions& options) {
    Options handle(m_handle.get());
    handle.set(CURLOPT_PRIVATE, this);
    handle.set(CURLOPT_URL, m_request.url.c_str());
    handle.set(CURLOPT_HTTPHEADER, m_headers.get());
    if (m_request.method == "POST") {
        handle.set(CURLOPT_POST, 1L);
        handle.set(CURLOPT_POSTFIELDS, m_request.body.data());
        handle.set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(m_request.body.size()));
    } else if (m_request.method == "GET") {
        handle.set(CURLOPT_HTTPGET, 1L);
    } else {
        return false;
    }

    handle.set(CURLOPT_PROTOCOLS_STR, "https");
    handle.set(CURLOPT_REDIR_PROTOCOLS_STR, "https");
    handle.set(CURLOPT_FOLLOWLOCATION, 1L);
    handle.set(CURLOPT_MAXREDIRS, kMostRedirects);
    handle.set(CURLOPT_SSLVERSION, long{CURL_SSLVERSION_TLSv1_2});
    handle.set(CURLOPT_SSL_VERIFYPEER, 1L);
    handle.set(CURLOPT_SSL_VERIFYHOST, 2L);
    if (!options.caFile.empty()) handle.set(CURLOPT_CAINFO, options.caFile.c_str());

    const double bound_s = std::min(kLongest_s, options.longestTimeout_s);
    // The comparison is written so that a time that is not a number ends at the bound.
    const double timeout_s = m_request.timeout_s < bound_s ? m_request.timeout_s : bound_s;
    const long timeout_ms = std::max(1L, static_cast<long>(timeout_s * 1000.0));
    handle.set(CURLOPT_TIMEOUT_MS, timeout_ms);
    handle.set(CURLOPT_CONNECTTIMEOUT_MS, timeout_ms);
    handle.set(CURLOPT_NOSIGNAL, 1L);
    handle.set(CURLOPT_QUICK_EXIT, 1L); // closing does not wait for a name look-up that hangs

    handle.set(CURLOPT_WRITEFUNCTION, &CurlTransfer::receiveBody);
    handle.set(CURLOPT_WRITEDATA, this);
    handle.set(CURLOPT_HEADERFUNCTION, &CurlTransfer::receiveHeader);
    handle.set(CURLOPT_HEADERDATA, this);
    return handle.areTaken();
}

std::size_t CurlTransfer::receiveBody(char* data, std::size_t size, std::size_t count, void* self) noexcept {
    auto& transfer = *static_cast<CurlTransfer*>(self);
    const std::size_t bytes = size * count;
    std::string& body = transfer.m_response.body;
    if (bytes > transfer.m_limit_bytes - body.size()) return 0; // breaks the exchange off
    try {
        body.append(data, bytes);
    } catch (...) {
        return 0;
    }
    return bytes;
}

std::size_t CurlTransfer::receiveHeader(char*, std::size_t size, std::size_t count, void* self) noexcept {
    auto& transfer = *static_cast<CurlTransfer*>(self);
    transfer.m_headerBytes += size * count; // the library keeps them, so they need a bound as well
    return transfer.m_headerBytes > transfer.m_limit_bytes ? 0 : size * count;
}

void CurlTransfer::complete(CURLcode result) noexcept {
    if (!m_completion) return;
    try {
        if (result != CURLE_OK) return m_completion(std::nullopt);
        long status = 0;
        curlFunctions().easy_getinfo(m_handle.get(), CURLINFO_RESPONSE_CODE, &status);
        m_response.status = static_cast<int>(status);
        m_completion(std::move(m_response));
    } catch (...) {
        return; // what a completion throws ends with it
    }
}

} // namespace sorvel
