#pragma once

#include "sdk/platform.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace sorvel {

struct CurlHttpOptions {
    std::string caFile;             ///< PEM file of the authorities to trust instead of the system's
    double longestTimeout_s = 60.0; ///< upper bound on every request's own timeout
    std::size_t inFlight = 8;       ///< exchanges at a time
    std::size_t queued = 64;        ///< requests that wait for one; then the oldest is dropped
    std::size_t bodyBytes = 65536;  ///< a longer body makes the request fail, as do longer headers
    std::shared_ptr<ProgressLines> lines =
        standardErrorLines(); ///< told once if libcurl is missing; null: not
};

/// HTTPS through libcurl's multi interface, on one background thread that starts
/// with the first request.
///
/// TLS 1.2 or later, peer and host verified; redirects (at most 10) stay on https. A request made
/// inside a completion goes ahead of the queue, so that what has begun is finished first. A token
/// exchange and its post thus use one place in flight, and at most 8 + 64 events are under way.
/// Behind these, up to 1024 requests can lie between `submit` and the thread; only while it gets no
/// processor time does that fill up, and then the newest is dropped.
///
/// Thread: all calls from any thread. `submit` allocates, takes no lock once the thread runs, and
/// waits for nothing; the first one opens the library, which takes some 20 ms, and starts the thread.
class CurlHttpSession final : public HttpSession {
public:
    explicit CurlHttpSession(CurlHttpOptions options = {});
    ~CurlHttpSession() override; ///< as `shutdown()`
    CurlHttpSession(const CurlHttpSession&) = delete;
    CurlHttpSession& operator=(const CurlHttpSession&) = delete;

    void submit(HttpRequest request, Completion completion) override;
    bool drain(double seconds) override;

    /// Breaks off what is in flight, drops what is queued and ends the thread; later requests are
    /// dropped too. Takes milliseconds, however long a server hangs. From within a completion it
    /// returns before the thread has ended.
    void shutdown() noexcept;

    /// Requests dropped so far, for want of room or after `shutdown()`.
    std::uint64_t dropped() const noexcept;

private:
    class Worker;
    class AtExit;
    std::shared_ptr<Worker> m_worker; // shared with its thread, which may outlive the session for a moment
};

} // namespace sorvel
