#include "deep/line_tracker.hpp"

#include "deep/target_clones.hpp"

#include <algorithm>

namespace sorvel::deep {

namespace {

constexpr ShortFloat kNever = 0x7f7f; // as good as infinite
constexpr float kNew = 8.0F;
constexpr float kLoud = 2.0F; // the quietest of 13 rows of noise, a chunk apart, has a thirteenth of its mean

SORVEL_DEEP_CLONES
void divide(float* __restrict power, ShortFloat* __restrict quietest, const float* __restrict line,
            std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        quietest[i] = std::min(quietest[i], shortened(power[i]));
        power[i] /= line[i];
    }
}

SORVEL_DEEP_CLONES
bool quietestOfAll(const ShortFloat* spans, std::size_t count, std::size_t bins, float* line) {
    int isNew = 0;
    for (std::size_t i = 0; i < bins; ++i) {
        ShortFloat least = spans[i];
        for (std::size_t span = 1; span < count; ++span) least = std::min(least, spans[span * bins + i]);
        const float before = line[i];
        line[i] = lengthened(least) > kLoud ? lengthened(least) : 1.0F;
        isNew |= before == 1.0F && line[i] >= kNew ? 1 : 0;
    }
    return isNew != 0;
}

} // namespace

LineTracker::LineTracker(std::size_t bins, std::size_t spans, std::size_t rowsPerSpan)
    : m_spans(spans), m_rowsPerSpan(rowsPerSpan), m_line(bins), m_quietest(bins), m_quietestOf(spans * bins) {
    reset();
}

void LineTracker::reset() noexcept {
    std::fill(m_line.begin(), m_line.end(), 1.0F);
    std::fill(m_quietest.begin(), m_quietest.end(), kNever);
    std::fill(m_quietestOf.begin(), m_quietestOf.end(), ShortFloat{0});
    m_row = m_span = 0;
}

bool LineTracker::takeOut(std::span<float> power) noexcept {
    divide(power.data(), m_quietest.data(), m_line.data(), m_line.size());
    return ++m_row == m_rowsPerSpan && endSpan();
}

bool LineTracker::endSpan() noexcept {
    std::copy(m_quietest.begin(), m_quietest.end(),
              m_quietestOf.begin() + static_cast<std::ptrdiff_t>(m_span * m_quietest.size()));
    m_row = 0;
    m_span = (m_span + 1) % m_spans;
    std::fill(m_quietest.begin(), m_quietest.end(), kNever);
    return quietestOfAll(m_quietestOf.data(), m_spans, m_line.size(), m_line.data());
}

} // namespace sorvel::deep
