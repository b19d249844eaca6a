// What the choice of a channel costs: one channel of a recording holds a text in white noise, the other one
// equal noise alone, and the command's way through recordings takes the channel that it thinks better, or is
// told which. Both hear the same draws. Prints a line for each receiver and in-band signal-to-noise ratio
// (tone power over noise power within 18.0 to 19.5 kHz): receiver, dB, arrived from the known channel, from
// the chosen one, trials.
//     channel_choice [trials]   100 unless given
#include "modem/ggwave.h"
#include "tools/hearing.hpp"
#include "tools/simulated_air.hpp"
#include "tools/transmission.hpp"

#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

namespace {

using namespace sorvel;
using Sound = std::vector<float>;

constexpr const char* kText = "acme_1234";
constexpr std::array kRatios_db{-3.0, -5.0, -6.0, -8.0, -10.0, -11.0, -12.0, -13.0};
constexpr float kNoise = 0.1F; // standard deviation
constexpr std::size_t kBefore = 5 * kTransmissionRate_hz, kBehind = 2 * kTransmissionRate_hz;

class Folder {
public:
    Folder() {
        if (::mkdtemp(m_path.data()) == nullptr) throw std::runtime_error("no temporary folder");
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    ~Folder() {
        std::error_code error;
        std::filesystem::remove_all(m_path, error);
    }
    std::string file() const { return m_path + "/sound"; }

private:
    std::string m_path = (std::filesystem::temp_directory_path() / "sorvel-bench-XXXXXX").string();
};

class Texts final : public Findings {
public:
    void take(Finding finding) override {
        if (const auto* const heard = std::get_if<Heard>(&finding)) isHeard = isHeard || heard->text == kText;
        if (const auto* const failure = std::get_if<HearingFailure>(&finding))
            throw std::runtime_error(failure->line);
    }
    void show(const HearingProgress&) override {}
    bool isOver() const override { return false; }
    bool isHeard = false;
};

bool hears(ReceiverKind receiver, const std::string& file, std::optional<std::uint32_t> channel) {
    ListenOptions options;
    options.prefix = "acme";
    options.receiver = receiver;
    options.isRaw = true;
    options.raw = {kTransmissionRate_hz, StoredFormat::F32, 2};
    options.channel = channel;
    Texts texts;
    Hearing(options).hear(file, texts);
    return texts.isHeard;
}

/// Both channels, the text in the first or the second.
void write(const std::string& file, const Sound& text, double ratio_db, std::uint32_t seed) {
    const double power = air::tonePower(text);
    std::array<Sound, 2> channels;
    for (std::size_t channel = 0; channel < 2; ++channel) {
        channels[channel].resize(kBefore + text.size() + kBehind);
        air::addWhiteNoise(channels[channel], ratio_db, power, kTransmissionRate_hz,
                           2 * seed + static_cast<std::uint32_t>(channel));
    }
    const std::size_t start = kBefore + seed * 7919 % 4801;
    for (std::size_t i = 0; i < text.size(); ++i) channels[seed % 2][start + i] += text[i];
    // White noise of variance v has v * 1500 Hz / (rate / 2) in the band.
    const double noise = std::sqrt(power * std::pow(10.0, -ratio_db / 10.0) * kTransmissionRate_hz / 3000.0);
    Sound both;
    both.reserve(2 * channels[0].size());
    for (std::size_t i = 0; i < channels[0].size(); ++i)
        for (const Sound& channel : channels) both.push_back(kNoise / static_cast<float>(noise) * channel[i]);
    std::ofstream out(file, std::ios::binary);
    out.write(reinterpret_cast<const char*>(both.data()), static_cast<std::streamsize>(4 * both.size()));
    if (!out.flush()) throw std::runtime_error("cannot write " + file);
}

void measure(int trials) {
    const Folder folder;
    const Sound text = transmission(kText, 50);
    for (const double ratio_db : kRatios_db) {
        std::array<std::array<int, 2>, 2> arrived{}; // by receiver: known, chosen
        for (int trial = 0; trial < trials; ++trial) {
            const auto seed = static_cast<std::uint32_t>(trial);
            write(folder.file(), text, ratio_db, seed);
            for (const ReceiverKind receiver : {ReceiverKind::Classic, ReceiverKind::Deep}) {
                auto& of = arrived[receiver == ReceiverKind::Deep ? 1 : 0];
                of[0] += hears(receiver, folder.file(), seed % 2 + 1) ? 1 : 0;
                of[1] += hears(receiver, folder.file(), std::nullopt) ? 1 : 0;
            }
        }
        for (const std::size_t i : {0U, 1U})
            std::printf("%s %.1f %d %d %d\n", i == 0 ? "classic" : "deep", ratio_db, arrived[i][0],
                        arrived[i][1], trials);
        std::fflush(stdout);
    }
}

} // namespace

int main(int argc, char** argv) {
    const int trials = argc > 1 ? std::atoi(argv[1]) : 100;
    if (trials < 1) {
        std::fprintf(stderr, "usage: channel_choice [trials], 1 or more\n");
        return 1;
    }
    GGWave::setLogFile(nullptr);
    try {
        measure(trials);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "channel_choice: %s\n", error.what());
        return 1;
    }
    return 0;
}
