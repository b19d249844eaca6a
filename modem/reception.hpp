/// What was received and waits to be taken.
#pragma once

#include "modem/dss.hpp"
#include "modem/layout.hpp"

namespace sorvel::modem {

struct Reception {
    ggvector<std::uint8_t> data; // room for the longest payload and one byte more
    int length = 0;              // bytes that wait; 0: nothing; -1: a reception that failed
    GGWave::Protocol protocol;   // of the last payload
    ggwave_ProtocolId protocolId = GGWAVE_PROTOCOL_COUNT;

    /// Announces `bytes` decoded bytes in `data`, freed of spreading where there was any.
    void deliver(int bytes, const GGWave::Protocols& protocols, ggwave_ProtocolId id, bool isSpread) {
        for (int i = 0; isSpread && i < bytes; ++i)
            data[i] = detail::spread(data[i], static_cast<std::size_t>(i));
        length = bytes;
        protocol = protocols[static_cast<std::size_t>(id)];
        protocolId = id;
    }
};

} // namespace sorvel::modem
