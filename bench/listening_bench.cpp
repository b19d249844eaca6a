// The listening path, its stages and sending, as multiples of real time (x_real_time), beside the
// plain forms of the same work (Plain...). compare.py runs this and makes docs/performance.md; by
// hand, run it with
// --benchmark_repetitions=9 --benchmark_enable_random_interleaving=true for the spread.
#include "modem/fft.h"
#include "modem/resampler.hpp"
#include "modem/rs.hpp"
#include "payload/encoding.hpp"
#include "sdk/CPP_wrapper.hpp"
#include "tests/support/literal_resampler.hpp"
#include "tests/support/transmissions.hpp"

#include <benchmark/benchmark.h>
#include <complex>
#include <numbers>

namespace {

constexpr std::size_t kFrame = 1024;
constexpr double kRate_hz = 48000.0; // at which tones are made and analysed

/// Says how many seconds of sound one iteration worked through.
void count(benchmark::State& state, double seconds) {
    state.counters["x_real_time"] =
        benchmark::Counter(seconds * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

/// Quiet noise, and a text at its beginning where one is wanted: what a listener hears all day.
Samples air(std::size_t samples, float rate_hz, bool hasText) {
    Samples sound(samples, 0.0F);
    if (hasText) {
        std::string payload(13, '\0');
        compressString("acme_1234", payload.data());
        ggwave_Parameters parameters = fixedLength();
        parameters.sampleRateOut = rate_hz;
        const Samples text = transmission(payload, parameters);
        for (std::size_t i = 0; i < std::min(samples, text.size()); ++i) sound[i] = 0.1F * text[i];
    }
    const Samples hiss = noise(samples, 0.01F, 1);
    for (std::size_t i = 0; i < samples; ++i) sound[i] += hiss[i];
    return sound;
}

/// One iteration hands over the whole sound, so that each holds the same share of text and of noise.
/// @param hear  takes a block and answers the characters it copied; one that is deaf would look fast
template <class Hear>
void listen(benchmark::State& state, const Bytes& sound, std::size_t blockBytes, bool hasText, Hear hear) {
    bool isHeard = false;
    for (auto _ : state) {
        for (std::size_t at = 0; at < sound.size(); at += blockBytes)
            isHeard |= hear(sound.data() + at, static_cast<int>(blockBytes)) > 0;
    }
    if (isHeard != hasText) state.SkipWithError(hasText ? "missed the text" : "heard a text in noise");
}

void Listening(benchmark::State& state) { // as the listener does it: 16 bits at 96 kHz, blocks of 100 ms
    static CPP_wrapper bridge;
    [[maybe_unused]] static const bool isReady = (bridge.InitSorvelWave(), true);
    static const Bytes sound = stored(air(960000, 96000.0F, true), GGWAVE_SAMPLE_FORMAT_I16);
    const std::string prefix = "acme";
    std::array<char, 15> text{};
    listen(state, sound, 19200, true,
           [&](const void* block, int bytes) { return bridge.Decode(block, bytes, text.data(), prefix); });
    count(state, 10.0);
}
BENCHMARK(Listening);

/// Floats through ggwave_decode. Arguments: rate, samples in a block, whether there is a text.
void ListeningToFloats(benchmark::State& state) {
    const auto rate_hz = static_cast<float>(state.range(0));
    const auto block = static_cast<std::size_t>(state.range(1));
    const std::size_t samples = static_cast<std::size_t>(10 * state.range(0)) / block * block;
    const Bytes sound = stored(air(samples, rate_hz, state.range(2) != 0), GGWAVE_SAMPLE_FORMAT_F32);
    ggwave_Parameters parameters = fixedLength();
    parameters.sampleRateInp = rate_hz;
    const int id = ggwave_init(parameters);
    std::array<char, 15> text{};
    listen(state, sound, block * sizeof(float), state.range(2) != 0,
           [&](const void* bytes, int size) { return ggwave_decode(id, bytes, size, text.data(), "acme"); });
    ggwave_free(id);
    count(state, static_cast<double>(samples) / static_cast<double>(rate_hz));
}
BENCHMARK(ListeningToFloats)->Args({48000, 5 * kFrame, 1})->Args({44100, 4410, 1});
BENCHMARK(ListeningToFloats)->Args({48000, 5 * kFrame, 0}); // frames without a transmission

/// The transform as textbooks halve it: complex, with a table of turns.
void plainTransform(const float* in, std::size_t stride, std::span<std::complex<float>> out) {
    static const auto turns = [] {
        std::array<std::complex<float>, kFrame / 2> result;
        for (std::size_t k = 0; k < result.size(); ++k)
            result[k] = std::polar(1.0F, std::numbers::pi_v<float> * static_cast<float>(2 * k) / kFrame);
        return result;
    }();
    if (out.size() == 1) {
        out[0] = *in;
        return;
    }
    const std::size_t half = out.size() / 2;
    plainTransform(in, 2 * stride, out.first(half));
    plainTransform(in + stride, 2 * stride, out.last(half));
    for (std::size_t k = 0; k < half; ++k) {
        const std::complex<float> turned = turns[k * stride] * out[half + k];
        out[half + k] = out[k] - turned;
        out[k] += turned;
    }
}

/// The baseline of listening: a frame's worth of the plain sum and the plain transform, and no vote.
void PlainListening(benchmark::State& state) {
    const double factor = static_cast<double>(state.range(0)) / kRate_hz;
    const Samples in = noise(static_cast<std::size_t>(std::lround(factor * kFrame)), 0.01F, 1);
    LiteralResampler resampler;
    std::vector<std::complex<float>> spectrum(kFrame);
    Samples frame = in;
    for (auto _ : state) {
        if (factor != 1.0) frame = resampler.resample(static_cast<float>(factor), in);
        frame.resize(kFrame); // a sample more or less where the rates do not divide
        plainTransform(frame.data(), 1, spectrum);
        benchmark::DoNotOptimize(spectrum.data());
    }
    count(state, static_cast<double>(in.size()) / static_cast<double>(state.range(0)));
}
BENCHMARK(PlainListening)->Arg(96000)->Arg(48000)->Arg(44100);

void Resample(benchmark::State& state) {
    int size = 0;
    GGWave::Resampler resampler;
    resampler.alloc(nullptr, size);
    std::vector<std::byte> block(static_cast<std::size_t>(size));
    int n = 0;
    resampler.alloc(block.data(), n);
    const Samples in = noise(2048, 0.3F, 2);
    Samples out(4096);
    const float factor = static_cast<float>(static_cast<double>(state.range(0)) / kRate_hz);
    for (auto _ : state) benchmark::DoNotOptimize(resampler.resample(factor, 2048, in.data(), out.data()));
    count(state, 2048.0 / static_cast<double>(state.range(0)));
}
BENCHMARK(Resample)->Arg(96000)->Arg(44100);

void PlainResample(benchmark::State& state) {
    LiteralResampler resampler;
    const Samples in = noise(2048, 0.3F, 2);
    const auto factor = static_cast<float>(static_cast<double>(state.range(0)) / kRate_hz);
    for (auto _ : state) benchmark::DoNotOptimize(resampler.resample(factor, in));
    count(state, 2048.0 / static_cast<double>(state.range(0)));
}
BENCHMARK(PlainResample)->Arg(96000)->Arg(44100);

void Transform(benchmark::State& state) {
    const Samples frame = noise(kFrame, 0.3F, 3);
    Samples a(kFrame), w(kFrame / 2);
    std::array<int, 32> ip{};
    for (auto _ : state) {
        std::copy(frame.begin(), frame.end(), a.begin());
        rdft(kFrame, 1, a.data(), ip.data(), w.data());
        benchmark::DoNotOptimize(a.data());
    }
    count(state, kFrame / kRate_hz);
}
BENCHMARK(Transform);

void PlainTransform(benchmark::State& state) {
    const Samples frame = noise(kFrame, 0.3F, 3);
    std::vector<std::complex<float>> spectrum(kFrame);
    for (auto _ : state) {
        plainTransform(frame.data(), 1, spectrum);
        benchmark::DoNotOptimize(spectrum.data());
    }
    count(state, kFrame / kRate_hz);
}
BENCHMARK(PlainTransform);

// Bytes of message and of parity, bytes damaged. The payload's 17 bytes: once a frame at most. A message's
// word: up to 256 times in one frame, most of them without hope, as the last one.
void ReedSolomonDecode(benchmark::State& state) {
    const auto length = static_cast<std::uint8_t>(state.range(0));
    const auto parity = static_cast<std::uint8_t>(state.range(1));
    std::array<std::uint8_t, RS::ReedSolomon::workSize(140, 56)> work{};
    std::array<std::uint8_t, 140> message{};
    std::array<std::uint8_t, 196> word{};
    for (std::size_t i = 0; i < length; ++i) message[i] = static_cast<std::uint8_t>(7 * i + 1);
    RS::ReedSolomon code(length, parity, work.data());
    code.Encode(message.data(), word.data());
    for (std::size_t i = 0; i < static_cast<std::size_t>(state.range(2)); ++i)
        word[2 * i] ^= static_cast<std::uint8_t>(i + 1);
    for (auto _ : state)
        benchmark::DoNotOptimize(code.DecodeBlock(word.data(), word.data() + length, message.data()));
    count(state, 1024.0 / 48000.0);
}
BENCHMARK(ReedSolomonDecode)
    ->Args({13, 4, 0})
    ->Args({13, 4, 2})
    ->Args({13, 4, 3})
    ->Args({140, 56, 0})
    ->Args({140, 56, 28})
    ->Args({140, 56, 98});

void Transmit(benchmark::State& state) {
    GGWave modem(fixedLength());
    for (auto _ : state) {
        modem.init("thirteen byte", GGWAVE_PROTOCOL_DT_CUSTOM, 50);
        benchmark::DoNotOptimize(modem.encode());
    }
    count(state, 153 * kFrame / kRate_hz);
}
BENCHMARK(Transmit);

/// The baseline of Transmit: two sines a sample in double, faded at the ends of each byte.
void PlainTransmit(benchmark::State& state) {
    constexpr std::size_t kByte = 9 * kFrame; // samples
    Samples sound(17 * kByte);
    for (auto _ : state) {
        for (std::size_t i = 0; i < sound.size(); ++i) {
            const std::size_t byte = i / kByte, at = i % kByte;
            const double turn = 2.0 * std::numbers::pi * static_cast<double>(at) / kFrame;
            const double edge = static_cast<double>(std::min(at, kByte - at)) / (0.15 * kByte);
            const double sum = std::sin(turn * static_cast<double>(384 + byte % 16)) +
                               std::sin(turn * static_cast<double>(400 + 7 * byte % 16));
            sound[i] = static_cast<float>(0.25 * std::min(1.0, edge) * sum);
        }
        benchmark::DoNotOptimize(sound.data());
    }
    count(state, 153 * kFrame / kRate_hz);
}
BENCHMARK(PlainTransmit);

} // namespace
