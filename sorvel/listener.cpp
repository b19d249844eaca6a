#include "sorvel/listener.hpp"

#include <algorithm>

namespace sorvel::stream {

void Listener::push(const std::byte* samples, std::size_t frames) noexcept {
    if (frames > 0 && m_isFinished) restart();
    std::array<float, Receiver::kMost_samples> mono{};
    while (frames > 0 && !m_isDoomed) {
        const std::size_t count = std::min(frames, mono.size());
        m_choice.take(samples, std::span(mono).first(count));
        m_receiver->hear(std::span<const float>(mono).first(count));
        deliver();
        samples += count * m_choice.frameBytes();
        frames -= count;
    }
}

void Listener::finish() noexcept {
    if (m_isFinished) return;
    m_isFinished = true;
    m_receiver->finish();
    deliver();
}

void Listener::reset() noexcept {
    restart();
    m_count = 0;
    m_lost = 0;
}

void Listener::restart() noexcept {
    m_choice.reset();
    m_receiver->reset();
    m_isFinished = false;
}

void Listener::deliver() noexcept {
    sorvel_heard heard{};
    while (!m_isDoomed && m_receiver->take(heard)) {
        heard.size = sizeof heard;
        if (m_callback.function == nullptr) {
            keep(heard);
            continue;
        }
        m_isBusy = true;
        m_callback.function(m_callback.user, &heard);
        m_isBusy = false;
    }
}

void Listener::keep(const sorvel_heard& heard) noexcept {
    if (m_count == m_waiting.size()) {
        m_oldest = (m_oldest + 1) % m_waiting.size();
        --m_count;
        ++m_lost;
    }
    m_waiting[(m_oldest + m_count++) % m_waiting.size()] = heard;
}

bool Listener::poll(sorvel_heard& heard) noexcept {
    if (m_count == 0) return false;
    heard = m_waiting[m_oldest];
    heard.lost = m_lost;
    m_lost = 0;
    m_oldest = (m_oldest + 1) % m_waiting.size();
    --m_count;
    return true;
}

} // namespace sorvel::stream
