#include "bench/hearing/trials.hpp"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <exception>
#include <map>
#include <mutex>
#include <thread>

namespace sorvel::hearing {

namespace {

Outcome hear(TestedReceiver& receiver, const Scene& scene, double rate_hz) {
    const auto block = static_cast<std::size_t>(rate_hz / 10.0);
    Outcome outcome;
    std::vector<std::string> missing = scene.texts, heard;
    const auto judge = [&](double time_s) {
        for (std::string& text : heard) {
            const bool isSent = std::find(scene.texts.begin(), scene.texts.end(), text) != scene.texts.end();
            if (!isSent)
                outcome.wrong.push_back(std::move(text));
            else if (std::erase(missing, text) > 0 && missing.empty())
                outcome.delay_s = time_s - scene.end_s;
        }
        heard.clear();
    };
    receiver.begin();
    std::span<const float> rest = scene.sound;
    std::size_t taken = 0;
    while (!rest.empty()) {
        const auto part = rest.first(std::min(block, rest.size()));
        rest = rest.subspan(part.size());
        taken += part.size();
        receiver.push(part, heard);
        judge(static_cast<double>(taken) / rate_hz);
    }
    receiver.end(heard);
    judge(static_cast<double>(taken) / rate_hz);
    outcome.isDelivered = missing.empty();
    return outcome;
}

/// One thread's receivers, made when first needed at a rate.
class Receivers {
public:
    explicit Receivers(const std::vector<Kind>& kinds) : m_kinds(kinds) {}

    Outcomes hear(const Trial& trial) {
        const Scene scene = makeScene(trial.point->channel, trial.rate_hz, trial.draw);
        Outcomes outcomes;
        for (const Kind kind : m_kinds) {
            auto& receiver = m_receivers[{kind, trial.rate_hz}];
            if (!receiver) receiver = makeReceiver(kind, trial.rate_hz);
            if (receiver)
                outcomes[static_cast<std::size_t>(kind)] = hearing::hear(*receiver, scene, trial.rate_hz);
        }
        return outcomes;
    }

private:
    std::vector<Kind> m_kinds;
    std::map<std::pair<Kind, double>, std::unique_ptr<TestedReceiver>> m_receivers;
};

/// Hands results on in the order of the trials, whichever thread is first.
class InOrder {
public:
    InOrder(const std::vector<Trial>& trials,
            const std::function<void(const Trial&, const Outcomes&)>& report)
        : m_trials(trials), m_report(report), m_results(trials.size()) {}

    void put(std::size_t i, Outcomes outcomes) {
        const std::lock_guard lock(m_mutex);
        m_results[i] = std::move(outcomes);
        for (; m_next < m_results.size() && m_results[m_next]; ++m_next) {
            m_report(m_trials[m_next], *m_results[m_next]);
            m_results[m_next]->fill(std::nullopt);
        }
    }

private:
    const std::vector<Trial>& m_trials;
    const std::function<void(const Trial&, const Outcomes&)>& m_report;
    std::mutex m_mutex;
    std::vector<std::optional<Outcomes>> m_results;
    std::size_t m_next = 0;
};

} // namespace

void runTrials(const std::vector<Trial>& trials, const std::vector<Kind>& kinds, unsigned jobs,
               const std::function<void(const Trial&, const Outcomes&)>& report) {
    InOrder results(trials, report);
    std::atomic<std::size_t> next{0};
    std::exception_ptr failure;
    std::mutex failureMutex;
    const auto work = [&] {
        try {
            Receivers receivers(kinds);
            for (std::size_t i = next++; i < trials.size(); i = next++)
                results.put(i, receivers.hear(trials[i]));
        } catch (...) {
            next = trials.size(); // for all threads
            const std::lock_guard lock(failureMutex);
            failure = std::current_exception();
        }
    };
    std::vector<std::thread> threads;
    for (unsigned i = 1; i < jobs; ++i) threads.emplace_back(work);
    work();
    for (std::thread& thread : threads) thread.join();
    if (failure) std::rethrow_exception(failure);
}

std::array<double, 2> Share::interval() const {
    if (trials == 0) return {0.0, 1.0};
    constexpr double kZ = 1.959964; // 97.5 % of the normal distribution
    const double n = trials, p = share(), z2 = kZ * kZ;
    const double centre = (p + z2 / (2.0 * n)) / (1.0 + z2 / n);
    const double half = kZ / (1.0 + z2 / n) * std::sqrt(p * (1.0 - p) / n + z2 / (4.0 * n * n));
    return {std::max(0.0, centre - half), std::min(1.0, centre + half)};
}

void Tally::count(const Outcomes& outcomes) {
    for (std::size_t i = 0; i < outcomes.size(); ++i) {
        if (!outcomes[i]) continue;
        ++shares[i].trials;
        shares[i].delivered += outcomes[i]->isDelivered ? 1 : 0;
        wrong[i] += static_cast<int>(outcomes[i]->wrong.size());
        if (outcomes[i]->delay_s) delays_s[i].push_back(*outcomes[i]->delay_s);
    }
}

} // namespace sorvel::hearing
