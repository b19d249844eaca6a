#include "platform/http/curl_http.hpp"
#include "platform/system/shared_library.hpp"
#include "tests/support/temporary_folder.hpp"

#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using sorvel::SharedLibrary;
using sorvel::SharedLibraryError;
using testing::AllOf;
using testing::HasSubstr;

std::string complaint(const char* soname, const char* function) {
    try {
        int (*found)() = nullptr;
        SharedLibrary(soname, "libthis1").find(found, function);
        return found != nullptr ? "" : "no complaint";
    } catch (const SharedLibraryError& error) {
        return error.what();
    }
}

TEST(SharedLibrary, NamesWhatIsMissingAndWhatToInstall) {
    EXPECT_EQ(complaint("libm.so.6", "cos"), "");
    EXPECT_THAT(complaint("libsorvel-none.so.7", "cos"),
                AllOf(HasSubstr("libsorvel-none.so.7"), HasSubstr("install libthis1")));
    EXPECT_THAT(complaint("libm.so.6", "sorvel_none"),
                AllOf(HasSubstr("sorvel_none"), HasSubstr("install libthis1")));
}

// The test program is started anew for this, so that the loader looks into the folder first.
TEST(SharedLibraryDeathTest, EventsAreDroppedWithOneLineWhereTheirLibraryCannotBeUsed) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const TemporaryFolder folder;
    folder.write("libcurl.so.4", "no library");
    ::setenv("LD_LIBRARY_PATH", folder.path().c_str(), 1);
    EXPECT_EXIT(
        {
            sorvel::CurlHttpSession http;
            int answers = 0;
            for (int i = 0; i < 3; ++i)
                http.submit({"GET", "https://localhost/", {}, {}, 1.0}, [&](const auto&) { ++answers; });
            std::exit(http.drain(10.0) && http.dropped() == 3 && answers == 0 ? 0 : 1);
        },
        testing::ExitedWithCode(0), "^Sorvel: no events are sent: .*libcurl.so.4: .*; install libcurl4\n$");
    ::unsetenv("LD_LIBRARY_PATH");
}

} // namespace
