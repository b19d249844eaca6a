#include "tools/text_receiver.hpp"

#include <algorithm>
#include <string_view>
#include <utility>

namespace sorvel {

namespace {

constexpr std::uint64_t kRate_hz = 96000;
constexpr std::uint64_t kSilence_samples = 4 * kRate_hz; // the decoder looks back over 3.3 s
constexpr std::size_t kPiece_samples = 4096;

std::string lowerCase(std::string text) {
    for (char& c : text)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return text;
}

} // namespace

TextReceiver::TextReceiver(std::string prefix, Repeats repeats, std::function<void(const Heard&)> deliver)
    : m_prefix(lowerCase(std::move(prefix))), m_repeats(repeats), m_deliver(std::move(deliver)),
      m_converted(kPiece_samples) {
    m_decoder.InitSorvelWave();
}

void TextReceiver::begin(double sampleRate_hz) {
    m_converter.emplace(sampleRate_hz, static_cast<double>(kRate_hz));
    m_gathered = 0;
    m_time = 0;
    m_lastCount.reset();
    m_end.reset();
}

void TextReceiver::take(std::span<const float> mono) {
    while (!mono.empty()) {
        const Converted step = m_converter->convert(mono, m_converted);
        mono = mono.subspan(step.consumed);
        gather(std::span(m_converted).first(step.produced));
    }
}

void TextReceiver::end() {
    while (const std::size_t produced = m_converter->flush(m_converted))
        gather(std::span(m_converted).first(produced));
    m_end = m_time + m_gathered;

    static constexpr std::array<float, kBlock_samples> kSilence{};
    while (m_time < *m_end + kSilence_samples) gather(std::span(kSilence).first(kBlock_samples - m_gathered));
}

void TextReceiver::gather(std::span<const float> converted) {
    while (!converted.empty()) {
        const std::span<const float> piece =
            converted.first(std::min(converted.size(), m_block.size() - m_gathered));
        toInt16(piece, std::span(m_block).subspan(m_gathered));
        converted = converted.subspan(piece.size());
        m_gathered += piece.size();
        if (m_gathered == m_block.size()) decodeBlock();
    }
}

void TextReceiver::decodeBlock() {
    m_gathered = 0;
    m_time += m_block.size();
    std::array<char, 256> text{};
    const std::int32_t length =
        m_decoder.Decode(m_block.data(), static_cast<std::int32_t>(sizeof m_block), text.data(), m_prefix);
    if (length > 0) judge(std::string(text.data(), static_cast<std::size_t>(length)));
}

void TextReceiver::judge(std::string text) {
    if (text == "ERROR") return; // a damaged payload; only an empty prefix lets it through
    const bool isRepeat = m_lastCount && m_time - *m_lastCount <= kRate_hz;
    if (isRepeat && m_repeats == Repeats::Drop) return;
    m_lastCount = m_time;
    const std::uint64_t time = m_end ? std::min(m_time, *m_end) : m_time;
    m_deliver({std::move(text), static_cast<double>(time) / static_cast<double>(kRate_hz)});
}

} // namespace sorvel
