#include "bench/hearing/echo.hpp"

#include "tools/simulated_air.hpp"

namespace sorvel::hearing {

std::vector<float> heardInRoom(const Waveform& waveform, const Hearing& hearing, const Room& room,
                               std::size_t samples, const Draw& draw) {
    std::mt19937 generator = draw.generator(Stream::Room);
    const std::vector<float> response = air::roomResponse(room.rt60_s, room.directToEcho_db, hearing.rate_hz,
                                                          static_cast<std::uint32_t>(generator()));

    std::vector<std::vector<float>> parts(room.speeds, std::vector<float>(response.size()));
    std::uniform_int_distribution<std::size_t> group(0, room.speeds - 1);
    parts[0][0] = response[0];
    for (std::size_t i = 1; i < response.size(); ++i) parts[group(generator)][i] = response[i];

    std::vector<float> sound(samples);
    for (std::size_t i = 0; i < parts.size(); ++i) {
        Hearing path = hearing;
        if (i > 0) path.share *= uniform(generator, -1.0, 1.0);
        std::vector<float> dry(samples);
        add(waveform, path, 1.0, dry);
        const std::vector<float> wet = air::convolved(dry, parts[i]);
        for (std::size_t k = 0; k < samples; ++k) sound[k] += wet[k];
    }
    return sound;
}

} // namespace sorvel::hearing
