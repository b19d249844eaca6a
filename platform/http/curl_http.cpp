#include "platform/http/curl_http.hpp"

#include "platform/http/curl_transfer.hpp"
#include "platform/system/handover.hpp"
#include "platform/system/signals.hpp"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

namespace sorvel {

namespace {

constexpr std::size_t kArrivingLimit = 1024;
constexpr int kIdleWait_ms = 60 * 1000; // woken for every request and for the end
constexpr double kLongestDrain_s = 3600.0;

struct Pending {
    HttpRequest request;
    HttpSession::Completion completion;
};

} // namespace

class CurlHttpSession::Worker {
public:
    explicit Worker(CurlHttpOptions options) : m_options(std::move(options)) {}

    void submit(Pending pending, const std::shared_ptr<Worker>& self);
    bool drain(double seconds);
    void shutdown() noexcept;
    std::uint64_t dropped() const noexcept { return m_dropped; }

private:
    bool start(const std::shared_ptr<Worker>& self);
    bool prepare(const std::shared_ptr<Worker>& self);
    void work();
    void collect();
    void startTransfers();
    void finishTransfers();
    void finish(std::size_t index, CURLcode result);
    void abandonAll();
    void release(std::size_t requests);

    struct Deleter {
        void operator()(CURLM* multi) const noexcept { curlFunctions().multi_cleanup(multi); }
    };

    const CurlHttpOptions m_options;
    static thread_local const Worker* t_current; // the worker whose thread this is

    // Shared between threads
    Handover<Pending> m_arriving;
    std::atomic<std::size_t> m_arrivingCount = 0;
    std::atomic<std::size_t> m_outstanding = 0; // submitted, and neither completed nor dropped
    std::atomic<std::uint64_t> m_dropped = 0;
    std::atomic<bool> m_isRunning = false;
    std::atomic<bool> m_isEnding = false;
    std::mutex m_mutex; // of starting, ending and waiting for the end of all requests
    std::condition_variable m_allDone;
    std::thread m_thread;
    std::unique_ptr<CURLM, Deleter> m_multi; // made before the thread starts

    // The thread's own
    std::deque<Pending> m_queue;
    std::deque<Pending> m_continuations; // made by completions
    std::vector<std::unique_ptr<CurlTransfer>> m_transfers;
};

thread_local const CurlHttpSession::Worker* CurlHttpSession::Worker::t_current = nullptr;

/// Ends the workers that are left when the process ends. The TLS library, opened with the first
/// request, ends earlier than objects made before that, and no thread may be inside it then.
class CurlHttpSession::AtExit {
public:
    /// The library must be open. @return false: the process is ending
    static bool end(const std::shared_ptr<Worker>& worker) {
        // Never destroyed, as threads may ask until the very end.
        static auto* const atExit = new AtExit;
        const std::lock_guard lock(atExit->m_mutex);
        std::erase_if(atExit->m_workers, [](const auto& each) { return each.expired(); });
        if (!atExit->m_isOver) atExit->m_workers.push_back(worker);
        return !atExit->m_isOver;
    }

private:
    AtExit() {
        s_only = this;
        std::atexit([] { s_only->endAll(); });
    }
    void endAll() {
        std::unique_lock lock(m_mutex);
        m_isOver = true;
        const std::vector<std::weak_ptr<Worker>> workers = std::exchange(m_workers, {});
        lock.unlock(); // a worker's start holds its own lock while it asks for this one
        for (const auto& each : workers)
            if (const std::shared_ptr<Worker> worker = each.lock()) worker->shutdown();
    }

    static AtExit* s_only;
    std::mutex m_mutex;
    std::vector<std::weak_ptr<Worker>> m_workers;
    bool m_isOver = false;
};

CurlHttpSession::AtExit* CurlHttpSession::AtExit::s_only = nullptr;

// --- from any thread

void CurlHttpSession::Worker::submit(Pending pending, const std::shared_ptr<Worker>& self) {
    if (m_isEnding || !(m_isRunning || start(self))) {
        ++m_dropped;
        return;
    }
    if (t_current == this) {
        ++m_outstanding;
        m_continuations.push_back(std::move(pending));
        return;
    }
    if (m_arrivingCount.fetch_add(1) >= kArrivingLimit) {
        --m_arrivingCount;
        ++m_dropped;
        return;
    }
    ++m_outstanding;
    m_arriving.put(std::move(pending));
    curlFunctions().multi_wakeup(m_multi.get());
}

bool CurlHttpSession::Worker::start(const std::shared_ptr<Worker>& self) {
    const std::lock_guard lock(m_mutex);
    if (m_isEnding) return false;
    if (m_isRunning) return true;
    if (!m_multi && !prepare(self)) return false;
    curlFunctions().multi_setopt(m_multi.get(), CURLMOPT_MAXCONNECTS, static_cast<long>(m_options.inFlight));
    // Signals are the application's, and the TLS library's writes to a closed connection must not end
    // the process.
    const AllSignalsBlocked blocked;
    try {
        m_thread = std::thread([self] { self->work(); });
    } catch (const std::system_error&) {
        return false;
    }
    m_isRunning = true;
    return true;
}

bool CurlHttpSession::Worker::prepare(const std::shared_ptr<Worker>& self) {
    try {
        m_multi.reset(curlFunctions().multi_init());
    } catch (const SharedLibraryError& error) {
        m_isEnding = true; // one line, rather than one for each event
        if (m_options.lines)
            m_options.lines->line(std::string("Sorvel: no events are sent: ") + error.what());
    }
    return m_multi && AtExit::end(self);
}

bool CurlHttpSession::Worker::drain(double seconds) {
    const auto isDone = [&] { return m_outstanding == 0 || m_isEnding; };
    if (t_current == this) return isDone(); // waiting for itself
    const double wait_s = seconds > 0 ? std::min(seconds, kLongestDrain_s) : 0.0;
    std::unique_lock lock(m_mutex);
    return m_allDone.wait_for(lock, std::chrono::duration<double>(wait_s), isDone);
}

void CurlHttpSession::Worker::shutdown() noexcept {
    std::thread ending;
    {
        const std::lock_guard lock(m_mutex);
        m_isEnding = true;
        std::swap(ending, m_thread);
        m_allDone.notify_all();
    }
    if (!ending.joinable()) return;
    curlFunctions().multi_wakeup(m_multi.get());
    if (t_current == this) {
        ending.detach(); // it shares this object and ends right after the completion it is in
    } else {
        ending.join();
    }
}

// --- on the thread

void CurlHttpSession::Worker::work() {
    t_current = this;
    while (!m_isEnding) {
        collect();
        startTransfers();
        int running = 0;
        curlFunctions().multi_perform(m_multi.get(), &running);
        finishTransfers();
        const bool hasMore =
            !m_continuations.empty() || (!m_queue.empty() && m_transfers.size() < m_options.inFlight);
        if (!hasMore) curlFunctions().multi_poll(m_multi.get(), nullptr, 0, kIdleWait_ms, nullptr);
    }
    abandonAll();
}

void CurlHttpSession::Worker::collect() {
    const std::size_t before = m_queue.size();
    m_arriving.takeAll(m_queue);
    m_arrivingCount -= m_queue.size() - before;
    // What completions asked for belongs to older events than the queue, so it goes first.
    while (!m_continuations.empty()) {
        m_queue.push_front(std::move(m_continuations.back()));
        m_continuations.pop_back();
    }
    const std::size_t room =
        m_options.queued + m_options.inFlight - std::min(m_transfers.size(), m_options.inFlight);
    while (m_queue.size() > room) {
        m_queue.pop_front();
        ++m_dropped;
        release(1);
    }
}

void CurlHttpSession::Worker::startTransfers() {
    while (!m_queue.empty() && m_transfers.size() < m_options.inFlight) {
        Pending next = std::move(m_queue.front());
        m_queue.pop_front();
        auto transfer =
            std::make_unique<CurlTransfer>(std::move(next.request), std::move(next.completion), m_options);
        const bool isStarted =
            transfer->handle() != nullptr &&
            curlFunctions().multi_add_handle(m_multi.get(), transfer->handle()) == CURLM_OK;
        if (isStarted) {
            m_transfers.push_back(std::move(transfer));
        } else {
            transfer->complete(CURLE_FAILED_INIT);
            transfer.reset();
            release(1);
        }
    }
}

void CurlHttpSession::Worker::finishTransfers() {
    int left = 0;
    while (const CURLMsg* const message = curlFunctions().multi_info_read(m_multi.get(), &left)) {
        if (message->msg != CURLMSG_DONE) continue;
        const CURLcode result = message->data.result;
        const CurlTransfer* const done = CurlTransfer::of(message->easy_handle);
        const auto found = std::find_if(m_transfers.begin(), m_transfers.end(),
                                        [&](const auto& transfer) { return transfer.get() == done; });
        if (found != m_transfers.end()) finish(static_cast<std::size_t>(found - m_transfers.begin()), result);
    }
}

void CurlHttpSession::Worker::finish(std::size_t index, CURLcode result) {
    auto transfer = std::move(m_transfers[index]);
    m_transfers.erase(m_transfers.begin() + static_cast<std::ptrdiff_t>(index));
    curlFunctions().multi_remove_handle(m_multi.get(), transfer->handle());
    transfer->complete(result);
    transfer.reset(); // with what its completion holds, before anyone is told that it is over
    release(1);
}

void CurlHttpSession::Worker::abandonAll() {
    for (const auto& transfer : m_transfers)
        curlFunctions().multi_remove_handle(m_multi.get(), transfer->handle());
    const std::size_t begun = m_transfers.size();
    m_transfers.clear();
    m_arriving.takeAll(m_queue);
    const std::size_t waiting = m_queue.size() + m_continuations.size();
    m_queue.clear();
    m_continuations.clear();
    m_dropped += begun + waiting;
    release(begun + waiting);
}

void CurlHttpSession::Worker::release(std::size_t requests) {
    const std::lock_guard lock(m_mutex); // so that a waiter cannot miss it
    m_outstanding -= requests;
    if (m_outstanding == 0) m_allDone.notify_all();
}

// --- the session

CurlHttpSession::CurlHttpSession(CurlHttpOptions options)
    : m_worker(std::make_shared<Worker>(std::move(options))) {}

CurlHttpSession::~CurlHttpSession() { shutdown(); }

void CurlHttpSession::submit(HttpRequest request, Completion completion) {
    m_worker->submit({std::move(request), std::move(completion)}, m_worker);
}

bool CurlHttpSession::drain(double seconds) { return m_worker->drain(seconds); }
void CurlHttpSession::shutdown() noexcept { m_worker->shutdown(); }
std::uint64_t CurlHttpSession::dropped() const noexcept { return m_worker->dropped(); }

} // namespace sorvel
