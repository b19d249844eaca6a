#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <span>
#include <vector>

/// The rate conversion as its plain sum: one sample shifted at a time, every weight looked up and
/// interpolated, everything in double. Slow, and shares nothing with the modem's.
class LiteralConverter {
protected:
    LiteralConverter() {
        m_table[0] = 1.0F;
        for (int j = 1; j < 2048; ++j) {
            const double x = std::numbers::pi * j / 32.0;
            m_table[static_cast<std::size_t>(j)] =
                static_cast<float>(static_cast<double>(static_cast<float>(std::sin(x) / x)) *
                                   (0.5 + 0.5 * std::cos(std::numbers::pi * j / 2048.0)));
        }
    }
    void shiftIn(float sample) {
        std::rotate(m_delay.begin(), m_delay.begin() + 1, m_delay.begin() + 136);
        m_delay[135] = sample;
    }
    /// At `time`, where samples from `limit` on are not there.
    float sum(double time, int limit, float factor) const {
        const int integer = static_cast<int>(time);
        const int left = std::max(static_cast<int>(time - 64.0 + 1.0), 0);
        const int right = std::min(static_cast<int>(time + 64.0), limit);
        double sum = 0.0;
        for (int j = left; j < right; ++j) {
            const double sample = static_cast<double>(m_delay[static_cast<std::size_t>(j - integer + 64)]);
            const double f = static_cast<double>(factor);
            sum += factor < 1.0F ? sample * sinc(time - j) : 1.0 / f * sample * sinc((time - j) / f);
        }
        return static_cast<float>(sum);
    }

private:
    double sinc(double x) const {
        x = std::fabs(x);
        if (x >= 63.0) return 0.0;
        const auto i = static_cast<std::size_t>(32.0 * x);
        const auto low = static_cast<double>(m_table[i]), high = static_cast<double>(m_table[i + 1]);
        return low + (high - low) * (32.0 * x - static_cast<double>(i));
    }

    std::array<float, 2048> m_table{};
    std::array<float, 192> m_delay{};
};

/// Of a stream: the last 64 samples of a call wait for the next.
class LiteralResampler : LiteralConverter {
public:
    std::vector<float> resample(float factor, std::span<const float> samples) {
        std::vector<float> input(m_edge.begin(), m_edge.end());
        input.insert(input.end(), samples.begin(), samples.end());
        std::copy(samples.end() - 64, samples.end(), m_edge.begin());
        m_total += static_cast<int>(samples.size());

        std::vector<float> out;
        for (std::size_t consumed = 0;;) {
            for (; m_last < m_integer; ++m_last) {
                if (consumed >= samples.size()) return out;
                shiftIn(input[consumed++]);
            }
            out.push_back(sum(m_time, m_total + 64, factor));
            m_time += static_cast<double>(factor);
            m_last = m_integer;
            m_integer = static_cast<int>(m_time);
        }
    }

private:
    std::array<float, 64> m_edge{};
    int m_total = 0, m_last = 0, m_integer = 0;
    double m_time = 0.0;
};

/// Block by block: time starts at 0 in each call, and the call ends with its last sample shifted in.
class LiteralBlockResampler : LiteralConverter {
public:
    std::vector<float> resample(float factor, std::span<const float> samples) {
        const int limit = static_cast<int>(samples.size()) + 64;
        std::vector<float> out;
        int shifted = 0;
        for (double time = 0.0;; time += static_cast<double>(factor)) {
            while (shifted < static_cast<int>(time)) {
                shiftIn(samples[static_cast<std::size_t>(shifted)]);
                if (++shifted == static_cast<int>(samples.size())) return out;
            }
            out.push_back(sum(time, limit, factor));
        }
    }
};
