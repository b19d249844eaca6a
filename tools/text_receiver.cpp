#include "tools/text_receiver.hpp"

#include "sdk/CPP_wrapper.hpp"

#include <algorithm>
#include <utility>

namespace sorvel {

namespace {

constexpr std::uint64_t kRate_hz = 96000;
constexpr std::size_t kBlock_samples = 9600;
constexpr std::uint64_t kSilence_samples = 4 * kRate_hz; // the decoder looks back over 3.3 s

/// The listener refuses an empty prefix; its decoder then takes this one and listens to everything.
constexpr const char* kEveryPrefix = "*";

class DecoderOfEveryText final : public Decoder {
public:
    void InitSorvelWave() override { m_bridge.InitSorvelWave(); }
    std::int32_t Decode(const void* waveform, std::int32_t waveformSize, void* payloadBuffer,
                        const std::string& /*prefix*/) override {
        return m_bridge.Decode(waveform, waveformSize, payloadBuffer, m_noPrefix);
    }

private:
    CPP_wrapper m_bridge;
    std::string m_noPrefix;
};

} // namespace

std::unique_ptr<Decoder> decoderOfEveryText() { return std::make_unique<DecoderOfEveryText>(); }

/// The recording's own time. Where repeats are wanted it runs a hundred times as fast, so that no
/// text comes within a second of the one before.
class TextReceiver::RecordedTime final : public Clock {
public:
    explicit RecordedTime(Repeats repeats) : m_pace(repeats == Repeats::Report ? 100.0 : 1.0) {}
    double now() const noexcept override { return m_pace * m_seconds; }
    void pass(std::size_t samples) {
        m_seconds += static_cast<double>(samples) / static_cast<double>(kRate_hz);
    }

private:
    double m_pace, m_seconds = 0.0;
};

/// The listener's main queue: this thread runs it after each block.
class TextReceiver::Texts final : public TaskQueue {
public:
    void async(std::function<void()> task) override { m_tasks.push_back(std::move(task)); }
    void run() {
        for (const auto& task : std::exchange(m_tasks, {})) task();
    }

private:
    std::vector<std::function<void()>> m_tasks;
};

TextReceiver::TextReceiver(const std::string& prefix, Repeats repeats, const Platform& platform,
                           std::function<void(const Heard&)> deliver)
    : RecordingReceiver(static_cast<double>(kRate_hz)), m_clock(std::make_shared<RecordedTime>(repeats)),
      m_texts(std::make_shared<Texts>()), m_capture(static_cast<double>(kRate_hz), 1,
                                                    [&] {
                                                        Platform own = platform;
                                                        own.mainQueue = m_texts;
                                                        own.gateClock = m_clock;
                                                        own.progress = nullptr;
                                                        if (prefix.empty()) {
                                                            own.makeDecoder = decoderOfEveryText;
                                                            own.http = nullptr;
                                                        }
                                                        return own;
                                                    }()),
      m_listener(prefix.empty() ? kEveryPrefix : prefix, m_capture.platform()),
      m_deliver(std::move(deliver)) {
    m_listener.setCallBack([this](const std::string& text) {
        const std::uint64_t time = m_end ? std::min(m_time, *m_end) : m_time;
        m_deliver({text, static_cast<double>(time) / static_cast<double>(kRate_hz)});
    });
}

void TextReceiver::start() {
    m_time = 0;
    m_end.reset();
    m_listener.startListening();
}

void TextReceiver::complete() {
    m_end = m_time;

    static constexpr std::array<float, kBlock_samples> kSilence{};
    push(std::span(kSilence).first(kBlock_samples - m_time % kBlock_samples));
    while (m_time < *m_end + kSilence_samples) push(kSilence);
    m_listener.stopListening();
}

/// In pieces that end where the listener's blocks end, so that a text has its block's time.
void TextReceiver::push(std::span<const float> converted) {
    while (!converted.empty()) {
        const std::size_t room = kBlock_samples - m_time % kBlock_samples;
        const std::span<const float> piece = converted.first(std::min(converted.size(), room));
        converted = converted.subspan(piece.size());
        m_time += piece.size();
        m_clock->pass(piece.size());
        m_capture.push(piece);
        m_texts->run();
    }
}

} // namespace sorvel
