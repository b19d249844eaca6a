#include "telemetry/EventHub.hpp"
#include "tests/support/fake_platform.hpp"

#include <gmock/gmock.h>

namespace {

using Headers = std::vector<std::pair<std::string, std::string>>;

class EventHubTest : public testing::Test {
protected:
    EventHubTest() {
        EventHub::turnOn();
        EXPECT_TRUE(EventHub::setTokenHost("token.test"));
        EXPECT_TRUE(EventHub::setEventHost("hub.test:8443"));
    }

    /// What the completion gets for a response; nothing if it is not called.
    std::optional<std::string> tokenFor(const std::optional<sorvel::HttpResponse>& response) {
        std::optional<std::string> taken;
        struct Answering final : sorvel::HttpSession {
            std::optional<sorvel::HttpResponse> response;
            void submit(sorvel::HttpRequest, Completion completion) override { completion(response); }
            bool drain(double) override { return true; }
        } session;
        session.response = response;
        EventHub::getSASToken(session, [&](const std::string& token) { taken = token; });
        return taken;
    }

    std::size_t postsOf(const std::string& uri, const std::string& token = "t") {
        EventHub::sendEventToAzureEventHub(m_http, uri, token, "{}");
        return m_http.take().size();
    }

    std::size_t tokenRequests() {
        EventHub::getSASToken(m_http, [](const std::string&) {});
        return m_http.take().size();
    }

    fake::Http m_http;
};

TEST_F(EventHubTest, AsksForATokenWithTheApiKey) {
    EventHub::getSASToken(m_http, [](const std::string&) {});
    const auto requests = m_http.take();
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(requests[0].method, "GET");
    EXPECT_EQ(requests[0].url, "https://token.test/api/v0.3/Token/Generate");
    EXPECT_EQ(requests[0].headers, (Headers{
                                       {"Content-Type",      "application/json"                    },
                                       {"SorvelPhoneApiKey", "3F7C21B9-5A4E-4C8D-9B26-E0D41A7C58F2"}
    }));
    EXPECT_EQ(requests[0].body, "");
    EXPECT_EQ(requests[0].timeout_s, 60.0);
}

TEST_F(EventHubTest, PostsTheDocumentWithTheTokenAsItIs) {
    const std::string document = R"({"a":"b\/c"})";
    EventHub::sendEventToAzureEventHub(m_http, EventHub::messagesAddress(), "\"Shared \xC3\xA9\" ", document);
    const auto requests = m_http.take();
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(requests[0].method, "POST");
    EXPECT_EQ(requests[0].url, "https://hub.test:8443/sorveldeveventhub/messages");
    EXPECT_EQ(requests[0].headers,
              (Headers{
                  {"Content-Type",  "application/json"    },
                  {"Authorization", "\"Shared \xC3\xA9\" "}
    }));
    EXPECT_EQ(requests[0].body, document);
    EXPECT_EQ(requests[0].timeout_s, 60.0);
}

TEST_F(EventHubTest, TakesEveryUtf8BodyAsTheToken) {
    for (const std::string body : {"", "oops", "\"quoted\"", " spaces ", "caf\xC3\xA9", "\xE0\xA0\x80",
                                   "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF"}) {
        for (const int status : {200, 401, 500})
            EXPECT_EQ(tokenFor(sorvel::HttpResponse{status, body}), body);
    }
    for (const std::string body :
         {"\xFF", "\xC3", "\xC0\x80", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xE2\x82z", "\xE0\x80\x80",
          "\xE0\x9F\xBF", "\xF0\x80\x80\x80", "\xF0\x8F\xBF\xBF"})
        EXPECT_EQ(tokenFor(sorvel::HttpResponse{200, body}), std::nullopt);
    EXPECT_EQ(tokenFor(std::nullopt), std::nullopt);
}

TEST_F(EventHubTest, ATokenThatCouldBeginAHeaderOfItsOwnIsDropped) {
    for (const std::string token : {"a\r\nX-Admin: 1", "a\n", "\r", "a\x7F", "a\tb"})
        EXPECT_EQ(postsOf("https://hub.test/", token), 0U);
    EXPECT_EQ(postsOf("https://hub.test/", std::string("a\0b", 3)), 0U);
    EXPECT_EQ(postsOf("https://hub.test/", ""), 1U);
}

TEST_F(EventHubTest, AddressesThatAreNoneDropTheEvent) {
    for (const std::string uri :
         {"", "hub.test", "http://hub.test/", "https://", "https:///x", "https://hub.test:0/",
          "https://hub.test:99999/", "https://a b/", "https://user@hub.test/", "https://hub.test/\r\nx",
          "https://[::1/", "https://hub.invalid/x"})
        EXPECT_EQ(postsOf(uri), 0U) << uri;
    for (const std::string uri : {"https://hub.test", "https://[::1]:8443/x", "https://1.2.3.4:1/?q"})
        EXPECT_EQ(postsOf(uri), 1U) << uri;
}

TEST_F(EventHubTest, NothingIsMeantForTheReservedDomain) {
    for (const std::string host :
         {"invalid", "token.sorvel.invalid", "A.INVALID", "a.invalid.:443", SORVEL_TOKEN_HOST}) {
        ASSERT_TRUE(EventHub::setTokenHost(host));
        EXPECT_EQ(tokenRequests(), 0U) << host;
        EXPECT_FALSE(EventHub::isSending());
    }
    ASSERT_TRUE(EventHub::setTokenHost("notinvalid"));
    EXPECT_EQ(tokenRequests(), 1U);
    EXPECT_TRUE(EventHub::isSending());
    ASSERT_TRUE(EventHub::setEventHost("hub.invalid"));
    EXPECT_EQ(postsOf(EventHub::messagesAddress()), 0U);
    EXPECT_FALSE(EventHub::isSending());
}

TEST_F(EventHubTest, RefusesHostsThatAreNoneAndKeepsTheOneInUse) {
    for (const std::string host :
         {"", "a b", "a/b", "a:b", "a:", "a:65536", "https://a", "a\n", "a@b", "::1"}) {
        EXPECT_FALSE(EventHub::setEventHost(host)) << host;
        EXPECT_FALSE(EventHub::setTokenHost(host)) << host;
    }
    EXPECT_FALSE(EventHub::setEventHost(std::string(254, 'a')));
    EXPECT_EQ(EventHub::messagesAddress(), "https://hub.test:8443/sorveldeveventhub/messages");
    EXPECT_TRUE(EventHub::setEventHost(std::string(253, 'a') + ":1"));
}

TEST_F(EventHubTest, TurnedOffItSendsNothing) {
    EventHub::turnOff();
    EXPECT_EQ(tokenRequests(), 0U);
    EXPECT_EQ(postsOf(EventHub::messagesAddress()), 0U);
    EXPECT_FALSE(EventHub::isSending());
}

TEST_F(EventHubTest, WithoutASessionOfItsOwnACallUsesTheSharedOne) {
    const auto http = std::make_shared<fake::Http>();
    sorvel::Environment environment;
    environment.http = http;
    sorvel::setSharedEnvironment(environment);
    EventHub::getSASToken([](const std::string& token) {
        EventHub::sendEventToAzureEventHub(EventHub::messagesAddress(), token, "{}");
    });
    EXPECT_EQ(http->take().size(), 2U);
    sorvel::setSharedEnvironment({});
    EventHub::getSASToken([](const std::string&) { FAIL() << "there is no session"; });
}

} // namespace
