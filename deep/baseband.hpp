#pragma once

#include "deep/band.hpp"

#include <algorithm>
#include <cstdint>
#include <vector>

namespace sorvel::deep {

/// The last seconds of the baseband, contiguous, so that whoever looks back needs no copy.
///
/// Samples are named by their number since the beginning; sample n is the middle of time n * 3 / 8000 s.
class Baseband {
public:
    /// Always at hand, 4.2 s: a transmission, and the 0.9 s that an attempt at it may take and look around.
    static constexpr std::ptrdiff_t kKept = 11264;

    Baseband() : m_re(kKept + kRoom), m_im(kKept + kRoom) { reset(); }

    /// As if silence had gone before.
    void reset() {
        std::fill(m_re.begin(), m_re.end(), 0.0F);
        std::fill(m_im.begin(), m_im.end(), 0.0F);
        m_filled = kKept;
        m_end = 0;
    }

    /// Number of the sample that comes next.
    std::int64_t end() const { return m_end; }
    /// Where sample `first` lies; at least `end() - kKept`. Good until `makeRoom`.
    const float* re(std::int64_t first) const { return &m_re[place(first)]; }
    const float* im(std::int64_t first) const { return &m_im[place(first)]; }

    /// Makes room for a block of samples behind the last one; moves what is kept.
    void makeRoom() {
        if (m_filled + kBlock <= m_re.size()) return;
        for (std::vector<float>* const part : {&m_re, &m_im}) {
            const auto filled = part->begin() + static_cast<std::ptrdiff_t>(m_filled);
            std::copy(filled - kKept, filled, part->begin());
        }
        m_filled = kKept;
    }
    /// Where they may be written, for `append` to count them in, at once or by and by.
    float* nextRe() { return &m_re[m_filled]; }
    float* nextIm() { return &m_im[m_filled]; }
    void append(std::size_t count) {
        m_filled += count;
        m_end += static_cast<std::int64_t>(count);
    }

private:
    static constexpr std::size_t kRoom = 1024; // for samples until the kept ones move to the front

    std::size_t place(std::int64_t number) const {
        return m_filled - static_cast<std::size_t>(std::min<std::int64_t>(m_end - number, kKept));
    }

    std::vector<float> m_re, m_im;
    std::size_t m_filled = 0;
    std::int64_t m_end = 0;
};

} // namespace sorvel::deep
