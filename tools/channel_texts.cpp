#include "tools/channel_texts.hpp"

#include <algorithm>
#include <cmath>

namespace sorvel {

namespace {

constexpr double kSame_s = 0.5;     // between the ends that two channels tell of one transmission
constexpr double kPatience_s = 1.5; // in which a receiver tells what has ended

double margin(const Heard& heard) { return heard.circumstances ? heard.circumstances->margin : 0.0; }

} // namespace

void ChannelTexts::put(const Heard& heard) {
    const auto same = std::find_if(m_waiting.begin(), m_waiting.end(), [&](const Heard& other) {
        return other.text == heard.text && std::abs(other.time_s - heard.time_s) < kSame_s;
    });
    if (same != m_waiting.end()) {
        if (margin(*same) >= margin(heard)) return;
        m_waiting.erase(same);
    }
    const auto later = std::find_if(m_waiting.begin(), m_waiting.end(),
                                    [&](const Heard& other) { return other.time_s > heard.time_s; });
    m_waiting.insert(later, heard);
}

void ChannelTexts::release(double heard_s, const std::function<void(const Heard&)>& deliver) {
    while (!m_waiting.empty() && m_waiting.front().time_s < heard_s - kPatience_s) {
        const Heard first = m_waiting.front();
        m_waiting.erase(m_waiting.begin());
        deliver(first);
    }
}

} // namespace sorvel
