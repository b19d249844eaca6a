/// What receivers of texts tell.
#pragma once

#include <optional>
#include <string>

namespace sorvel::deep {
struct Reception;
}

namespace sorvel {

/// How a text was heard, as far as the deep receiver tells; all finite.
struct Circumstances {
    double snr_db = 0.0;    ///< tones over noise from 18.0 to 19.5 kHz
    double speed_m_s = 0.0; ///< at which the source came closer
    double echo = 0.0;      ///< part of a tone's energy that rang on for 192 ms
    double margin = 0.0;    ///< nats above what a text must have to be believed
};

/// Silence around a transmission has no noise to compare with: what is not finite is cut to a large number.
Circumstances circumstances(const deep::Reception& heard);

struct Heard {
    std::string text;
    /// From the recording's start to where the text was complete: the end of the block, of some
    /// 100 ms, or with the deep receiver the transmission's own.
    double time_s = 0.0;
    std::optional<Circumstances> circumstances = std::nullopt; ///< of the deep receiver
};

} // namespace sorvel
