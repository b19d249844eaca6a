#include "sdk/SorvelUBM.hpp"

#include "sdk/block_decoding.hpp"
#include "telemetry/Event.hpp"
#include "telemetry/EventHub.hpp"

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <exception>
#include <mutex>
#include <string_view>
#include <thread>

using sorvel::AudioResult;
using sorvel::AudioSession;
using sorvel::BlockDecoding;
using sorvel::Platform;

namespace {

constexpr std::uint32_t kBus = 0;
constexpr std::uint32_t kTapFrames = 4096;
constexpr double kGate_s = 1.0;
/// Before each further attempt to go on with the input that has become the default one.
constexpr std::array kPauses{std::chrono::milliseconds(200), std::chrono::milliseconds(500),
                             std::chrono::milliseconds(1000)};
constexpr std::string_view kNoSession = "Sorvel couldn't establish audio session";
constexpr std::string_view kDamaged = "ERROR"; // what the payload's text says when its check byte is wrong

/// Only ASCII letters change, so every other byte of a UTF-8 text stays.
std::string lowerCased(std::string text) {
    for (char& letter : text) {
        if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter - 'A' + 'a');
    }
    return text;
}

Platform checked(const Platform& platform) {
    const bool isComplete = platform.clock && platform.store && platform.facts && platform.uuids &&
                            platform.audioSession && platform.makeAudioEngine && platform.makeConverter &&
                            platform.mainQueue;
    if (!isComplete) throw MyError::runtimeError("the platform lacks a part that the listener needs");
    return platform;
}

/// The callback in force when a delivery's turn comes. An object of its own, so that a delivery
/// waiting in the main queue does not keep the listener, and with it the queue, alive. The capture
/// thread never looks into it.
template <typename... Arguments>
class CallBackSlot {
public:
    using CallBack = std::function<void(Arguments...)>;
    void set(CallBack callback) {
        const std::lock_guard lock(m_mutex);
        std::swap(m_callBack, callback); // the former one ends outside the lock
    }
    bool isSet() {
        const std::lock_guard lock(m_mutex);
        return static_cast<bool>(m_callBack);
    }
    void call(Arguments... arguments) {
        CallBack callback;
        {
            const std::lock_guard lock(m_mutex);
            callback = m_callBack;
        }
        if (callback) callback(arguments...); // may replace itself
    }

private:
    std::mutex m_mutex;
    CallBack m_callBack;
};

} // namespace

/// What handles and the tap's block share.
class SorvelUBM::Listener : public std::enable_shared_from_this<Listener> {
public:
    Listener(const std::string& prefix, const Platform& platform);

    void setCallBack(CallBack callback) { m_mainCallBack->set(std::move(callback)); }
    void setStateCallBack(StateCallBack callback) { m_stateCallBack->set(std::move(callback)); }
    void startListening();
    void stopListening();
    std::int64_t status() const noexcept { return m_status; }
    std::string reason() const {
        const std::lock_guard lock(m_reasonMutex);
        return m_reason;
    }
    bool micTapped() const noexcept { return m_micTapped; }

private:
    AudioResult establishSession();
    AudioResult openMicrophone();
    void loseMicrophone(sorvel::EngineEnd end, const std::string& reason);
    void changeMicrophone(std::size_t failures);
    bool tryAgainLater(std::size_t failures) noexcept;
    void enter(State state, const std::string& reason = {});
    void hear(BlockDecoding& decoding, const sorvel::AudioBuffer& block) noexcept;
    void deliver(std::string_view text);
    template <typename MakeEvent>
    void sendEvent(MakeEvent&& makeEvent) noexcept;
    void print(std::string_view line);
    double gateTime() const noexcept {
        return (m_platform.gateClock ? m_platform.gateClock : m_platform.clock)->now();
    }

    const Platform m_platform;
    using StateSlot = CallBackSlot<State, const std::string&>;
    const std::shared_ptr<CallBackSlot<const std::string&>> m_mainCallBack =
        std::make_shared<CallBackSlot<const std::string&>>();
    const std::shared_ptr<StateSlot> m_stateCallBack = std::make_shared<StateSlot>();
    std::mutex m_controlMutex; // one start or stop at a time; not taken on the capture thread
    std::uint64_t m_stops = 0; // so far: an attempt left over from before a stop is none any more
    std::shared_ptr<sorvel::AudioEngine> m_audioEngine;
    std::shared_ptr<sorvel::AudioInputNode> m_mic;
    std::atomic<bool> m_micTapped = false;
    std::atomic<std::int64_t> m_status = 0;
    mutable std::mutex m_reasonMutex; // not taken on the capture thread
    std::string m_reason;
    double m_timeout; // time of the last delivery; the capture thread's alone once a tap is installed
    std::string m_prefix;
    std::shared_ptr<sorvel::Decoder> m_wrapper;
    const std::string m_uuid;
};

// --- the application's thread

SorvelUBM::Listener::Listener(const std::string& prefix, const Platform& platform)
    : m_platform(checked(platform)), m_timeout(gateTime()),
      m_wrapper(platform.makeDecoder ? platform.makeDecoder() : sorvel::makeModemDecoder()),
      m_uuid(platform.uuids->make()) {
    sendEvent([&] { return Event::success(m_uuid, !prefix.empty(), prefix, m_platform); });
    if (prefix.empty())
        throw MyError::runtimeError("the prefix is empty: a listener needs the brand's prefix");
    m_prefix = lowerCased(prefix);
    (void)establishSession(); // a failure is printed; the object works as soon as a session can be had
    m_audioEngine = m_platform.makeAudioEngine();
    if (m_audioEngine) m_mic = m_audioEngine->inputNode();
    if (m_wrapper) m_wrapper->InitSorvelWave();
    print("Sorvel init");
}

AudioResult SorvelUBM::Listener::establishSession() {
    AudioSession& session = *m_platform.audioSession;
    AudioResult result = session.setCategory(AudioSession::Category::PlayAndRecord,
                                             AudioSession::MixWithOthers | AudioSession::DefaultToSpeaker);
    if (result.succeeded()) result = session.setActive(true);
    if (result.succeeded()) result = session.setAllowHapticsAndSystemSoundsDuringRecording(true);
    if (!result.succeeded()) print(kNoSession);
    return result;
}

void SorvelUBM::Listener::startListening() {
    const std::lock_guard lock(m_controlMutex);
    if (m_micTapped) return;
    print("Sorvel started listening for ubms");
    if (const AudioResult session = establishSession(); !session.succeeded())
        return enter(State::Failed, session.error());
    const AudioResult opened = openMicrophone();
    // A platform without input or converter is treated as one without a session, rather than ending
    // the process.
    if (!m_micTapped) print(kNoSession);
    enter(opened.succeeded() ? State::Listening : State::Failed, opened.error());
    if (m_micTapped) sendEvent([&] { return Event::microphone(m_uuid, true, "", m_platform); });
}

/// Puts the tap on the input as it is now, and starts the engine.
AudioResult SorvelUBM::Listener::openMicrophone() {
    if (!m_mic || !m_wrapper) return AudioResult::failure("there is no microphone");
    const sorvel::AudioFormat hardware = m_mic->outputFormat(kBus);
    if (m_micTapped) m_mic->removeTap(kBus); // the decoder is prepared while no block is under way
    const bool isTakenAsCaptured = m_wrapper->prepare(hardware, m_prefix);
    auto converter = isTakenAsCaptured ? nullptr : m_platform.makeConverter(hardware, sorvel::kTargetFormat);
    if (!converter && !isTakenAsCaptured)
        return AudioResult::failure("the microphone's rate or format cannot be converted");

    auto decoding =
        std::make_shared<BlockDecoding>(std::move(converter), m_wrapper, m_prefix, m_platform.progress);
    m_mic->installTap(kBus, kTapFrames, hardware,
                      [listener = shared_from_this(), decoding](const sorvel::AudioBuffer& block, double) {
                          listener->hear(*decoding, block);
                      });
    m_micTapped = true;
    m_audioEngine->setEndNotice([self = weak_from_this()](sorvel::EngineEnd end, const std::string& reason) {
        if (const auto listener = self.lock())
            listener->m_platform.mainQueue->async([self, end, reason] {
                if (const auto alive = self.lock()) alive->loseMicrophone(end, reason);
            });
    });
    if (m_audioEngine->isRunning()) return AudioResult::success();
    AudioResult started = m_audioEngine->start();
    m_status = started.succeeded() ? 1 : -1;
    return started;
}

/// On the main queue: the input has ended by itself.
void SorvelUBM::Listener::loseMicrophone(sorvel::EngineEnd end, const std::string& reason) {
    const std::lock_guard lock(m_controlMutex);
    if (!m_micTapped || m_audioEngine->isRunning()) return; // stopped or started since
    if (end == sorvel::EngineEnd::InputLost) return enter(State::Lost, reason);
    changeMicrophone(0);
}

/// Goes on with the input that has become the default one. A sound server that is busy with the
/// change may refuse it at first, so there are further attempts. The microphone stays on, so none
/// of this is an event.
void SorvelUBM::Listener::changeMicrophone(std::size_t failures) {
    const AudioResult opened = openMicrophone();
    if (opened.succeeded() || tryAgainLater(failures)) return;
    enter(State::Lost, opened.error());
}

/// The main queue knows no time, so a thread waits.
bool SorvelUBM::Listener::tryAgainLater(std::size_t failures) noexcept {
    if (failures == kPauses.size()) return false;
    const auto attempt = [self = weak_from_this(), stops = m_stops, failures] {
        const auto alive = self.lock();
        if (!alive) return;
        const std::lock_guard lock(alive->m_controlMutex);
        if (alive->m_stops == stops) alive->changeMicrophone(failures + 1);
    };
    try {
        std::thread([queue = m_platform.mainQueue, pause = kPauses[failures], attempt] {
            std::this_thread::sleep_for(pause);
            try {
                queue->async(attempt);
            } catch (const std::exception&) {
                return; // no memory just now: it stays lost until it is stopped
            }
        }).detach();
        return true;
    } catch (const std::exception&) { // no thread to be had
        return false;
    }
}

void SorvelUBM::Listener::enter(State state, const std::string& reason) {
    if (state != State::Stopped) {
        const std::lock_guard lock(m_reasonMutex);
        m_reason = reason;
    }
    if (!m_stateCallBack->isSet()) return;
    m_platform.mainQueue->async([slot = m_stateCallBack, state, reason] { slot->call(state, reason); });
}

void SorvelUBM::Listener::stopListening() {
    // Outlives the lock: the tap's block may hold the last reference.
    const std::shared_ptr<Listener> self = shared_from_this();
    const std::lock_guard lock(m_controlMutex);
    if (!m_micTapped) return;
    m_status = 0;
    ++m_stops;
    if (m_audioEngine->isRunning()) {
        m_audioEngine->stop();
        m_status = 1;
    }
    print("Sorvel stoped listening for ubms");
    m_mic->removeTap(kBus);
    m_micTapped = false;
    enter(State::Stopped);
    sendEvent([&] { return Event::microphone(m_uuid, false, "", m_platform); });
}

// --- the capture thread

/// Here and below, for every block: no allocation, no lock, no waiting, no printing, no file or
/// socket. Allowed for a text that is delivered, so once a second at most: memory for its event and
/// its places in the main queue and the HTTP session, which are lock-free, and the locks that guard
/// a look-up of the install id and of the zone's offset.
void SorvelUBM::Listener::hear(BlockDecoding& decoding, const sorvel::AudioBuffer& block) noexcept {
    try {
        if (const std::string_view text = decoding.hear(block); !text.empty()) deliver(text);
    } catch (...) {
        return; // out of memory: this block is lost, the next one is heard
    }
}

void SorvelUBM::Listener::deliver(std::string_view text) {
    if (text == kDamaged) return;
    if (!(gateTime() - m_timeout > kGate_s)) return;
    sendEvent([&] { return Event::ubm(m_uuid, std::string(text), std::nullopt, m_platform); });
    m_timeout = gateTime();
    m_platform.mainQueue->async(
        [callBack = m_mainCallBack, ubm = std::string(text)] { callBack->call(ubm); });
}

// --- any thread

/// Sends an event that is made only if it would leave; whatever fails here stays here.
template <typename MakeEvent>
void SorvelUBM::Listener::sendEvent(MakeEvent&& makeEvent) noexcept {
    try {
        if (!EventHub::isSending() || !m_platform.http) return;
        std::optional<std::string> document = makeEvent().encode();
        if (!document) return;
        // Not a reference of its own: the session holds this completion, and must be free to end
        // before it.
        EventHub::getSASToken(*m_platform.http, [session = std::weak_ptr(m_platform.http),
                                                 eventData = *std::move(document)](const std::string& token) {
            const auto alive = session.lock();
            if (alive)
                EventHub::sendEventToAzureEventHub(*alive, EventHub::messagesAddress(), token, eventData);
        });
    } catch (...) {
        return; // lost, like an event on a network that is down
    }
}

void SorvelUBM::Listener::print(std::string_view line) {
    if (m_platform.progress) m_platform.progress->line(line);
}

// --- the handle

SorvelUBM::SorvelUBM(const std::string& prefix, const Platform& platform)
    : m_listener(std::make_shared<Listener>(prefix, platform)) {}

void SorvelUBM::setCallBack(CallBack callback) { m_listener->setCallBack(std::move(callback)); }
void SorvelUBM::setStateCallBack(StateCallBack callback) {
    m_listener->setStateCallBack(std::move(callback));
}
void SorvelUBM::startListening() { m_listener->startListening(); }
void SorvelUBM::stopListening() { m_listener->stopListening(); }
std::int64_t SorvelUBM::status() const noexcept { return m_listener->status(); }
std::string SorvelUBM::reason() const { return m_listener->reason(); }
bool SorvelUBM::micTapped() const noexcept { return m_listener->micTapped(); }
