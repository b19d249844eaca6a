// Share of transmissions that arrive, against the in-band signal-to-noise ratio (tone power over
// noise power within 18.0 to 19.5 kHz; white noise, 48 kHz, floats): texts through the fixed-length
// receiver, messages of 5, 40 and 140 bytes between markers. Prints one line per point: kind, SNR
// in dB, arrived, trials. plot_delivery_rate.py draws it.
//     delivery_rate [trials]   50 unless given; each point with its own seeds
#include "tests/support/transmissions.hpp"
#include "tools/simulated_air.hpp"

#include <cstdio>
#include <cstdlib>

namespace {

constexpr std::size_t kFrame = 1024;

bool arrives(const ggwave_Parameters& parameters, const Samples& sound, double power,
             const std::string& payload, double snr_db, unsigned seed) {
    Samples air = silence(4 * kFrame + seed * 7919 % (2 * kFrame)) + sound + silence(6 * kFrame);
    air.resize(air.size() / kFrame * kFrame);
    sorvel::air::addWhiteNoise(air, snr_db, power, 48000.0, seed);
    const auto heard = received(parameters, air);
    return std::find(heard.begin(), heard.end(), payload) != heard.end();
}

} // namespace

int main(int argc, char** argv) {
    const int trials = argc > 1 ? std::atoi(argv[1]) : 50;
    GGWave::setLogFile(nullptr);
    for (const std::size_t length : {0U, 5U, 40U, 140U}) { // 0: a text of fixed length
        ggwave_Parameters parameters = ggwave_getDefaultParameters();
        if (length == 0) parameters.payloadLength = 13;
        std::string payload(length == 0 ? 13 : length, '\0');
        std::mt19937 generator(static_cast<unsigned>(length));
        for (char& c : payload) c = static_cast<char>(generator());
        const Samples sound = transmission(payload, parameters);
        const double power = sorvel::air::tonePower(sound);
        for (int snr_db = 18, arrived = trials; snr_db >= -12 && arrived > 0; --snr_db) {
            arrived = 0;
            for (int trial = 0; trial < trials; ++trial)
                arrived += arrives(parameters, sound, power, payload, snr_db,
                                   static_cast<unsigned>(1000 * (snr_db + 20) + trial))
                               ? 1
                               : 0;
            std::printf("%s %d %d %d\n", length == 0 ? "text" : std::to_string(length).c_str(), snr_db,
                        arrived, trials);
            std::fflush(stdout);
        }
    }
}
