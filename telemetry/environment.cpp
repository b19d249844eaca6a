#include "telemetry/environment.hpp"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <random>

namespace sorvel {

namespace {

class SystemClock final : public Clock {
public:
    double now() const noexcept override {
        return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
    }
};

class MemoryStore final : public KeyValueStore {
public:
    std::optional<std::string> string(const std::string& key) override {
        const std::lock_guard lock(m_mutex);
        const auto found = m_values.find(key);
        return found == m_values.end() ? std::nullopt : std::optional(found->second);
    }
    void setString(const std::string& key, const std::string& value) override {
        const std::lock_guard lock(m_mutex);
        m_values[key] = value;
    }

private:
    std::mutex m_mutex;
    std::map<std::string, std::string> m_values;
};

class UnknownDevice final : public DeviceFacts {
public:
    std::string timeZoneName() override { return "UTC"; }
    int utcOffset_s(double) override { return 0; }
    std::string osVersion() override { return "unknown"; }
    std::string modelName() override { return "unknown"; }
};

class RandomUuids final : public UuidGenerator {
public:
    std::string make() override {
        std::random_device random;
        std::string text =
            "xxxxxxxx-xxxx-4xxx-yxxx-xxxxxxxxxxxx"; // 4: random; y: 8, 9, A or B (RFC 4122, 4.4)
        for (char& digit : text) {
            if (digit != 'x' && digit != 'y') continue;
            const unsigned bits = random() & 15U;
            digit = "0123456789ABCDEF"[digit == 'x' ? bits : 8U | (bits & 3U)];
        }
        return text;
    }
};

struct Shared {
    std::mutex mutex;
    Environment environment;
};

Shared& shared() {
    static Shared instance;
    return instance;
}

} // namespace

std::shared_ptr<Clock> portableClock() { return std::make_shared<SystemClock>(); }
std::shared_ptr<KeyValueStore> memoryStore() { return std::make_shared<MemoryStore>(); }
std::shared_ptr<DeviceFacts> unknownDevice() { return std::make_shared<UnknownDevice>(); }
std::shared_ptr<UuidGenerator> portableUuids() { return std::make_shared<RandomUuids>(); }

Environment sharedEnvironment() {
    const std::lock_guard lock(shared().mutex);
    return shared().environment;
}

void setSharedEnvironment(Environment environment) {
    const std::lock_guard lock(shared().mutex);
    std::swap(shared().environment, environment); // what was there ends outside the lock
}

bool isHeaderSafe(std::string_view value) noexcept {
    for (const char character : value) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte < 0x20 || byte == 0x7F) return false;
    }
    return true;
}

bool isUtf8(std::string_view text) noexcept {
    const auto byteAt = [&](std::size_t at) { return static_cast<std::uint8_t>(text[at]); };
    for (std::size_t at = 0; at < text.size();) {
        const std::uint8_t lead = byteAt(at++);
        if (lead < 0x80) continue;
        if (lead < 0xC2 || lead > 0xF4) return false;
        std::size_t rest = 1U + (lead >= 0xE0) + (lead >= 0xF0);
        // Only the first of the following bytes has a range of its own: it rules out overlong forms,
        // surrogates and what lies above U+10FFFF.
        std::uint8_t lowest = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
        std::uint8_t highest = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
        for (; rest > 0; --rest, ++at) {
            if (at == text.size() || byteAt(at) < lowest || byteAt(at) > highest) return false;
            lowest = 0x80;
            highest = 0xBF;
        }
    }
    return true;
}

} // namespace sorvel
