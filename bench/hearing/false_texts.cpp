#include "bench/hearing/false_texts.hpp"

#include "bench/hearing/hostile_sound.hpp"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <deque>
#include <mutex>
#include <thread>

namespace sorvel::hearing {

namespace {

/// Receives sound piece by piece without a pause, and tells which texts were in the last pieces.
class Listening {
public:
    Listening(Kind kind, double rate_hz)
        : m_receiver(makeReceiver(kind, rate_hz)), m_block(static_cast<std::size_t>(rate_hz / 10)) {
        if (m_receiver) m_receiver->begin();
    }
    bool isThere() const { return m_receiver != nullptr; }

    void hear(const std::vector<float>& sound, const std::vector<std::string>& sent) {
        for (const std::string& text : sent) m_sent.push_back(text);
        std::vector<std::string> heard;
        for (std::size_t at = 0; at < sound.size(); at += m_block)
            m_receiver->push(std::span(sound).subspan(at, std::min(m_block, sound.size() - at)), heard);
        for (std::string& text : heard) {
            if (std::find(m_sent.begin(), m_sent.end(), text) != m_sent.end())
                ++right;
            else
                wrong.push_back(std::move(text));
        }
        while (m_sent.size() > 8) m_sent.pop_front();
    }

    int right = 0;
    std::vector<std::string> wrong;

private:
    std::unique_ptr<TestedReceiver> m_receiver;
    std::size_t m_block;
    std::deque<std::string> m_sent;
};

struct Count {
    int pieces = 0, right = 0;
    std::vector<std::string> wrong;
};

/// Every thread listens to pieces of its own, in a row.
std::array<Count, kKinds.size()> count(Hostile hostile, int pieces, const Plan& plan) {
    std::array<Count, kKinds.size()> counts;
    std::mutex mutex;
    std::atomic<int> next{0};
    const auto work = [&] {
        std::vector<std::pair<Kind, Listening>> all;
        for (const Kind kind : plan.kinds)
            if (Listening listening(kind, plan.rate_hz); listening.isThere())
                all.emplace_back(kind, std::move(listening));
        int heard = 0;
        for (int i = next++; i < pieces; i = next++, ++heard) {
            std::vector<std::string> sent;
            const Draw draw{plan.set, plan.seed, static_cast<std::uint32_t>(i)};
            const std::vector<float> sound = hostileSound(hostile, plan.rate_hz, draw, sent);
            for (auto& [kind, listening] : all) listening.hear(sound, sent);
        }
        const std::lock_guard lock(mutex);
        for (auto& [kind, listening] : all) {
            Count& sum = counts[static_cast<std::size_t>(kind)];
            sum.pieces += heard;
            sum.right += listening.right;
            sum.wrong.insert(sum.wrong.end(), listening.wrong.begin(), listening.wrong.end());
        }
    };
    std::vector<std::thread> threads;
    for (unsigned i = 1; i < plan.jobs; ++i) threads.emplace_back(work);
    work();
    for (std::thread& thread : threads) thread.join();
    return counts;
}

} // namespace

int countFalseTexts(double hours, const Plan& plan) {
    const int pieces = std::max(1, static_cast<int>(hours * 360));
    int total = 0;
    for (const Hostile hostile : kHostile) {
        const auto counts = count(hostile, pieces, plan);
        for (const Kind kind : kKinds) {
            const Count& one = counts[static_cast<std::size_t>(kind)];
            if (one.pieces == 0) continue;
            std::printf("%s: %s, %.3g h, %zu false", nameOf(hostile), shortName(kind), one.pieces / 360.0,
                        one.wrong.size());
            if (hasTexts(hostile))
                std::printf(", %d of %d texts reported, repeats included", one.right, 2 * one.pieces);
            std::printf("\n");
            for (const std::string& text : one.wrong) std::printf("  '%s'\n", text.c_str());
            std::fflush(stdout);
            total += static_cast<int>(one.wrong.size());
        }
    }
    return total;
}

} // namespace sorvel::hearing
