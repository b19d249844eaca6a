// Rate conversion of floats, block by block of 100 ms: PolyphaseFilter beside speexdsp at the quality that is
// as good in the band.

#include "platform/audio/polyphase_filter.hpp"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <cmath>
#include <speex/speex_resampler.h>

namespace {

constexpr int kQuality = 5;

std::vector<float> block(double rate_hz) {
    std::vector<float> samples(static_cast<std::size_t>(rate_hz / 10.0));
    for (std::size_t i = 0; i < samples.size(); ++i)
        samples[i] = 0.1F * std::sin(0.37F * static_cast<float>(i));
    return samples;
}

void setPace(benchmark::State& state) {
    state.counters["x_real_time"] =
        benchmark::Counter(0.1 * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

void Polyphase(benchmark::State& state) {
    const auto from = static_cast<std::uint32_t>(state.range(0)),
               to = static_cast<std::uint32_t>(state.range(1));
    auto filter = sorvel::PolyphaseFilter::make(from, to);
    if (!filter) return state.SkipWithError("no such ratio");
    const std::vector<float> in = block(from);
    std::vector<float> out(to / 10 + 10);
    while (state.KeepRunning()) benchmark::DoNotOptimize(filter->process(in, out));
    setPace(state);
}

void Speex(benchmark::State& state) {
    int error = 0;
    SpeexResamplerState* const filter =
        speex_resampler_init(1, static_cast<spx_uint32_t>(state.range(0)),
                             static_cast<spx_uint32_t>(state.range(1)), kQuality, &error);
    const std::vector<float> in = block(static_cast<double>(state.range(0)));
    std::vector<float> out(static_cast<std::size_t>(state.range(1)) / 10 + 10);
    while (state.KeepRunning()) {
        auto consumed = static_cast<spx_uint32_t>(in.size()),
             produced = static_cast<spx_uint32_t>(out.size());
        speex_resampler_process_float(filter, 0, in.data(), &consumed, out.data(), &produced);
        benchmark::DoNotOptimize(produced);
    }
    setPace(state);
    speex_resampler_destroy(filter);
}

void rates(benchmark::internal::Benchmark* bench) {
    for (const auto& [from, to] : {
             std::pair{44100,  96000},
             {48000,  96000},
             {192000, 96000},
             {88200,  96000},
             {16000,  96000},
             {44100,  48000},
             {88200,  48000},
             {192000, 48000}
    })
        bench->Args({from, to});
}

BENCHMARK(Polyphase)->Apply(rates);
BENCHMARK(Speex)->Apply(rates);

} // namespace
