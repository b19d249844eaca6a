#pragma once

#include "deep/energies.hpp"
#include "deep/workspace.hpp"

namespace sorvel::deep {

/// A second view of a transmission that rings: chunks by the mean of seven short looks instead of one long
/// one, without the first 24 ms, in which the chunk before is loudest.
///
/// In each look the two tones share out what there is, so that one strong moment, or an echo's late beat,
/// does not outvote the others.
///
/// Thread: one at a time. Allocates nothing.
class SubBlocks {
public:
    /// @param workspace  lent for good, needed within `score` alone
    explicit SubBlocks(Workspace& workspace) : m_workspace(workspace) {}
    /// @param place  from a Refinement of the same samples
    void score(SampleView samples, const Place& place, Scores& scores) noexcept;

private:
    struct Work {
        using Rows = std::array<float, kTones * kBlock>;
        Rows cosines, sines; ///< by tone and sample of a block
    };

    static void tune(Work& work, float shift) noexcept;

    Workspace& m_workspace;
};

} // namespace sorvel::deep
