#include "platform/quiet_stderr.hpp"

#include <cstdio>
#include <gtest/gtest.h>
#include <optional>
#include <pthread.h>
#include <unistd.h>

using namespace sorvel;

namespace {

void say(const char* text) { EXPECT_GT(::write(STDERR_FILENO, text, 1), 0); }

} // namespace

TEST(QuietStandardError, DropsWhatIsWrittenUntilTheLastOneEnds) {
    testing::internal::CaptureStderr();
    say("1");
    {
        std::optional<QuietStandardError> first(std::in_place);
        say("2");
        const QuietStandardError second;
        first.reset();
        say("3");
    }
    say("4");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "14");
}

TEST(QuietStandardError, LeavesAClosedOneClosed) {
    const int kept = ::dup(STDERR_FILENO);
    ::close(STDERR_FILENO);
    {
        const QuietStandardError quiet;
    }
    EXPECT_EQ(::close(STDERR_FILENO), -1);
    ::dup2(kept, STDERR_FILENO);
    ::close(kept);
}

TEST(HushedPortAudio, DropsItsLinesAndNoOther) {
    std::FILE* const before = stderr;
    testing::internal::CaptureStderr();
    {
        const HushedPortAudio hushed;
        std::fprintf(stderr, "Expression '%s' failed in '%s', line: %d\n", "x", "pa_linux_alsa.c", 7);
        std::fprintf(stderr, "one %d\n", 2);
        std::fprintf(before, "three\n");
    }
    std::fprintf(stderr, "Expression\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "one 2\nthree\nExpression\n");
}

TEST(HushedPortAudio, EndsACancelledThreadThatPrintsForEver) {
    const HushedPortAudio hushed;
    pthread_t thread{};
    const auto print = [](void*) -> void* {
        ::pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
        for (;;) std::fprintf(stderr, "Expression '%s' failed\n", "x");
    };
    ASSERT_EQ(::pthread_create(&thread, nullptr, print, nullptr), 0);
    ::pthread_cancel(thread);
    void* result = nullptr;
    ::pthread_join(thread, &result);
    EXPECT_EQ(result, PTHREAD_CANCELED);
    testing::internal::CaptureStderr();
    std::fprintf(stderr, "still works\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "still works\n");
}
