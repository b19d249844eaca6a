#include "python/samples.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>

namespace sorvel::python {

namespace {

constexpr double kHighest = 1e6; // what is beyond, or not finite, counts as 0, as in libsorvel

struct Half {
    std::uint16_t bits;
};

float toFloat(Half sample) {
    const int exponent = (sample.bits >> 10) & 31;
    const int fraction = sample.bits & 1023;
    if (exponent == 31) return 0.0F; // not finite
    const float size = exponent == 0 ? std::ldexp(static_cast<float>(fraction), -24)
                                     : std::ldexp(static_cast<float>(1024 + fraction), exponent - 25);
    return (sample.bits & 0x8000) != 0 ? -size : size;
}

float toFloat(float sample) { return sample; }
float toFloat(double sample) { return std::fabs(sample) <= kHighest ? static_cast<float>(sample) : 0.0F; }
float toFloat(long double sample) {
    return std::fabs(sample) <= kHighest ? static_cast<float>(sample) : 0.0F;
}
float toFloat(std::int16_t sample) { return (1.0F / 32768.0F) * static_cast<float>(sample); }
float toFloat(std::int32_t sample) { return (1.0F / 2147483648.0F) * static_cast<float>(sample); }
float toFloat(std::uint8_t sample) { return (1.0F / 128.0F) * (static_cast<float>(sample) - 128.0F); }

template <typename Sample>
Sample load(const std::byte* at) {
    Sample sample{};
    std::memcpy(&sample, at, sizeof sample);
    return sample;
}

template <typename Sample>
Sample loadForeign(const std::byte* at) {
    std::array<std::byte, sizeof(Sample)> bytes{};
    std::reverse_copy(at, at + bytes.size(), bytes.begin());
    return std::bit_cast<Sample>(bytes);
}

/// Samples that lie `stride_bytes` apart.
template <typename Sample>
void readRun(const std::byte* at, std::ptrdiff_t stride_bytes, bool is_foreign, std::span<float> to) {
    if (is_foreign) {
        for (float& sample : to) {
            sample = toFloat(loadForeign<Sample>(at));
            at += stride_bytes;
        }
    } else if (stride_bytes == sizeof(Sample)) { // a loop that the compiler can make wide
        for (float& sample : to) {
            sample = toFloat(load<Sample>(at));
            at += sizeof(Sample);
        }
    } else {
        for (float& sample : to) {
            sample = toFloat(load<Sample>(at));
            at += stride_bytes;
        }
    }
}

using ReadRun = void (*)(const std::byte*, std::ptrdiff_t, bool, std::span<float>);

struct Kind {
    SampleType type;
    std::ptrdiff_t bytes;
    ReadRun read_run;
};

constexpr std::array kKinds = {
    Kind{SampleType::F16,  sizeof(Half),         readRun<Half>        },
    Kind{SampleType::F32,  sizeof(float),        readRun<float>       },
    Kind{SampleType::F64,  sizeof(double),       readRun<double>      },
    Kind{SampleType::Long, sizeof(long double),  readRun<long double> },
    Kind{SampleType::I16,  sizeof(std::int16_t), readRun<std::int16_t>},
    Kind{SampleType::I32,  sizeof(std::int32_t), readRun<std::int32_t>},
    Kind{SampleType::U8,   sizeof(std::uint8_t), readRun<std::uint8_t>},
};

const Kind& kindOf(SampleType type) {
    return *std::find_if(kKinds.begin(), kKinds.end() - 1,
                         [type](const Kind& kind) { return kind.type == type; });
}

} // namespace

SampleType sampleTypeOf(std::string_view format, std::size_t bytes) noexcept {
    if (!format.empty() && std::string_view("@=<>!").find(format[0]) != std::string_view::npos)
        format.remove_prefix(1);
    if (format.size() != 1) return SampleType::None;
    switch (format[0]) {
    case 'e':
        return SampleType::F16;
    case 'f':
        return SampleType::F32;
    case 'd':
        return SampleType::F64;
    case 'g':
        return SampleType::Long;
    case 'B':
        return SampleType::U8;
    case 'h':
    case 'i':
    case 'l': // of 4 bytes on some systems, of 8 on others
        return bytes == 2 ? SampleType::I16 : bytes == 4 ? SampleType::I32 : SampleType::None;
    default:
        return SampleType::None;
    }
}

bool isForeign(std::string_view format) noexcept {
    const char order = format.empty() ? '@' : format[0];
    if (std::endian::native == std::endian::little) return order == '>' || order == '!';
    return order == '<';
}

bool Samples::isPlain() const noexcept {
    const std::ptrdiff_t bytes = sizeof(float);
    return type == SampleType::F32 && !is_foreign && (channels == 1 || channel_stride_bytes == bytes) &&
           frame_stride_bytes == bytes * static_cast<std::ptrdiff_t>(channels);
}

const std::byte* Samples::frame(std::size_t first) const noexcept {
    return data + static_cast<std::ptrdiff_t>(first) * frame_stride_bytes;
}

void Samples::read(std::size_t first, std::span<float> to) const noexcept {
    const Kind& kind = kindOf(type);
    const std::byte* at = frame(first);
    if (channels == 1) return kind.read_run(at, frame_stride_bytes, is_foreign, to);
    if (channel_stride_bytes == kind.bytes &&
        frame_stride_bytes == kind.bytes * static_cast<std::ptrdiff_t>(channels))
        return kind.read_run(at, kind.bytes, is_foreign, to);
    for (; !to.empty(); to = to.subspan(channels), at += frame_stride_bytes)
        kind.read_run(at, channel_stride_bytes, is_foreign, to.first(channels));
}

} // namespace sorvel::python
