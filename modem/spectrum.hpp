/// Frame -> power spectrum.
#pragma once

#include "modem/layout.hpp"

namespace sorvel::modem {

/// The transform of a receiver, its work arrays and the newest spectrum.
///
/// Bin 0 mixes the constant and the Nyquist share; the bins from samplesPerFrame / 2 on are always
/// zero. No window, no normalisation.
class Spectrum {
public:
    void place(Layout& layout, int samplesPerFrame);

    /// The power spectrum of one frame, which is news until `takeNews`. The view stays valid.
    std::span<const float> analyse(std::span<const float> frame);

    /// The same in two steps, without the news: sum up in `samples()`,
    /// which the transform overwrites.
    std::span<float> samples() const { return m_fftOut.span().first(m_power.span().size()); }
    std::span<const float> analyseSamples();

    ggvector<float> power() const { return m_power; }
    bool takeNews();
    void forget() { m_power.zero(); }

    /// Powers of two from 2 on.
    static constexpr bool canTransform(int samples) { return samples >= 2 && (samples & (samples - 1)) == 0; }
    /// Transforms a frame in place; false without work arrays, or for frames that cannot be.
    bool transform(float* frame);

private:
    bool m_isNews = false;
    // In the order of the working block
    ggvector<float> m_fftOut;
    ggvector<int> m_fftWorkI;
    ggvector<float> m_fftWorkF;
    ggvector<float> m_power;
};

} // namespace sorvel::modem
