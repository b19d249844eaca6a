#include "platform/http/curl_http.hpp"
#include "telemetry/EventHub.hpp"
#include "tests/support/https_server.hpp"

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <cstdlib>
#include <future>
#include <gmock/gmock.h>
#include <malloc.h>
#include <sys/socket.h>

namespace {

using sorvel::CurlHttpOptions;
using sorvel::CurlHttpSession;
using sorvel::HttpRequest;
using sorvel::HttpResponse;
using Answer = std::optional<HttpResponse>;
using Headers = std::vector<std::pair<std::string, std::string>>;
using std::chrono::seconds;

constexpr double kPatience_s = 20.0; // bounds waiting for what does come; nothing is measured

/// A port that takes connections and says nothing, not even to a TLS greeting.
class SilentPort {
public:
    SilentPort() {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* const any = reinterpret_cast<sockaddr*>(&address);
        if (::bind(m_socket, any, size) != 0 || ::listen(m_socket, 64) != 0)
            throw std::runtime_error("no port");
        ::getsockname(m_socket, any, &size);
        m_port = ntohs(address.sin_port);
    }
    SilentPort(const SilentPort&) = delete;
    SilentPort& operator=(const SilentPort&) = delete;
    ~SilentPort() { close(); }
    /// From now on connections are refused.
    void close() {
        if (m_socket >= 0) ::close(std::exchange(m_socket, -1));
    }
    std::string url() const { return "https://127.0.0.1:" + std::to_string(m_port) + "/"; }

private:
    int m_socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    std::uint16_t m_port = 0;
};

/// Holds handlers up until it is opened.
class Gate {
public:
    void open() { m_opening.set_value(); }
    void pass() const { m_opened.wait_for(seconds(20)); }

private:
    std::promise<void> m_opening;
    std::shared_future<void> m_opened = m_opening.get_future().share();
};

std::size_t entries(const char* folder) {
    const auto all = std::filesystem::directory_iterator(folder);
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

class CurlHttpTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        for (const char* const variable : {"https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"})
            ::unsetenv(variable); // the servers are here
    }

    CurlHttpOptions options() const {
        CurlHttpOptions made;
        made.caFile = m_authority.file();
        return made;
    }

    /// Sends one request and waits for what becomes of it.
    static Answer get(CurlHttpSession& session, const std::string& url, double timeout_s = kPatience_s) {
        auto answer = std::make_shared<std::promise<Answer>>();
        auto taken = answer->get_future();
        session.submit({"GET", url, {}, "", timeout_s},
                       [answer](const Answer& got) { answer->set_value(got); });
        if (taken.wait_for(seconds(40)) != std::future_status::ready)
            throw std::runtime_error("no completion");
        return taken.get();
    }
    Answer get(const std::string& url, double timeout_s = kPatience_s) {
        CurlHttpSession session(options());
        return get(session, url, timeout_s);
    }

    const Certificate m_authority = Certificate::authority();
    const Certificate m_certificate = m_authority.issue("IP:127.0.0.1");
};

TEST_F(CurlHttpTest, EveryEventIsATokenRequestAndAPostFieldByField) {
    const std::string token = "SharedAccessSignature sr=\"hub\"&sig=x";
    HttpsServer server(m_certificate, [&](const httplib::Request& request, httplib::Response& response) {
        response.status = request.method == "GET" ? 500 : 201; // the token counts whatever the status
        response.body = token;
    });
    EventHub::turnOn();
    ASSERT_TRUE(EventHub::setTokenHost(server.host()));
    ASSERT_TRUE(EventHub::setEventHost(server.host()));
    CurlHttpSession session(options());
    const std::string document =
        std::string(R"({"Data":"a\/b )") + "\xC3\xA9" + std::string(5000, 'x') + "\"}";
    for (int event = 0; event < 2; ++event) {
        EventHub::getSASToken(session, [&](const std::string& got) {
            EventHub::sendEventToAzureEventHub(session, EventHub::messagesAddress(), got, document);
        });
    }
    EXPECT_TRUE(session.drain(kPatience_s));

    auto requests = server.requests();
    ASSERT_EQ(requests.size(), 4U);
    std::partition(requests.begin(), requests.end(), [](const auto& one) { return one.method == "GET"; });
    for (std::size_t at : {0U, 1U}) {
        EXPECT_EQ(requests[at].path, "/api/v0.3/Token/Generate");
        EXPECT_EQ(requests[at].headers, (Headers{
                                            {"Content-Type",      "application/json"                    },
                                            {"SorvelPhoneApiKey", "3F7C21B9-5A4E-4C8D-9B26-E0D41A7C58F2"}
        }));
        EXPECT_EQ(requests[at].body, "");
        EXPECT_EQ(requests[at + 2].method, "POST");
        EXPECT_EQ(requests[at + 2].path, "/sorveldeveventhub/messages");
        EXPECT_EQ(requests[at + 2].headers, (Headers{
                                                {"Authorization",  token                          },
                                                {"Content-Length", std::to_string(document.size())},
                                                {"Content-Type",   "application/json"             }
        }));
        EXPECT_EQ(requests[at + 2].body, document);
    }
}

TEST_F(CurlHttpTest, AResponseOfAnyStatusAndContentArrivesAsItIs) {
    const std::vector<std::pair<int, std::string>> answers = {
        {200, "token"       },
        {401, "denied"      },
        {500, "oops"        },
        {200, "\"quoted\""  },
        {200, ""            },
        {200, "\xFF\xFE\x01"}
    };
    std::size_t next = 0;
    HttpsServer server(m_certificate, [&](const httplib::Request&, httplib::Response& response) {
        response.status = answers[next].first;
        response.body = answers[next].second;
    });
    CurlHttpSession session(options());
    for (; next < answers.size(); ++next) {
        const Answer answer = get(session, server.url());
        ASSERT_TRUE(answer);
        EXPECT_EQ(answer->status, answers[next].first);
        EXPECT_EQ(answer->body, answers[next].second);
    }
}

TEST_F(CurlHttpTest, ATokenStandsOnTheWireAsItIsAndEmptyToo) {
    CurlHttpSession session(options());
    for (const std::string token : {"SharedAccessSignature sr=a%2fb&sig=\"%2B\xC3\xA9;,\"", ""}) {
        WireTap wire(m_certificate);
        EventHub::sendEventToAzureEventHub(session, "https://" + wire.host() + "/hub?a=b%20c", token,
                                           "{\"a\":1}");
        EXPECT_EQ(wire.hear("{\"a\":1}"),
                  "POST /hub?a=b%20c HTTP/1.1\r\nHost: " + wire.host() +
                      "\r\nContent-Type: application/json\r\nAuthorization:" + (token.empty() ? "" : " ") +
                      token + "\r\nContent-Length: 7\r\n\r\n{\"a\":1}");
        EXPECT_TRUE(session.drain(kPatience_s));
    }
}

TEST_F(CurlHttpTest, AHeaderThatWouldBreakTheLineIsNotSent) {
    HttpsServer server(m_certificate);
    CurlHttpSession session(options());
    session.submit({"POST", server.url(), {{"Authorization", "a\r\nX-Admin: 1"}}, "{}"}, {});
    session.submit({"PUT", server.url(), {}, ""}, {}); // neither is another method
    EXPECT_TRUE(session.drain(kPatience_s));
    EXPECT_TRUE(server.requests().empty());
}

TEST_F(CurlHttpTest, RedirectsStayOnHttps) {
    HttpsServer server(m_certificate, [](const httplib::Request& request, httplib::Response& response) {
        if (request.path == "/here") response.set_redirect("/there");
        if (request.path == "/plain") response.set_redirect("http://127.0.0.1:9/");
        if (request.path == "/round") response.set_redirect("/round");
        if (request.path == "/there") response.body = "arrived";
    });
    EXPECT_EQ(get(server.url("/here")).value_or(HttpResponse{}).body, "arrived");
    EXPECT_FALSE(get(server.url("/plain")));
    EXPECT_FALSE(get(server.url("/round")));
}

// A server that would answer: one that fails anyway cannot tell.
TEST_F(CurlHttpTest, NothingGoesOverPlainHttp) {
    std::atomic<int> asked = 0;
    httplib::Server plain;
    plain.Get(".*", [&](const httplib::Request&, httplib::Response& response) {
        ++asked;
        response.body = "token";
    });
    const std::string there = "http://127.0.0.1:" + std::to_string(plain.bind_to_any_port("127.0.0.1")) + "/";
    std::thread serving([&] { plain.listen_after_bind(); });
    while (!plain.is_running()) std::this_thread::yield();
    ASSERT_EQ(httplib::Client(there.substr(0, there.size() - 1)).Get("/")->body, "token");
    HttpsServer server(m_certificate, [&](const httplib::Request&, httplib::Response& response) {
        response.set_redirect(there);
    });
    EXPECT_FALSE(get(there));
    EXPECT_FALSE(get(server.url()));
    EXPECT_EQ(asked, 1);
    plain.stop();
    serving.join();
}

TEST_F(CurlHttpTest, TrustsOnlyTheAuthorityTheHostAndCurrentTls) {
    const auto isTrusted = [&](HttpsServer& server) { return get(server.url()).has_value(); };
    HttpsServer right(m_certificate);
    EXPECT_TRUE(isTrusted(right));
    const Certificate otherHost = m_authority.issue("DNS:hub.test");
    HttpsServer wrongHost(otherHost);
    EXPECT_FALSE(isTrusted(wrongHost));
    const Certificate stranger = Certificate::authority();
    const Certificate issuedByStranger = stranger.issue("IP:127.0.0.1");
    HttpsServer wrongAuthority(issuedByStranger);
    EXPECT_FALSE(isTrusted(wrongAuthority));
    HttpsServer old(m_certificate);
    SSL_CTX_set_min_proto_version(old.context(), TLS1_VERSION);
    SSL_CTX_set_max_proto_version(old.context(), TLS1_1_VERSION);
    SSL_CTX_set_cipher_list(old.context(), "DEFAULT:@SECLEVEL=0");
    EXPECT_FALSE(isTrusted(old));
    for (HttpsServer* const server : {&wrongHost, &wrongAuthority, &old})
        EXPECT_TRUE(server->requests().empty());
    EXPECT_FALSE(get("http://" + right.host() + "/"));
    EXPECT_FALSE(get("ftp://127.0.0.1/"));
    EXPECT_FALSE(get("no address"));
}

TEST_F(CurlHttpTest, AnAnswerThatIsTooLongTooLateOrCutShortIsNone) {
    Gate gate;
    HttpsServer server(m_certificate, [&](const httplib::Request& request, httplib::Response& response) {
        if (request.path == "/fits") response.body.assign(64 * 1024, 'x');
        if (request.path == "/long") response.body.assign(64 * 1024 + 1, 'x');
        if (request.path == "/megabytes") response.body.assign(8 * 1024 * 1024, 'x');
        if (request.path == "/headers") {
            for (int at = 0; at < 1000; ++at)
                response.set_header(std::string("X-").append(std::to_string(at)), std::string(100, 'x'));
        }
        if (request.path == "/slow") std::this_thread::sleep_for(std::chrono::milliseconds(300));
        if (request.path == "/late") gate.pass();
        if (request.path == "/short") {
            response.set_content_provider(1000, "text/plain",
                                          [](std::size_t, std::size_t, httplib::DataSink& sink) {
                                              sink.write("half", 4);
                                              return false; // closes
                                          });
        }
    });
    EXPECT_EQ(get(server.url("/fits")).value_or(HttpResponse{}).body.size(), 64U * 1024);
    for (const char* const path : {"/long", "/megabytes", "/headers", "/short"})
        EXPECT_FALSE(get(server.url(path))) << path;
    EXPECT_TRUE(get(server.url("/slow")));
    EXPECT_FALSE(get(server.url("/late"), 0.2));
    gate.open();

    SilentPort silent;
    EXPECT_FALSE(get(silent.url(), 0.2));
    CurlHttpOptions bounded = options();
    bounded.longestTimeout_s = 0.2;
    CurlHttpSession session(bounded);
    EXPECT_FALSE(get(session, silent.url(), 60.0));
}

TEST_F(CurlHttpTest, BeyondItsBoundsTheOldestGoesAndWhatHasBegunIsFinishedFirst) {
    Gate gate;
    std::promise<void> arriving;
    HttpsServer server(m_certificate, [&](const httplib::Request& request, httplib::Response&) {
        if (request.path != "/first") return;
        arriving.set_value();
        gate.pass();
    });
    CurlHttpOptions narrow = options();
    narrow.inFlight = 1;
    narrow.queued = 3;
    CurlHttpSession session(narrow);
    const auto ask = [&](const std::string& path, CurlHttpSession::Completion then) {
        session.submit({"GET", server.url(path), {}, "", kPatience_s}, std::move(then));
    };
    std::atomic<int> completed = 0;
    ask("/first", [&](const Answer&) { ask("/then", [&](const Answer&) { ++completed; }); });
    arriving.get_future().wait_for(seconds(20));
    for (int at = 0; at < 10; ++at)
        ask(std::string("/").append(std::to_string(at)), [&](const Answer&) { ++completed; });
    EXPECT_FALSE(session.drain(0.0));
    while (session.dropped() < 7) std::this_thread::yield();
    gate.open();
    EXPECT_TRUE(session.drain(kPatience_s));
    EXPECT_THAT(server.paths(), testing::ElementsAre("/first", "/then", "/7", "/8", "/9"));
    EXPECT_EQ(session.dropped(), 7U);
    EXPECT_EQ(completed, 4);
}

TEST_F(CurlHttpTest, WhatOverflowsOnItsWayToTheThreadLeavesRoomForAsMuchLater) {
    SilentPort port;
    const std::string refused = port.url();
    port.close();
    CurlHttpOptions wide = options();
    wide.queued = 4000;
    CurlHttpSession session(wide);
    for (int round = 1; round <= 3; ++round) {
        Gate gate;
        std::promise<void> busy;
        session.submit({"GET", refused, {}, ""}, [&](const Answer&) {
            busy.set_value();
            gate.pass();
        });
        busy.get_future().wait(); // its thread takes nothing meanwhile
        for (int at = 0; at < 1024 + 100; ++at) session.submit({"GET", refused, {}, ""}, {});
        EXPECT_EQ(session.dropped(), 100U * static_cast<unsigned>(round));
        // Whoever waits is told: a wait that ends by its time alone ends too late here.
        auto drained = std::make_shared<std::promise<bool>>();
        auto isDone = drained->get_future();
        std::thread waiting([&session, drained] { drained->set_value(session.drain(3600.0)); });
        gate.open();
        const bool wasTold = isDone.wait_for(seconds(40)) == std::future_status::ready;
        EXPECT_TRUE(wasTold);
        if (!wasTold) session.shutdown();
        waiting.join();
        if (!wasTold) return;
    }
}

TEST_F(CurlHttpTest, AThousandEventsWithoutAServerLeaveMemoryThreadsAndDescriptorsAsTheyWere) {
    SilentPort port;
    const std::string refused = port.url();
    port.close();
    std::atomic<std::uint64_t> completed = 0;
    CurlHttpSession session(options());
    const auto events = [&](int count) {
        for (int at = 0; at < count; ++at) {
            session.submit({"GET", refused, {}, "", kPatience_s}, [&](const Answer& answer) {
                EXPECT_FALSE(answer);
                ++completed;
            });
        }
        EXPECT_TRUE(session.drain(kPatience_s));
    };
    events(100); // what is made once is made
    const std::size_t threads = entries("/proc/self/task");
    const std::size_t descriptors = entries("/proc/self/fd");
    const auto bytes = mallinfo2().uordblks;
    events(1000);
    EXPECT_EQ(completed + session.dropped(), 1100U);
    EXPECT_EQ(entries("/proc/self/task"), threads);
    EXPECT_EQ(entries("/proc/self/fd"), descriptors);
    EXPECT_LT(mallinfo2().uordblks, bytes + 64 * 1024);
}

TEST_F(CurlHttpTest, EndsWhileServersHang) {
    SilentPort silent;
    std::thread([] {}).join(); // with the first thread, the thread sanitizer starts one of its own
    const std::size_t threads = entries("/proc/self/task");
    std::atomic<int> completed = 0;
    {
        CurlHttpSession session(options());
        for (int at = 0; at < 100; ++at)
            session.submit({"GET", silent.url(), {}, ""}, [&](const Answer&) { ++completed; }); // 60 s each
        EXPECT_FALSE(session.drain(0.1));
        session.shutdown();
        EXPECT_EQ(session.dropped(), 100U);
        EXPECT_TRUE(session.drain(60.0)); // nothing is left to wait for
        session.submit({"GET", silent.url(), {}, ""}, [&](const Answer&) { ++completed; });
        EXPECT_EQ(session.dropped(), 101U);
    }
    EXPECT_EQ(completed, 0);
    EXPECT_EQ(entries("/proc/self/task"), threads);
}

TEST_F(CurlHttpTest, ACompletionMayEndItsSession) {
    HttpsServer server(m_certificate);
    auto session = std::make_shared<CurlHttpSession>(options());
    std::promise<void> ended;
    session->submit({"GET", server.url(), {}, ""}, [&](const Answer&) {
        session.reset();
        ended.set_value();
    });
    EXPECT_EQ(ended.get_future().wait_for(seconds(20)), std::future_status::ready);
}

TEST_F(CurlHttpTest, TakesRequestsFromManyThreads) {
    HttpsServer server(m_certificate);
    CurlHttpOptions wide = options();
    wide.queued = 200;
    CurlHttpSession session(wide);
    std::atomic<int> completed = 0;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&] {
            for (int at = 0; at < 25; ++at)
                session.submit({"POST", server.url(), {}, "{}", kPatience_s}, [&](const Answer& got) {
                    if (got) ++completed;
                });
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_TRUE(session.drain(kPatience_s));
    EXPECT_EQ(completed, 100);
}

} // namespace
