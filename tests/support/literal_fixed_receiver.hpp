#pragma once

#include "modem/fft.h"
#include "modem/ggwave.h"
#include "modem/rs.hpp"

#include <cmath>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

/// The receiver of payloads of a known length, word for word: keeps every quantised spectrum and
/// counts the votes of a whole transmission anew after each frame. Shares the transform and the
/// code with the modem.
class LiteralFixedReceiver {
public:
    LiteralFixedReceiver(const GGWave::Protocols& protocols, int payloadLength, int samplesPerFrame)
        : m_protocols(protocols), m_length(payloadLength), m_n(static_cast<std::size_t>(samplesPerFrame)),
          m_first(m_n), m_rows(2 * 127 * 88, std::vector<int>(m_n)), m_w(m_n / 2), m_ip(64) {
        for (const auto& row : protocols)
            if (row.enabled) m_first = std::min(m_first, static_cast<std::size_t>(row.freqStart));
    }

    /// Takes one frame; answers the id and the payload of a transmission that ends with it.
    std::optional<std::pair<int, std::string>> hear(std::span<const float> frame) {
        std::vector<float> out(frame.begin(), frame.end());
        rdft(static_cast<int>(m_n), 1, out.data(), m_ip.data(), m_w.data());
        out.resize(2 * m_n);
        std::vector<float> power(m_n);
        for (std::size_t i = 0; i < m_n; ++i)
            power[i] = std::fma(out[2 * i], out[2 * i], out[2 * i + 1] * out[2 * i + 1]);
        float loudest = 0.0F;
        for (std::size_t i = 1; i < m_n / 2; ++i) {
            power[i] += power[m_n - i];
            if (i >= m_first && power[i] > loudest) loudest = power[i];
        }
        const float scale = loudest == 0.0F ? 255.0F : 255.0F / loudest;
        auto& row = m_rows[m_row];
        for (std::size_t i = 0; i < m_n; ++i)
            row[i] = static_cast<int>(std::clamp(std::round(scale * power[i]), 0.0F, 255.0F));
        m_row = (m_row + 1) % m_rows.size();

        for (std::size_t id = 0; id < m_protocols.size(); ++id) {
            if (!m_protocols[id].enabled || m_protocols[id].freqStart > static_cast<int>(m_n)) continue;
            if (auto payload = search(m_protocols[id])) return std::pair(static_cast<int>(id), *payload);
        }
        return std::nullopt;
    }

private:
    std::optional<std::string> search(const GGWave::Protocol& p) const {
        const int ecc = getECCBytesForLength(m_length), total = m_length + ecc;
        const int chunks = p.extra * ((total + p.bytesPerTx - 1) / p.bytesPerTx);
        std::size_t row =
            (m_row + m_rows.size() - static_cast<std::size_t>(chunks * p.framesPerTx)) % m_rows.size();
        std::vector<int> nibbles(static_cast<std::size_t>(2 * (total + p.bytesPerTx)));
        std::vector<int> votes(static_cast<std::size_t>(32 * p.bytesPerTx));
        int detected = 0, seen = 0;
        for (int k = 0; k < chunks; ++k) {
            if (k % p.extra == 0) votes.assign(votes.size(), 0);
            for (int f = 0; f < p.framesPerTx; ++f, row = (row + 1) % m_rows.size()) {
                for (int b = 0; b < p.bytesPerTx; ++b) {
                    const int low = loudestTone(row, p.freqStart + 32 * b);
                    const int high = p.extra == 1 ? loudestTone(row, p.freqStart + 32 * b + 16) : low;
                    if (k % p.extra == 0) ++votes[static_cast<std::size_t>(32 * b + low)];
                    if ((k + 1) % p.extra == 0) ++votes[static_cast<std::size_t>(32 * b + 16 + high)];
                }
            }
            if (p.extra > 1 && k % p.extra == 0) continue;
            for (int b = 0; b < p.bytesPerTx; ++b) {
                const int j = b + k / p.extra * p.bytesPerTx;
                if (j >= total) break;
                for (int t = 0; t < 32; ++t) {
                    if (votes[static_cast<std::size_t>(32 * b + t)] <= p.framesPerTx / 2) continue;
                    nibbles[static_cast<std::size_t>(2 * j + t / 16)] = t % 16;
                    ++detected;
                }
                seen += 2;
            }
        }
        if (seen * 0.75 > detected) return std::nullopt;
        std::vector<std::uint8_t> coded(static_cast<std::size_t>(total)), payload(coded.size());
        for (std::size_t j = 0; j < coded.size(); ++j)
            coded[j] = static_cast<std::uint8_t>(nibbles[2 * j] + 16 * nibbles[2 * j + 1]);
        RS::ReedSolomon code(static_cast<std::uint8_t>(m_length), static_cast<std::uint8_t>(ecc));
        if (code.DecodeBlock(coded.data(), coded.data() + m_length, payload.data()) != 0) return std::nullopt;
        return std::string(payload.begin(), payload.begin() + m_length);
    }

    int loudestTone(std::size_t row, int base) const {
        int tone = 0, most = 0;
        for (int t = 0; t < 16; ++t) {
            const auto bin = static_cast<std::size_t>(base + t);
            const int level = bin < m_n ? m_rows[row][bin] : 0;
            if (level >= most) most = level, tone = t;
        }
        return tone;
    }

    GGWave::Protocols m_protocols;
    int m_length;
    std::size_t m_n, m_first, m_row = 0;
    std::vector<std::vector<int>> m_rows;
    std::vector<float> m_w;
    std::vector<int> m_ip;
};
