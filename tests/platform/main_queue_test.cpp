#include "sdk/MainQueue.hpp"

#include <csignal>
#include <gmock/gmock.h>
#include <numeric>
#include <poll.h>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

bool isReadable(const MainQueue& queue, int wait_ms = 0) {
    pollfd waiting = {queue.descriptor(), POLLIN, 0};
    return ::poll(&waiting, 1, wait_ms) == 1;
}

TEST(MainQueue, RunsTasksInOrderAndThoseTheyAddNextTime) {
    MainQueue queue;
    std::vector<int> ran;
    for (int at = 0; at < 100; ++at)
        queue.async([&, at] {
            ran.push_back(at);
            if (at == 50) queue.async([&] { ran.push_back(100); });
        });
    queue.async({}); // nothing to run
    EXPECT_EQ(queue.poll(), 100U);
    EXPECT_TRUE(isReadable(queue));
    EXPECT_EQ(queue.poll(), 1U);
    EXPECT_FALSE(isReadable(queue));
    EXPECT_EQ(queue.poll(), 0U);
    std::vector<int> expected(101);
    std::iota(expected.begin(), expected.end(), 0);
    EXPECT_EQ(ran, expected);
}

TEST(MainQueue, TheDescriptorWakesALoopForTasksOfAnotherThread) {
    MainQueue queue;
    std::thread other([&] { queue.async([] {}); });
    EXPECT_TRUE(isReadable(queue, 20000));
    other.join();
    EXPECT_EQ(queue.poll(), 1U);
}

TEST(MainQueue, RunTakesTasksOfManyThreadsUntilItIsStopped) {
    MainQueue queue;
    int ran = 0; // by this thread alone
    std::vector<int> lastOf(4, -1);
    std::vector<std::thread> threads;
    for (std::size_t thread = 0; thread < lastOf.size(); ++thread) {
        threads.emplace_back([&, thread] {
            for (int at = 0; at < 1000; ++at)
                queue.async([&, thread, at] {
                    EXPECT_EQ(std::exchange(lastOf[thread], at), at - 1); // each thread's in its order
                    if (++ran == 4000) queue.stop();
                });
        });
    }
    queue.run();
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(ran, 4000);
}

TEST(MainQueue, StopEndsTheRunAtHandOrTheNextOne) {
    MainQueue queue;
    bool ran = false;
    queue.stop();
    queue.async([&] { ran = true; });
    queue.run();
    EXPECT_FALSE(ran);
    EXPECT_TRUE(isReadable(queue)); // what is left can still be had
    queue.async([&] { queue.stop(); });
    queue.run();
    EXPECT_TRUE(ran);
}

MainQueue* interrupted = nullptr;

TEST(MainQueue, ASignalHandlerMayStopIt) {
    MainQueue queue;
    interrupted = &queue;
    const auto before = std::signal(SIGUSR1, [](int) { interrupted->stop(); });
    queue.async([] { std::raise(SIGUSR1); });
    queue.async([] { FAIL() << "it was stopped before"; });
    queue.run();
    std::signal(SIGUSR1, before);
}

TEST(MainQueue, WhatATaskThrowsLeavesTheTasksBehindIt) {
    MainQueue queue;
    int ran = 0;
    queue.async([] { throw std::runtime_error("the application's own"); });
    queue.async([&] {
        ++ran;
        queue.stop();
    });
    EXPECT_THROW(queue.poll(), std::runtime_error);
    EXPECT_TRUE(isReadable(queue));
    queue.run();
    EXPECT_EQ(ran, 1);
}

TEST(MainQueue, ATaskMayPollInItsTurn) {
    MainQueue queue;
    std::vector<int> ran;
    queue.async([&] {
        queue.poll();
        ran.push_back(1);
    });
    queue.async([&] { ran.push_back(2); });
    EXPECT_EQ(queue.poll(), 1U);
    EXPECT_THAT(ran, testing::ElementsAre(2, 1));
}

TEST(MainQueue, ReleasesWhatItNeverRan) {
    const auto held = std::make_shared<int>(0);
    {
        MainQueue queue;
        queue.async([held] {});
        queue.async([held] {});
        EXPECT_EQ(held.use_count(), 3);
    }
    EXPECT_EQ(held.use_count(), 1);
    EXPECT_EQ(&MainQueue::main(), &MainQueue::main());
}

} // namespace
