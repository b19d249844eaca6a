#pragma once

#include "sdk/platform.hpp"

#include <cstddef>
#include <functional>
#include <memory>

/// The queue that the application's main thread empties; callbacks run on it.
///
/// Either give it the thread with `run()`, or keep a loop of your own and call `poll()`, at leisure
/// or whenever `descriptor()` is readable:
///
///     struct pollfd waiting = {MainQueue::main().descriptor(), POLLIN, 0};
///     while (poll(&waiting, 1, -1) > 0) MainQueue::main().poll();
///
/// What a task throws leaves `run()` or `poll()`; the tasks behind it stay queued.
/// Thread: every call from any thread. `async` takes no lock; it allocates.
class MainQueue final : public sorvel::TaskQueue {
public:
    /// The one that `defaultPlatform()` uses. Lives as long as the process.
    static MainQueue& main();

    MainQueue();
    ~MainQueue() override; ///< releases what is still queued without running it
    MainQueue(const MainQueue&) = delete;
    MainQueue& operator=(const MainQueue&) = delete;

    void async(std::function<void()> task) override;

    /// Runs tasks as they come, until `stop()`; the rest stays queued.
    void run();
    /// Runs the tasks that are queued now, not those they add. @return tasks run
    std::size_t poll();
    /// Makes `run()` return after the task it is in; if none is under way, the next one returns at
    /// once. May be called from a signal handler, on a queue that exists by then.
    void stop() noexcept;

    /// Readable while tasks wait, and once after `stop()`, for poll(2) and its kin; do not read
    /// from it. -1 where the system has no such thing.
    int descriptor() const noexcept;

private:
    struct State;
    std::unique_ptr<State> m_state;
};
