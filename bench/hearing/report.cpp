#include "bench/hearing/report.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>

namespace sorvel::hearing {

namespace {

std::string percent(const Share& share) {
    const auto [low, high] = share.interval();
    char text[64]; // NOLINT(*-avoid-c-arrays)
    std::snprintf(text, sizeof text, "%.4g %% (%.1f to %.1f)", 100 * share.share(), 100 * low, 100 * high);
    return text;
}

double median(std::vector<double> values) {
    std::nth_element(values.begin(), values.begin() + std::ssize(values) / 2, values.end());
    return values[values.size() / 2];
}

void print(const Measured& measured) {
    std::printf("%s\n", measured.point->name().c_str());
    for (const Kind kind : kKinds) {
        const auto i = static_cast<std::size_t>(kind);
        const Share& share = measured.tally.shares[i];
        if (share.trials == 0) continue;
        std::printf("  %-8s %4d/%d  %-24s", shortName(kind), share.delivered, share.trials,
                    percent(share).c_str());
        if (const auto& delays_s = measured.tally.delays_s[i]; !delays_s.empty())
            std::printf("  text after %4.0f ms, at most %4.0f", 1000 * median(delays_s),
                        1000 * *std::max_element(delays_s.begin(), delays_s.end()));
        if (measured.tally.wrong[i] > 0) std::printf("  WRONG TEXTS: %d", measured.tally.wrong[i]);
        std::printf("\n");
    }
    std::fflush(stdout);
}

const Tally* find(const std::vector<Measured>& measured, const std::string& name) {
    for (const Measured& one : measured)
        if (one.point->name() == name) return &one.tally;
    return nullptr;
}

std::vector<nlohmann::json> records(const std::vector<Measured>& measured, const Plan& plan) {
    std::vector<nlohmann::json> all;
    for (const Measured& one : measured) {
        for (const Kind kind : kKinds) {
            const auto i = static_cast<std::size_t>(kind);
            const Share& share = one.tally.shares[i];
            if (share.trials == 0) continue;
            const auto [low, high] = share.interval();
            all.push_back({
                {"group",     familyOf(*one.point).group                             },
                {"family",    one.point->family                                      },
                {"meaning",   familyOf(*one.point).meaning                           },
                {"unit",      familyOf(*one.point).unit                              },
                {"value",     one.point->value                                       },
                {"receiver",  shortName(kind)                                        },
                {"delivered", share.delivered                                        },
                {"trials",    share.trials                                           },
                {"low",       low                                                    },
                {"high",      high                                                   },
                {"wrong",     one.tally.wrong[i]                                     },
                {"delays",    one.tally.delays_s[i]                                  },
                {"rate",      plan.rate_hz                                           },
                {"draws",     plan.set == DrawSet::Reporting ? "reporting" : "tuning"},
                {"seed",      plan.seed                                              }
            });
        }
    }
    return all;
}

} // namespace

std::vector<Measured> measure(const std::vector<const Point*>& points, const Plan& plan) {
    std::vector<Trial> trials;
    for (const Point* const point : points)
        for (int i = 0; i < plan.trials; ++i)
            trials.push_back({
                point, plan.rate_hz, {plan.set, plan.seed, plan.first + static_cast<std::uint32_t>(i)}
            });
    std::vector<Measured> all;
    int inPoint = 0;
    runTrials(trials, plan.kinds, plan.jobs, [&](const Trial& trial, const Outcomes& outcomes) {
        if (inPoint == 0) all.push_back({trial.point, {}});
        all.back().tally.count(outcomes);
        inPoint = (inPoint + 1) % plan.trials;
        if (inPoint == 0) print(all.back());
    });
    return all;
}

bool printGoals(const Plan& plan, std::vector<Measured>& measured) {
    std::vector<const Point*> points;
    for (const Goal& goal : goals())
        for (const auto* const names : {&goal.points, &goal.pointsWithoutPrefix})
            for (const std::string& name : *names)
                if (const Point* const point = &pointNamed(name);
                    std::find(points.begin(), points.end(), point) == points.end())
                    points.push_back(point);
    measured = measure(points, plan);

    std::printf("\n| channel | point | classic | deep, prefix of 4 | deep, no prefix | to reach "
                "|\n|---|---|---|---|---|---|\n");
    bool isReached = true;
    for (const Goal& goal : goals()) {
        for (const std::string& name : goal.points) {
            const Tally& tally = *find(measured, name);
            std::printf("| %s | %s |", goal.meaning.c_str(), name.c_str());
            for (const Kind kind : {Kind::Classic, Kind::DeepWithPrefix, Kind::DeepWithout}) {
                const Share& share = tally.shares[static_cast<std::size_t>(kind)];
                const auto& asked = kind == Kind::DeepWithout ? goal.pointsWithoutPrefix : goal.points;
                const bool isAsked =
                    kind != Kind::Classic && std::find(asked.begin(), asked.end(), name) != asked.end();
                const bool isMissed = share.trials > 0 && isAsked && share.share() < goal.share;
                isReached = isReached && !isMissed;
                std::printf(" %s%s |", share.trials > 0 ? percent(share).c_str() : "-",
                            isMissed ? ", missed" : "");
            }
            std::printf(" %.0f %% |\n", 100 * goal.share);
        }
    }
    std::printf("\n%d trials a point, %s draws, seed %u, %g Hz; in brackets the 95 %% interval\n",
                plan.trials, plan.set == DrawSet::Reporting ? "reporting" : "tuning", plan.seed,
                plan.rate_hz);
    return isReached;
}

void write(const std::string& path, const std::vector<Measured>& measured, const Plan& plan) {
    const std::vector<nlohmann::json> all = records(measured, plan);
    std::ofstream file(path);
    if (path.ends_with(".json")) {
        file << nlohmann::json(all).dump(1) << '\n';
    } else {
        file << "family,value,receiver,delivered,trials,low,high,wrong,rate,draws,seed\n";
        for (const nlohmann::json& one : all)
            file << one["family"].get<std::string>() << ',' << one["value"] << ','
                 << one["receiver"].get<std::string>() << ',' << one["delivered"] << ',' << one["trials"]
                 << ',' << one["low"] << ',' << one["high"] << ',' << one["wrong"] << ',' << one["rate"]
                 << ',' << one["draws"].get<std::string>() << ',' << one["seed"] << '\n';
    }
    file.flush();
    if (!file) throw std::runtime_error(path + " cannot be written; name a file in a folder that can");
}

} // namespace sorvel::hearing
