#pragma once

#include "sorvel/channel_choice.hpp"
#include "sorvel/receiver.hpp"

#include <array>

namespace sorvel::stream {

/// Blocks of frames to texts, which go to a callback or wait.
class Listener {
public:
    struct Callback {
        sorvel_heard_callback function = nullptr; // null: texts wait
        void* user = nullptr;
    };

    /// @param receiver  not null
    Listener(ChannelChoice choice, std::unique_ptr<Receiver> receiver, Callback callback)
        : m_choice(std::move(choice)), m_receiver(std::move(receiver)), m_callback(callback) {}

    void push(const std::byte* samples, std::size_t frames) noexcept;
    void finish() noexcept;
    void reset() noexcept;
    /// Takes the oldest that waits: all but `size`.
    bool poll(sorvel_heard& heard) noexcept;

    /// Whether a callback is under way.
    bool isBusy() const noexcept { return m_isBusy; }
    /// The listener is to be destroyed after the callback under way, and hears nothing more.
    void doom() noexcept { m_isDoomed = true; }
    bool isDoomed() const noexcept { return m_isDoomed; }

private:
    void restart() noexcept;
    void deliver() noexcept;
    void keep(const sorvel_heard& heard) noexcept;

    ChannelChoice m_choice;
    std::unique_ptr<Receiver> m_receiver;
    Callback m_callback;
    bool m_isBusy = false, m_isDoomed = false;
    bool m_isFinished = false;

    std::array<sorvel_heard, SORVEL_MOST_WAITING> m_waiting{}; // a ring
    std::size_t m_oldest = 0, m_count = 0;
    std::uint32_t m_lost = 0; // before the oldest
};

} // namespace sorvel::stream
