#include "bench/hearing/superset.hpp"

#include <cstdio>

namespace sorvel::hearing {

namespace {

void printMiss(const Trial& trial, Kind kind) {
    std::printf("missed by %s: hearing --point=%s --draws %s --seed %u --first %u --trials 1 --rate %g\n",
                shortName(kind), trial.point->name().c_str(),
                trial.draw.set == DrawSet::Reporting ? "reporting" : "tuning", trial.draw.seed,
                trial.draw.trial, trial.rate_hz);
    std::fflush(stdout);
}

} // namespace

int compareAll(const Plan& plan) {
    std::vector<const Point*> points;
    for (const Family& family : families())
        for (const Point& point : family.points)
            if (!point.channel.codec || codecsAreInstalled()) points.push_back(&point);
    if (!codecsAreInstalled())
        std::printf("without the codecs, as ffmpeg is not installed: apt install ffmpeg\n");

    std::vector<Trial> trials;
    for (int i = 0; i < plan.trials; ++i) {
        const auto turn = static_cast<std::size_t>(i) / points.size();
        trials.push_back({
            points[static_cast<std::size_t>(i) % points.size()],
            turn % 2 == 0 ? 48000.0 : 44100.0,
            {plan.set, plan.seed, static_cast<std::uint32_t>(turn)}
        });
    }
    Tally tally;
    std::array<int, kKinds.size()> missed{};
    runTrials(trials, plan.kinds, plan.jobs, [&](const Trial& trial, const Outcomes& outcomes) {
        tally.count(outcomes);
        const auto& classic = outcomes[static_cast<std::size_t>(Kind::Classic)];
        for (const Kind kind : {Kind::DeepWithPrefix, Kind::DeepWithout}) {
            const auto& deep = outcomes[static_cast<std::size_t>(kind)];
            if (!classic || !classic->isDelivered || !deep || deep->isDelivered) continue;
            ++missed[static_cast<std::size_t>(kind)];
            printMiss(trial, kind);
        }
        for (const Kind kind : kKinds)
            if (const auto& outcome = outcomes[static_cast<std::size_t>(kind)])
                for (const std::string& text : outcome->wrong)
                    std::printf("wrong text '%s' from %s at %s, trial %u\n", text.c_str(), shortName(kind),
                                trial.point->name().c_str(), trial.draw.trial);
    });
    for (const Kind kind : kKinds) {
        const auto i = static_cast<std::size_t>(kind);
        if (tally.shares[i].trials == 0) continue;
        std::printf("%s: %d of %d delivered, %d of those that classic delivered missed, %d wrong\n",
                    shortName(kind), tally.shares[i].delivered, tally.shares[i].trials, missed[i],
                    tally.wrong[i]);
    }
    int total = 0;
    for (const int count : missed) total += count;
    return total;
}

} // namespace sorvel::hearing
