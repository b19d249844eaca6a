// The listening path and its stages, as multiples of real time (x_real_time), beside the plain forms of the
// same work. Run with --benchmark_repetitions=9 --benchmark_enable_random_interleaving=true for the spread.
#include "modem/fft.h"
#include "modem/resampler.hpp"
#include "modem/rs.hpp"
#include "payload/encoding.hpp"
#include "sdk/CPP_wrapper.hpp"
#include "tests/support/literal_resampler.hpp"
#include "tests/support/transmissions.hpp"

#include <benchmark/benchmark.h>

namespace {

/// Says how many seconds of sound one iteration worked through.
void count(benchmark::State& state, double seconds) {
    state.counters["x_real_time"] =
        benchmark::Counter(seconds * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

/// A text every 10 seconds in quiet noise: what a listener hears all day.
const Bytes& captured() {
    static const Bytes bytes = [] {
        std::string payload(13, '\0');
        compressString("acme_1234", payload.data());
        ggwave_Parameters parameters = fixedLength();
        parameters.sampleRateOut = 96000;
        Samples sound = transmission(payload, parameters);
        sound.resize(960000, 0.0F);
        const Samples hiss = noise(sound.size(), 0.01F, 1);
        for (std::size_t i = 0; i < sound.size(); ++i) sound[i] = 0.1F * sound[i] + hiss[i];
        return stored(sound, GGWAVE_SAMPLE_FORMAT_I16);
    }();
    return bytes;
}

void Listening(benchmark::State& state) {
    static CPP_wrapper bridge;
    [[maybe_unused]] static const bool isReady = (bridge.InitSorvelWave(), true);
    std::array<char, 256> text{};
    const std::string prefix = "acme";
    const Bytes& sound = captured(); // made before the clock runs
    std::size_t at = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(bridge.Decode(sound.data() + at, 19200, text.data(), prefix));
        at = (at + 19200) % sound.size();
    }
    count(state, 0.1);
}
BENCHMARK(Listening);

void ListeningAt48kHz(benchmark::State& state) { // without rate conversion: transform and vote alone
    GGWave modem(fixedLength());
    const Bytes sound = stored(noise(48 * 1024, 0.01F, 1), GGWAVE_SAMPLE_FORMAT_F32);
    for (auto _ : state)
        benchmark::DoNotOptimize(modem.decode(sound.data(), static_cast<unsigned>(sound.size())));
    count(state, 1.024);
}
BENCHMARK(ListeningAt48kHz);

void Resample(benchmark::State& state) {
    int size = 0;
    GGWave::Resampler resampler;
    resampler.alloc(nullptr, size);
    std::vector<std::byte> block(static_cast<std::size_t>(size));
    int n = 0;
    resampler.alloc(block.data(), n);
    const Samples in = noise(2048, 0.3F, 2);
    Samples out(4096);
    const float factor = static_cast<float>(state.range(0)) / 48000.0F;
    for (auto _ : state) benchmark::DoNotOptimize(resampler.resample(factor, 2048, in.data(), out.data()));
    count(state, 2048.0 / static_cast<double>(state.range(0)));
}
BENCHMARK(Resample)->Arg(96000)->Arg(44100);

void ResampleByThePlainSum(benchmark::State& state) { // the baseline of Resample/96000
    LiteralResampler resampler;
    const Samples in = noise(2048, 0.3F, 2);
    for (auto _ : state) benchmark::DoNotOptimize(resampler.resample(2.0F, in));
    count(state, 2048.0 / 96000.0);
}
BENCHMARK(ResampleByThePlainSum);

void Transform(benchmark::State& state) {
    const Samples frame = noise(1024, 0.3F, 3);
    Samples a(1024), w(512);
    std::array<int, 32> ip{};
    for (auto _ : state) {
        std::copy(frame.begin(), frame.end(), a.begin());
        rdft(1024, 1, a.data(), ip.data(), w.data());
        benchmark::DoNotOptimize(a.data());
    }
    count(state, 1024.0 / 48000.0);
}
BENCHMARK(Transform);

void ReedSolomonDecode(benchmark::State& state) { // 17 bytes; once a frame at most
    std::array<std::uint8_t, 13 * 3 + 29 * 4 + 1> work{};
    std::array<std::uint8_t, 17> word{};
    RS::ReedSolomon code(13, 4, work.data());
    code.Encode("acme_1234 and", word.data());
    for (int i = 0; i < state.range(0); ++i) word[static_cast<std::size_t>(5 * i)] ^= 0x55;
    std::array<std::uint8_t, 13> message{};
    for (auto _ : state)
        benchmark::DoNotOptimize(code.DecodeBlock(word.data(), word.data() + 13, message.data()));
    count(state, 1024.0 / 48000.0);
}
BENCHMARK(ReedSolomonDecode)->Arg(0)->Arg(2)->Arg(3);

void Transmit(benchmark::State& state) {
    GGWave modem(fixedLength());
    for (auto _ : state) {
        modem.init("thirteen byte", GGWAVE_PROTOCOL_DT_CUSTOM, 50);
        benchmark::DoNotOptimize(modem.encode());
    }
    count(state, 153 * 1024 / 48000.0);
}
BENCHMARK(Transmit);

} // namespace
