#pragma once

#include "modem/fft.h"
#include "modem/ggwave.h"
#include "modem/rs.hpp"

#include <cmath>
#include <optional>
#include <span>
#include <string>
#include <vector>

/// The receiver of messages between markers, word for word: keeps the samples, and sums up and
/// transforms every chunk at every alignment anew. Slow; shares the transform and the code with the
/// modem, but none of its search.
class LiteralMessageReceiver {
public:
    LiteralMessageReceiver(const GGWave::Protocol& protocol, int samplesPerFrame)
        : m_protocol(protocol), m_n(static_cast<std::size_t>(samplesPerFrame)),
          m_history(4, std::vector<float>(m_n)), m_w(m_n / 2), m_ip(64) {}

    /// Takes one frame; answers what it completed: a payload, or "" for a failed reception.
    std::optional<std::string> hear(std::span<const float> frame) {
        std::optional<std::string> result;
        m_history[m_row].assign(frame.begin(), frame.end());
        m_row = (m_row + 1) % 4;
        if (m_row == 0 || m_receiving) {
            std::vector<float> mean(m_n);
            for (std::size_t i = 0; i < m_n; ++i)
                mean[i] = 0.25F * (m_history[0][i] + m_history[1][i] + m_history[2][i] + m_history[3][i]);
            m_spectrum = power(mean);
        }
        if (m_left > 0) {
            m_recording.emplace_back(frame.begin(), frame.end());
            if (--m_left == 0) {
                result = analyse();
                m_receiving = false;
                m_spectrum.assign(m_n, 0.0F);
            }
        }
        if (!m_receiving && isMarker(true)) {
            m_receiving = true;
            m_recording.clear();
            m_toRecord = m_left = m_length = m_protocol.framesPerTx * 197 + 32;
        } else if (m_receiving && isMarker(false)) {
            m_length = m_toRecord - m_left + 1;
            m_left = 1;
        }
        return result;
    }

private:
    std::vector<float> power(std::vector<float> samples) {
        rdft(static_cast<int>(m_n), 1, samples.data(), m_ip.data(), m_w.data());
        std::vector<float> result(m_n);
        for (std::size_t i = 0; i < m_n / 2; ++i)
            result[i] = samples[2 * i] * samples[2 * i] + samples[2 * i + 1] * samples[2 * i + 1];
        return result;
    }

    bool isMarker(bool isStart) const {
        for (std::size_t i = 0; i < 16 && !m_spectrum.empty(); ++i) {
            const auto bin = static_cast<std::size_t>(m_protocol.freqStart) + 2 * i;
            const float a = m_spectrum[bin], c = 3.0F * m_spectrum[bin + 1];
            if (!((i % 2 == 0) == isStart ? a > c : a < c)) return false;
        }
        return !m_spectrum.empty();
    }

    std::string analyse() {
        for (int alignment = 255; alignment >= 0; --alignment) {
            if (alignment + 1 > 16 * m_length) continue;
            if (auto payload = decodeAt(static_cast<std::size_t>(alignment)); !payload.empty())
                return payload;
        }
        return "";
    }

    std::string decodeAt(std::size_t alignment) {
        const auto bytesPerTx = static_cast<std::size_t>(m_protocol.bytesPerTx);
        const auto frames = static_cast<std::size_t>(m_protocol.framesPerTx);
        std::vector<std::uint8_t> coded(199 + bytesPerTx), data(141);
        std::size_t length = 0;
        for (std::size_t k = 0; k < 1024 && (k + 1) * bytesPerTx < 199; ++k) {
            const std::size_t position = alignment + k * frames * 16;
            if (position >= static_cast<std::size_t>(m_length) * 16) break;
            if (length > 0 && k * bytesPerTx > length + 3 + ecc(length) + 1) break;
            std::vector<float> sum(m_n);
            for (std::size_t i = 0; i < frames * m_n; ++i) {
                const std::size_t at = position * m_n / 16 + i;
                if (at / m_n < m_recording.size()) sum[i % m_n] += m_recording[at / m_n][at % m_n];
            }
            const auto spectrum = power(sum);
            for (std::size_t t = 0; t < 2 * bytesPerTx; ++t) {
                const auto* band = spectrum.data() + m_protocol.freqStart + 16 * static_cast<int>(t);
                const auto tone = std::max_element(band, band + 16) - band; // the first of equal ones
                coded[k * bytesPerTx + t / 2] =
                    static_cast<std::uint8_t>(t % 2 == 0 ? tone : coded[k * bytesPerTx + t / 2] + 16 * tone);
            }
            if (length == 0 && k * bytesPerTx > 3) {
                if (RS::ReedSolomon(1, 2).DecodeBlock(coded.data(), coded.data() + 1, data.data()) != 0)
                    return "";
                length = data[0];
                const std::size_t least = (length + 3 + ecc(length) + bytesPerTx - 1) / bytesPerTx * frames;
                const auto heard = static_cast<std::size_t>(m_length);
                if (length < 1 || length > 140 || heard < least || heard > least + 32) return "";
            }
        }
        if (length == 0) return "";
        RS::ReedSolomon code(static_cast<std::uint8_t>(length), static_cast<std::uint8_t>(ecc(length)));
        if (code.DecodeBlock(coded.data() + 3, coded.data() + 3 + length, data.data()) != 0) return "";
        return std::string(data.begin(), data.begin() + static_cast<std::ptrdiff_t>(length));
    }

    static std::size_t ecc(std::size_t length) {
        return static_cast<std::size_t>(getECCBytesForLength(static_cast<int>(length)));
    }

    GGWave::Protocol m_protocol;
    std::size_t m_n;
    std::vector<std::vector<float>> m_history, m_recording;
    std::size_t m_row = 0;
    std::vector<float> m_w, m_spectrum;
    std::vector<int> m_ip;
    bool m_receiving = false;
    int m_toRecord = 0, m_left = 0, m_length = 0;
};
