#include "bench/hearing/receivers.hpp"
#include "deep/receiver.hpp"
#include "deep/small_receiver.hpp"

#include <stdexcept>

namespace sorvel::hearing {

namespace {

template <typename Receiver>
class DeepReceiver final : public TestedReceiver {
public:
    DeepReceiver(double rate_hz, std::string_view prefix) : m_receiver(rate_hz, prefix) {
        if (!m_receiver.isReady()) throw std::runtime_error("the deep receiver refuses rate or prefix");
    }

    void begin() override { m_receiver.reset(); }
    void push(std::span<const float> block, std::vector<std::string>& heard) override {
        m_receiver.push(block);
        take(heard);
    }
    void end(std::vector<std::string>& heard) override {
        m_receiver.finish();
        take(heard);
    }

private:
    void take(std::vector<std::string>& heard) {
        deep::Reception reception;
        while (m_receiver.poll(reception)) heard.emplace_back(reception.text.data());
    }

    Receiver m_receiver;
};

} // namespace

std::unique_ptr<TestedReceiver> makeDeepReceiver(double rate_hz, std::string_view prefix) {
    return std::make_unique<DeepReceiver<deep::Receiver>>(rate_hz, prefix);
}

std::unique_ptr<TestedReceiver> makeSmallReceiver(double rate_hz, std::string_view prefix) {
    return std::make_unique<DeepReceiver<deep::SmallReceiver>>(rate_hz, prefix);
}

} // namespace sorvel::hearing
