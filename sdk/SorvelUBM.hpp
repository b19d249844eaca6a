#pragma once

#include "sdk/MyError.hpp"
#include "sdk/platform.hpp"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

/// Listens for texts that begin with a brand's prefix and hands them to the application.
///
///     SorvelUBM listener("acme");
///     listener.setCallBack([](const std::string& ubm) { std::cout << ubm << '\n'; });
///     listener.startListening();
///     MainQueue::main().run(); // callbacks run here
///
/// At most one text a second is delivered, the whole received text with its prefix; what else
/// arrives within that second is dropped, and so is everything in the first second
/// of a listener's life.
///
/// The object is a handle: copies are the same listener. While it listens it stays alive on its
/// own, even when the last handle is gone, and keeps delivering; call `stopListening()` first to
/// end it.
///
/// Events about this (made, microphone on and off, text heard) go to the event hub in the
/// background: see EventHub for where to, and for how to turn it off.
///
/// Thread: every call from any thread, but not from the capture thread, which `stopListening()`
/// waits for.
class SorvelUBM {
public:
    /// Receives a text of at most 15 characters on the platform's main queue.
    using CallBack = std::function<void(const std::string& ubm)>;

    /// On the machine's own platform; link `sorvel_platform`.
    explicit SorvelUBM(const std::string& prefix);
    /// @param prefix  compared without regard to ASCII case; received texts are lower case
    /// @throws MyError if the prefix is empty or the platform lacks a part
    ///
    /// An audio session that cannot be had is one progress line, and tried again by
    /// `startListening()`. A process has room for four modem instances, which are never freed: a
    /// fifth listener hears nothing, and the modem's log stream says so. Listeners of one process
    /// share the instance made last: use one at a time.
    SorvelUBM(const std::string& prefix, const sorvel::Platform& platform);

    // Declared, so that a moved-from handle is still a handle.
    SorvelUBM(const SorvelUBM&) = default;
    SorvelUBM& operator=(const SorvelUBM&) = default;
    ~SorvelUBM() = default;

    /// Stopped: by `stopListening()`. Listening: the microphone is open. Failed: it could not be
    /// opened. Lost: it has gone while listening; stop, and start again.
    enum class State : std::uint8_t { Stopped, Listening, Failed, Lost };
    /// Receives each state that is entered, on the platform's main queue, with the reason of a
    /// Failed or Lost in one line. May start and stop the listener.
    using StateCallBack = std::function<void(State state, const std::string& reason)>;

    /// Replaces the callback, also while listening; an empty one receives nothing.
    void setCallBack(CallBack callback);
    /// The same for the one that is told how listening fares.
    void setStateCallBack(StateCallBack callback);

    /// Opens the microphone; no effect if it is open. If the audio session cannot be had, one
    /// progress line says so and nothing is changed. If the engine does not start, `status()` is -1
    /// and `micTapped()` true: stop, and try again.
    ///
    /// When another microphone becomes the default one, listening goes on there: where that fails at
    /// first, attempts within some two seconds are no change of state.
    void startListening();
    /// Closes the microphone; no effect if it is closed. Once this returns, no more texts are
    /// heard; one heard before may still wait in the main queue.
    void stopListening();

    /// Outcome of the last start or stop: 1 the engine was started, or was running and is stopped;
    /// -1 it did not start; 0 it was not running when it was to be stopped, or nothing has happened
    /// yet.
    std::int64_t status() const noexcept;
    /// Why the last start failed, or why the microphone has gone since; empty: neither did.
    std::string reason() const;
    /// Whether a tap is installed, that is, between start and stop.
    bool micTapped() const noexcept;

private:
    class Listener;
    std::shared_ptr<Listener> m_listener;
};
