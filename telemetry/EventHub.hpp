#pragma once

#include "telemetry/environment.hpp"

#include <functional>
#include <string>

/// Delivers event documents: asks the token service for a token, then posts the document with it.
///
/// Every event costs one token request and one post; nothing is cached, retried or reported, and no
/// failure comes back. While a host lies under the reserved domain `.invalid`, as both do by
/// default, what is meant for it is not sent and no name is looked up.
///
/// Thread: every call from any thread. Sending neither locks nor waits; it allocates.
class EventHub {
public:
    EventHub() = delete;

    using TokenCompletion = std::function<void(const std::string& token)>;

    /// Asks for a token and returns at once. `completion` is called at most once, on a thread of
    /// the session, with the whole body as the token: whatever the status, nothing trimmed, empty
    /// included. It is never called without a response, or if the body is not UTF-8.
    static void getSASToken(TokenCompletion completion);
    static void getSASToken(sorvel::HttpSession& session, TokenCompletion completion);

    /// Posts one document and returns at once.
    /// @param uri    an https address; anything else drops the event
    /// @param token  the Authorization header as it is; with a control character in it, which could
    ///               begin another header, the event is dropped
    static void sendEventToAzureEventHub(const std::string& uri, const std::string& token,
                                         const std::string& eventData);
    static void sendEventToAzureEventHub(sorvel::HttpSession& session, const std::string& uri,
                                         const std::string& token, const std::string& eventData);

    /// Where listeners post: the `uri` for the event host in use.
    static std::string messagesAddress();

    /// Sets a host for the rest of the process: a name or address, with ":port" where it is not 443.
    /// @return false, and nothing is changed, if it is not such a text
    ///
    /// Meant for start-up: a few bytes per call stay allocated, so that sending need not lock.
    static bool setTokenHost(const std::string& host);
    static bool setEventHost(const std::string& host);

    /// Switches telemetry off or on again (on at first), for everything not yet
    /// handed to the session.
    static void turnOff() noexcept;
    static void turnOn() noexcept;

    /// Whether an event would be sent: switched on, and both hosts real ones. Without it an event
    /// need not be made.
    static bool isSending() noexcept;
};
