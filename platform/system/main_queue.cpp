#include "platform/system/handover.hpp"
#include "sdk/MainQueue.hpp"

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

using Task = std::function<void()>;

struct MainQueue::State {
    sorvel::Handover<Task> arriving;
    std::mutex mutex; // of what follows; never held while a task runs, nor by those who queue
    std::deque<Task> ready;
    std::atomic<bool> isStopped = false;
    const int event = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);

    ~State() {
        if (event >= 0) ::close(event);
    }

    void signal() const noexcept {
        const std::uint64_t one = 1;
        [[maybe_unused]] const auto written = ::write(event, &one, sizeof one); // full means readable already
    }

    void clearSignal() const noexcept {
        std::uint64_t count = 0;
        [[maybe_unused]] const auto read = ::read(event, &count, sizeof count);
    }

    void wait() const noexcept {
        constexpr int kWithoutEvent_ms = 10; // out of descriptors: look again and again
        pollfd waiting = {event, POLLIN, 0};
        ::poll(&waiting, 1, event >= 0 ? -1 : kWithoutEvent_ms);
    }

    std::size_t collect() {
        clearSignal(); // before taking: a task that arrives in between signals anew
        const std::lock_guard lock(mutex);
        arriving.takeAll(ready);
        return ready.size();
    }

    std::optional<Task> next() {
        const std::lock_guard lock(mutex);
        if (ready.empty()) return std::nullopt;
        Task task = std::move(ready.front());
        ready.pop_front();
        return task;
    }

    /// Leaves the descriptor readable if anything is left, also when a task throws.
    struct SignalLeftovers {
        State& state;
        ~SignalLeftovers() {
            const std::lock_guard lock(state.mutex);
            if (!state.ready.empty() || !state.arriving.isEmpty()) state.signal();
        }
    };
};

MainQueue& MainQueue::main() {
    // Never ended: capture and network threads may still queue while the process winds down.
    static MainQueue& instance = *new MainQueue;
    return instance;
}

MainQueue::MainQueue() : m_state(std::make_unique<State>()) {}
MainQueue::~MainQueue() = default;

void MainQueue::async(Task task) {
    if (!task) return;
    m_state->arriving.put(std::move(task));
    m_state->signal();
}

void MainQueue::run() {
    const State::SignalLeftovers atEnd{*m_state};
    while (!m_state->isStopped.exchange(false)) {
        if (auto task = m_state->next()) {
            (*task)();
        } else if (m_state->collect() == 0 && !m_state->isStopped) {
            m_state->wait();
        }
    }
}

std::size_t MainQueue::poll() {
    const State::SignalLeftovers atEnd{*m_state};
    std::size_t ran = 0;
    for (std::size_t left = m_state->collect(); left > 0; --left, ++ran) {
        auto task = m_state->next();
        if (!task) break; // a task polled in its turn
        (*task)();
    }
    return ran;
}

void MainQueue::stop() noexcept {
    const int interrupted = errno; // a signal handler must leave it as it was
    m_state->isStopped = true;
    m_state->signal();
    errno = interrupted;
}

int MainQueue::descriptor() const noexcept { return m_state->event; }
