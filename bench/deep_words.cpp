// The deep receiver's decoder on energies as noise leaves them, without sound: per in-band SNR, texts
// delivered, wrong ones among them, processor time.
//     deep_words PREFIX_LENGTH TEXT_LENGTH TRIALS SEED SNR_DB...
#include "deep/delivery.hpp"
#include "tests/support/nibble_energies.hpp"

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>

using sorvel::deep::Delivery;

int main(int argc, char** argv) {
    if (argc < 6) {
        std::fprintf(stderr, "usage: deep_words PREFIX_LENGTH TEXT_LENGTH TRIALS SEED SNR_DB...\n");
        return 2;
    }
    const auto prefixLength = static_cast<std::size_t>(std::atoi(argv[1]));
    const auto length = static_cast<std::size_t>(std::atoi(argv[2]));
    const int trials = std::atoi(argv[3]);
    if (length > encoding::kMaxTextLength || prefixLength > length) {
        std::fprintf(stderr, "deep_words: texts have 15 characters at most, prefixes no more than texts\n");
        return 2;
    }
    for (int i = 5; i < argc; ++i) {
        const double snr_db = std::atof(argv[i]);
        std::mt19937 generator(static_cast<unsigned>(std::atoi(argv[4]) + i));
        const std::string prefix = randomText(generator, prefixLength);
        sorvel::deep::Workspace workspace;
        Delivery delivery(prefix, workspace);
        int delivered = 0;
        int wrong = 0;
        double worst_ms = 0.0;
        double total_ms = 0.0;
        for (int trial = 0; trial < trials; ++trial) {
            const std::string text = prefix + randomText(generator, length - prefixLength);
            const auto scores = noisyScores(codeWord(text), snr_db, generator);
            const std::clock_t start = std::clock();
            delivery.beginAttempt();
            delivery.begin(scores);
            while (!delivery.step(50000)) {
            }
            const double ms = 1000.0 * static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
            total_ms += ms;
            worst_ms = std::max(worst_ms, ms);
            if (const auto word = delivery.accepted()) {
                if (text == word->text.data())
                    ++delivered;
                else
                    ++wrong;
            }
        }
        std::printf("%6.1f dB: %d of %d, %d wrong, %.2f ms mean, %.1f ms worst\n", snr_db, delivered, trials,
                    wrong, total_ms / trials, worst_ms);
        std::fflush(stdout);
    }
}
