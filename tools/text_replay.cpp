#include "tools/text_replay.hpp"

#include "sdk/CPP_wrapper.hpp"

#include <algorithm>
#include <array>
#include <utility>
#include <vector>

namespace sorvel {

namespace {

constexpr double kRate_hz = 96000.0;
constexpr std::size_t kBlock_samples = 9600;
constexpr double kBetween_s = 4.0; // so that no text is a repeat of the recording before

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

/// For decoders that share one state.
class Shared final : public Decoder {
public:
    explicit Shared(std::shared_ptr<Decoder> decoder) : m_decoder(std::move(decoder)) {}
    void InitSorvelWave() override { m_decoder->InitSorvelWave(); }
    std::int32_t Decode(const void* waveform, std::int32_t waveformSize, void* payloadBuffer,
                        const std::string& prefix) override {
        return m_decoder->Decode(waveform, waveformSize, payloadBuffer, prefix);
    }

private:
    std::shared_ptr<Decoder> m_decoder;
};

} // namespace

std::unique_ptr<Decoder> decoderOfEveryText() { return std::make_unique<DecoderOfEveryText>(); }

/// The recordings' own time, one behind the other. Where repeats are wanted it runs a hundred times as fast,
/// so that no text comes within a second of the one before.
class TextReplay::RecordedTime final : public Clock {
public:
    explicit RecordedTime(Repeats repeats) : m_pace(repeats == Repeats::Report ? 100.0 : 1.0) {}
    double now() const noexcept override { return m_pace * (m_start_s + m_time_s); }
    void set(double time_s) { m_time_s = time_s; }
    void next(double length_s) {
        m_start_s += length_s + kBetween_s;
        m_time_s = 0.0;
    }

private:
    double m_pace, m_start_s = 0.0, m_time_s = 0.0;
};

/// Hears in any block the text that was found.
class TextReplay::Found final : public Decoder {
public:
    void InitSorvelWave() override {}
    std::int32_t Decode(const void* /*waveform*/, std::int32_t /*waveformSize*/, void* payloadBuffer,
                        const std::string& /*prefix*/) override {
        const std::size_t size = std::min<std::size_t>(heard.text.size(), 256);
        std::copy_n(heard.text.begin(), size, static_cast<char*>(payloadBuffer));
        return static_cast<std::int32_t>(size);
    }

    Heard heard;
};

/// The listener's main queue: this thread runs it after each text.
class TextReplay::Texts final : public TaskQueue {
public:
    void async(std::function<void()> task) override { m_tasks.push_back(std::move(task)); }
    void run() {
        for (const auto& task : std::exchange(m_tasks, {})) task();
    }

private:
    std::vector<std::function<void()>> m_tasks;
};

TextReplay::TextReplay(const std::string& prefix, Repeats repeats, const Platform& platform,
                       std::function<void(const Heard&)> deliver)
    : m_clock(std::make_shared<RecordedTime>(repeats)), m_found(std::make_shared<Found>()),
      m_texts(std::make_shared<Texts>()),
      m_capture(kRate_hz, 1,
                [&] {
                    Platform own = platform;
                    own.mainQueue = m_texts;
                    own.gateClock = m_clock;
                    own.progress = nullptr;
                    own.makeDecoder = [found = m_found] { return std::make_unique<Shared>(found); };
                    if (prefix.empty()) own.http = nullptr;
                    return own;
                }()),
      m_listener(prefix.empty() ? kEveryPrefix : prefix, m_capture.platform()) {
    m_listener.setCallBack([found = m_found, deliver = std::move(deliver)](const std::string& text) {
        deliver({text, found->heard.time_s, found->heard.circumstances});
    });
}

void TextReplay::begin() { m_listener.startListening(); }

void TextReplay::take(const Heard& heard) {
    static constexpr std::array<float, kBlock_samples> kBlock{};
    m_clock->set(heard.time_s);
    m_found->heard = heard;
    m_capture.push(kBlock);
    m_texts->run();
}

void TextReplay::end(double length_s) {
    m_listener.stopListening();
    m_clock->next(length_s);
}

} // namespace sorvel
