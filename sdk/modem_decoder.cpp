#include "sdk/CPP_wrapper.hpp"
#include "sdk/block_decoding.hpp"

namespace sorvel {

namespace {

class ModemDecoder final : public Decoder {
public:
    void InitSorvelWave() override { m_wrapper.InitSorvelWave(); }
    std::int32_t Decode(const void* waveform, std::int32_t waveformSize, void* payloadBuffer,
                        const std::string& prefix) override {
        return m_wrapper.Decode(waveform, waveformSize, payloadBuffer, prefix);
    }

private:
    CPP_wrapper m_wrapper;
};

} // namespace

std::unique_ptr<Decoder> makeModemDecoder() { return std::make_unique<ModemDecoder>(); }

} // namespace sorvel
