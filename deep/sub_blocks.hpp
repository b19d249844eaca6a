#pragma once

#include "deep/energies.hpp"

#include <vector>

namespace sorvel::deep {

/// A second view of a transmission that rings: chunks by the mean of seven short looks instead of one long
/// one, without the first 24 ms, in which the chunk before is loudest.
///
/// In each look the two tones share out what there is, so that one strong moment, or an echo's late beat,
/// does not outvote the others.
///
/// Thread: one at a time. Allocates in the constructor only.
class SubBlocks {
public:
    SubBlocks();
    /// @param place  from a Refinement of the same samples
    void score(SampleView samples, const Place& place, Scores& scores) noexcept;

private:
    void tune(float shift) noexcept;

    std::vector<float> m_cosines, m_sines; // 32 rows of a block
};

} // namespace sorvel::deep
