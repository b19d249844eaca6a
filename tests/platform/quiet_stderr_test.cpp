#include "platform/quiet_stderr.hpp"

#include <cstdio>
#include <gtest/gtest.h>
#include <optional>
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

TEST(HushPortAudio, DropsItsLinesAndNoOther) {
    std::FILE* const before = stderr;
    hushPortAudio();
    testing::internal::CaptureStderr();
    std::fprintf(stderr, "Expression '%s' failed in '%s', line: %d\n", "x", "pa_linux_alsa.c", 7);
    std::fprintf(stderr, "one %d\n", 2);
    std::fprintf(before, "three\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "one 2\nthree\n");
}
