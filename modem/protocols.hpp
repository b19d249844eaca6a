/// Queries over the enabled rows of a protocol table, which size the working block and the search;
/// the table itself is GGWave::Protocols.
#pragma once

#include "modem/ggwave.h"

namespace sorvel::modem {

int minFreqStart(const GGWave::Protocols& protocols, int samplesPerFrame); ///< at most samplesPerFrame
int minBytesPerTx(const GGWave::Protocols& protocols);                     ///< at most 1
int maxBytesPerTx(const GGWave::Protocols& protocols);                     ///< at least 1
int maxFramesPerTx(const GGWave::Protocols& protocols, bool excludeMT);    ///< excludeMT: no mono-tone rows
int maxTonesPerTx(const GGWave::Protocols& protocols);                     ///< at least 1

/// Hz of the lower tone of pair `bit`, with bins of `hzPerBin`.
float bitFreq(const GGWave::Protocol& protocol, int bit, float hzPerBin);

} // namespace sorvel::modem
