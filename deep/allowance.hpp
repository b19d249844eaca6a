#pragma once

#include <algorithm>

namespace sorvel::deep {

/// What work may cost in the long run: an account that grows with the sound, up to a limit, and is drawn on.
class Allowance {
public:
    /// @param perBlock_us  growth with each block of 24 ms
    Allowance(float perBlock_us, float limit_us)
        : m_perBlock(perBlock_us), m_limit(limit_us), m_left(limit_us) {}

    void reset() noexcept { m_left = m_limit; }
    void grow() noexcept { m_left = std::min(m_left + m_perBlock, m_limit); }
    void draw(int cost_us) noexcept { m_left -= static_cast<float>(cost_us); }
    bool has(float cost_us) const noexcept { return m_left >= cost_us; }

private:
    float m_perBlock, m_limit, m_left;
};

} // namespace sorvel::deep
