#include "bench/hearing/false_texts.hpp"
#include "bench/hearing/hostile_sound.hpp"
#include "modem/ggwave.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <malloc.h>

namespace sorvel::hearing {

namespace {

/// Of this thread, so that others on the machine count less.
double cpuTime_s() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

std::size_t allocated_bytes() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

struct Costing {
    Kind kind;
    std::unique_ptr<TestedReceiver> receiver;
    std::size_t memory_bytes;
    std::vector<double> speeds{}; // times real time, one per round
    double longestPush_s = 0.0;
};

void hear(Costing& one, const std::vector<std::vector<float>>& pieces, std::size_t block, double rate_hz) {
    std::vector<std::string> heard;
    one.receiver->begin();
    double total_s = 0.0;
    std::size_t samples = 0;
    for (const auto& piece : pieces) {
        for (std::size_t at = 0; at + block <= piece.size(); at += block) {
            const double before_s = cpuTime_s();
            one.receiver->push(std::span(piece).subspan(at, block), heard);
            const double push_s = cpuTime_s() - before_s;
            one.longestPush_s = std::max(one.longestPush_s, push_s);
            total_s += push_s;
            samples += block;
        }
    }
    one.speeds.push_back(static_cast<double>(samples) / rate_hz / total_s);
}

} // namespace

void printCost(const Plan& plan) {
    constexpr int kRounds = 5;
    constexpr std::uint32_t kPieces = 6; // a minute
    const auto block = static_cast<std::size_t>(plan.rate_hz / 10.0);
    std::vector<Costing> all;
    for (const Kind kind : plan.kinds) {
        const std::size_t before = allocated_bytes();
        if (auto receiver = makeReceiver(kind, plan.rate_hz))
            all.push_back({kind, std::move(receiver), allocated_bytes() - before});
    }
    for (const Costing& one : all)
        std::printf("%s: %.2f MiB, with what is around it here\n", shortName(one.kind),
                    static_cast<double>(one.memory_bytes) / 1048576.0);

    ggwave_Parameters receiving = ggwave_getDefaultParameters();
    receiving.payloadLength = 13;
    receiving.sampleRateInp = 96000.0F;
    receiving.operatingMode = GGWAVE_OPERATING_MODE_RX;
    std::printf("classic, the modem without room for sending: %.2f MiB\n",
                GGWave(receiving).heapSize() / 1048576.0);

    std::printf("times real time, median (lowest to highest) of %d rounds of a minute, and the longest push "
                "of 100 ms\n",
                kRounds);
    for (const Hostile hostile : kHostile) {
        std::vector<std::vector<float>> pieces;
        std::vector<std::string> sent;
        for (std::uint32_t i = 0; i < kPieces; ++i)
            pieces.push_back(hostileSound(hostile, plan.rate_hz, {plan.set, plan.seed, i}, sent));
        for (Costing& one : all) {
            one.speeds.clear();
            one.longestPush_s = 0.0;
        }
        for (int round = 0; round < kRounds; ++round)
            for (Costing& one : all) hear(one, pieces, block, plan.rate_hz);
        for (Costing& one : all) {
            std::sort(one.speeds.begin(), one.speeds.end());
            std::printf("%-30s %-8s %6.0f (%.0f to %.0f), %.2f ms\n", nameOf(hostile), shortName(one.kind),
                        one.speeds[kRounds / 2], one.speeds.front(), one.speeds.back(),
                        1000 * one.longestPush_s);
        }
        std::fflush(stdout);
    }
}

} // namespace sorvel::hearing
