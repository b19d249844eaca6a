#include "tools/interruption.hpp"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <gtest/gtest.h>
#include <pthread.h>
#include <thread>
#include <unistd.h>

namespace {

using sorvel::Interruption;

/// A server that hangs; meanwhile the user loses patience.
struct Hanging final : sorvel::HttpSession {
    void submit(sorvel::HttpRequest, Completion) override {}
    bool drain(double seconds) override {
        EXPECT_GT(seconds, 1.0);
        std::raise(SIGHUP);
        return false;
    }
};

TEST(InterruptionDeathTest, TheFirstSignalIsARequestAndTheSecondTheEnd) {
    const auto request = [](int number) {
        const Interruption interruption;
        std::raise(number);
        if (Interruption::signal() != number) std::_Exit(1);
    };
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        EXPECT_EXIT((request(number), std::_Exit(0)), testing::ExitedWithCode(0), "");
        EXPECT_EXIT(
            {
                {
                    const Interruption over;
                }
                std::raise(number);
            },
            testing::KilledBySignal(number), "");
        EXPECT_EXIT((request(number), sorvel::endBySignal()), testing::KilledBySignal(number), "");
    }
    EXPECT_EXIT(
        {
            const Interruption interruption;
            std::raise(SIGINT);
            std::raise(SIGTERM);
        },
        testing::KilledBySignal(SIGTERM), "");
    EXPECT_EXIT(
        {
            const Interruption interruption;
            std::raise(SIGINT);
            Hanging session;
            sorvel::awaitEvents(&session);
        },
        testing::KilledBySignal(SIGHUP), "");
}

TEST(Interruption, LeavesAnIgnoredSignalIgnored) {
    auto* const before = std::signal(SIGINT, SIG_IGN);
    {
        const Interruption interruption;
        std::raise(SIGINT);
        EXPECT_FALSE(Interruption::hasCome());
    }
    sorvel::cleanUpBeforeSignals([]() noexcept {});
    sorvel::awaitEvents(nullptr);
    std::raise(SIGINT);
    std::signal(SIGINT, before);
}

TEST(Interruption, EndsTheWaitForInput) {
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    const Interruption interruption;
    {
        const Interruption::Input input(ends[0]);
        std::thread impatient([reader = pthread_self()] {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            pthread_kill(reader, SIGTERM);
        });
        char byte = 0;
        ssize_t got = -1;
        do got = ::read(ends[0], &byte, 1); // as libraries do
        while (got < 0 && errno == EINTR);
        EXPECT_EQ(got, 0);
        impatient.join();
    }
    EXPECT_TRUE(Interruption::hasCome());
    ::close(ends[0]);
    ::close(ends[1]);
}

} // namespace
