// Worst processor time of one decode call while a message is recorded and analysed, by message
// length: the modem's own search and the literal one, on messages that arrive and on messages that
// a burst of noise has spoilt (the longest search: every alignment that yields the length tries the
// whole payload). One line per length, milliseconds:
//     length arrived_fast arrived_literal spoilt_fast spoilt_literal
//     analysis_times [runs [length]]   9 runs of 5, 40, 80 and 140 bytes unless given. A frame lasts 21.3 ms.
#include "tests/support/literal_message_receiver.hpp"
#include "tests/support/transmissions.hpp"

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>

namespace {

constexpr std::size_t kFrame = 1024;

/// Worst frame of a receiver that `make` makes, each frame at its best of some runs: other programs
/// take the caches.
template <class Make>
double worst_ms(const Samples& sound, int runs, Make make) {
    std::vector<double> best(sound.size() / kFrame, 1e9);
    for (int run = 0; run < runs; ++run) {
        auto hear = make();
        for (std::size_t i = 0; i < best.size(); ++i) {
            const std::clock_t start = std::clock();
            hear(std::span(sound).subspan(i * kFrame, kFrame));
            best[i] = std::min(best[i], static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC);
        }
    }
    return 1000.0 * *std::max_element(best.begin(), best.end());
}

} // namespace

int main(int argc, char** argv) {
    const int runs = argc > 1 ? std::atoi(argv[1]) : 9;
    GGWave::setLogFile(nullptr);
    const ggwave_Parameters parameters = ggwave_getDefaultParameters();
    std::vector<std::size_t> lengths{5, 40, 80, 140};
    if (argc > 2) lengths = {static_cast<std::size_t>(std::clamp(std::atoi(argv[2]), 1, 140))};
    for (const std::size_t length : lengths) {
        std::printf("%3zu", length);
        for (const bool isSpoilt : {false, true}) {
            Samples sound =
                silence(5000) + transmission(std::string(length, 'x'), parameters) + silence(20 * kFrame);
            const Samples floor = noise(sound.size(), 1e-3F, 1);
            for (std::size_t i = 0; i < sound.size(); ++i) sound[i] += floor[i];
            if (isSpoilt) { // behind the coded length, which ends at frame 5 + 16 + 27
                const std::size_t begin = 52 * kFrame, end = sound.size() - (20 + 17) * kFrame;
                const Samples burst = noise(end - begin, 1.0F, 2);
                std::copy(burst.begin(), burst.end(), sound.begin() + static_cast<std::ptrdiff_t>(begin));
            }
            const double fast = worst_ms(sound, runs, [&] {
                return [modem = std::make_unique<GGWave>(parameters)](auto frame) {
                    modem->decode(frame.data(), kFrame * sizeof(float));
                };
            });
            const double literal = worst_ms(sound, isSpoilt ? 1 : std::min(runs, 3), [] {
                const auto& protocol = GGWave::Protocols::kDefault()[GGWAVE_PROTOCOL_DT_CUSTOM];
                return [receiver = LiteralMessageReceiver(protocol, kFrame)](auto frame) mutable {
                    receiver.hear(frame);
                };
            });
            std::printf(" %8.2f %8.2f", fast, literal);
        }
        std::printf("\n");
    }
}
