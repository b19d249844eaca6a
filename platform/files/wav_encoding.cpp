#include "platform/files/wav_encoding.hpp"

#include <algorithm>
#include <bit>
#include <cmath>

namespace sorvel {

namespace {

void append(std::vector<std::byte>& bytes, std::uint32_t value, unsigned count) {
    for (unsigned i = 0; i < count; ++i) bytes.push_back(static_cast<std::byte>(value >> (8 * i) & 0xFFU));
}
void append(std::vector<std::byte>& bytes, const char (&name)[5]) {
    for (int i = 0; i < 4; ++i) bytes.push_back(static_cast<std::byte>(name[i]));
}

/// The nearest whole level of a sample of full scale 1.0; beyond it the highest or lowest, 0 for NaN.
std::uint32_t level(float sample, int bits) {
    if (std::isnan(sample)) return 0;
    const double full = std::ldexp(1.0, bits - 1);
    return static_cast<std::uint32_t>(
        std::llrint(std::clamp(static_cast<double>(sample) * full, -full, full - 1.0)));
}

} // namespace

unsigned bytesPerSample(StoredFormat format) {
    switch (format) {
    case StoredFormat::U8:
        return 1;
    case StoredFormat::I16:
        return 2;
    case StoredFormat::I32:
    case StoredFormat::F32:
        break;
    }
    return 4;
}

// Formats other than whole numbers have a longer description and a count of frames of their own.
std::vector<std::byte> wavHeader(std::uint32_t rate_hz, StoredFormat format, std::uint32_t frames) {
    const bool isFloat = format == StoredFormat::F32;
    const unsigned size = bytesPerSample(format);
    const std::uint32_t data_bytes = frames * size;
    const std::uint32_t description_bytes = isFloat ? 18 : 16;

    std::vector<std::byte> header;
    append(header, "RIFF");
    append(header, 4 + 8 + description_bytes + (isFloat ? 12 : 0) + 8 + data_bytes + data_bytes % 2, 4);
    append(header, "WAVE");
    append(header, "fmt ");
    append(header, description_bytes, 4);
    append(header, isFloat ? 3 : 1, 2);
    append(header, 1, 2); // channel
    append(header, rate_hz, 4);
    append(header, rate_hz * size, 4);
    append(header, size, 2);
    append(header, 8 * size, 2);
    if (isFloat) {
        append(header, 0, 2);
        append(header, "fact");
        append(header, 4, 4);
        append(header, frames, 4);
    }
    append(header, "data");
    append(header, data_bytes, 4);
    return header;
}

void append(std::vector<std::byte>& bytes, float sample, StoredFormat format) {
    switch (format) {
    case StoredFormat::U8:
        return append(bytes, level(sample, 8) + 128, 1);
    case StoredFormat::I16:
        return append(bytes, level(sample, 16), 2);
    case StoredFormat::I32:
        return append(bytes, level(sample, 32), 4);
    case StoredFormat::F32:
        return append(bytes, std::bit_cast<std::uint32_t>(sample), 4);
    }
}

} // namespace sorvel
