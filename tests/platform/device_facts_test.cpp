#include "platform/system/device_facts.hpp"
#include "platform/system/uuid.hpp"
#include "tests/support/temporary_folder.hpp"

#include <cmath>
#include <cstdlib>
#include <gtest/gtest.h>
#include <optional>
#include <string_view>
#include <sys/utsname.h>

namespace {

namespace fs = std::filesystem;

class DeviceFactsTest : public testing::Test {
protected:
    DeviceFactsTest() {
        if (const char* const zone = std::getenv("TZ")) m_zone = zone;
        ::unsetenv("TZ");
    }
    ~DeviceFactsTest() override {
        m_zone ? ::setenv("TZ", m_zone->c_str(), 1) : ::unsetenv("TZ");
        ::tzset();
    }

    std::string zone() { return sorvel::makeDeviceFacts(m_root.path())->timeZoneName(); }
    std::string zoneWith(const char* variable) {
        ::setenv("TZ", variable, 1);
        return zone();
    }
    int offset_s(const char* variable, double time_s) {
        ::setenv("TZ", variable, 1);
        return sorvel::makeDeviceFacts(m_root.path())->utcOffset_s(time_s);
    }
    std::string version(const std::string& release) {
        m_root.write("etc/os-release", release);
        return sorvel::makeDeviceFacts(m_root.path())->osVersion();
    }

    TemporaryFolder m_root;
    std::optional<std::string> m_zone;
};

TEST_F(DeviceFactsTest, TheZoneIsTheVariablesElseTheLinksElseTheFilesElseUtc) {
    EXPECT_EQ(zone(), "UTC");
    m_root.write("etc/timezone", "Asia/Kolkata\n");
    EXPECT_EQ(zone(), "Asia/Kolkata");
    fs::create_symlink("../usr/share/zoneinfo/America/Argentina/Ushuaia", m_root.path() / "etc/localtime");
    EXPECT_EQ(zone(), "America/Argentina/Ushuaia");
    EXPECT_EQ(zoneWith("Europe/London"), "Europe/London");
}

TEST_F(DeviceFactsTest, OnlyNamesOfZonesCount) {
    m_root.write("usr/share/zoneinfo/Japan", "");
    m_root.write("usr/share/zoneinfo/EST5EDT", "");
    EXPECT_EQ(zoneWith("Japan"), "Japan");
    EXPECT_EQ(zoneWith("EST5EDT"), "EST5EDT");
    EXPECT_EQ(zoneWith(":Etc/GMT+5"), "Etc/GMT+5");
    EXPECT_EQ(zoneWith("/usr/share/zoneinfo/posix/Europe/Paris"), "Europe/Paris");
    for (const char* const none :
         {"", ":", "CET-1CEST,M3.5.0,M10.5.0/3", "CET-1", "/etc/localtime", "right/", "../../x", "a b/c"})
        EXPECT_EQ(zoneWith(none), "UTC") << none;
    ::unsetenv("TZ");
    m_root.write("etc/timezone", "\"; drop\nEurope/Paris\n");
    fs::create_symlink("/somewhere/else", m_root.path() / "etc/localtime");
    EXPECT_EQ(zone(), "UTC");
}

TEST_F(DeviceFactsTest, AZonesFileIsNamedThroughAnyLinks) {
    const auto link = [&](const char* target, const char* name) {
        fs::create_directories((m_root.path() / name).parent_path());
        fs::create_symlink(target, m_root.path() / name);
    };
    m_root.write("usr/share/zoneinfo/Europe/Paris", "");
    link("/usr/share/zoneinfo/Europe/Paris", "opt/absolute");
    link("absolute", "opt/second");
    link("../usr/share/zoneinfo/right/Europe/Paris", "etc/localtime");
    link("../usr/share/zoneinfo", "opt/zones");
    link("circle", "opt/circle");
    for (const char* const path :
         {"/opt/absolute", ":/opt/second", ":/etc/localtime", "/opt/zones/Europe/Paris",
          "/usr/share/zoneinfo/right/Europe/Paris", ":/usr/share/zoneinfo/x/../Europe/Paris"})
        EXPECT_EQ(zoneWith(path), "Europe/Paris") << path;
    for (const char* const path : {"/opt/circle", "/opt/none", "/"}) EXPECT_EQ(zoneWith(path), "UTC") << path;
    ::unsetenv("TZ");
    fs::remove(m_root.path() / "etc/localtime");
    link("/opt/second", "etc/localtime");
    EXPECT_EQ(zone(), "Europe/Paris");
}

TEST_F(DeviceFactsTest, AZoneThatIsSetLaterChangesNameAndOffsetTogether) {
    ::setenv("TZ", "Europe/Berlin", 1);
    const auto facts = sorvel::makeDeviceFacts();
    EXPECT_EQ(facts->timeZoneName(), "Europe/Berlin");
    constexpr double kWinter_s = 1736500000.0;
    for (const auto& [zone, offset_s] : {
             std::pair{"America/New_York", -18000},
             std::pair{"Europe/Paris",     3600  },
             std::pair{"Europe/Berlin",    3600  }
    }) {
        ::setenv("TZ", zone, 1);
        ::tzset();
        EXPECT_EQ(facts->timeZoneName(), zone); // the last two differ in the past alone
        EXPECT_EQ(facts->utcOffset_s(kWinter_s), offset_s);
    }
}

TEST_F(DeviceFactsTest, OffsetsFollowTheZonesRules) {
    constexpr double kSummer_s = 1749721267.0;
    constexpr double kWinter_s = 1736500000.0;
    EXPECT_EQ(offset_s("GMT0BST,M3.5.0/1,M10.5.0", kSummer_s), 3600);
    EXPECT_EQ(offset_s("GMT0BST,M3.5.0/1,M10.5.0", kWinter_s), 0);
    EXPECT_EQ(offset_s("IST-5:30", kSummer_s), 19800);
    EXPECT_EQ(offset_s("NST3:30NDT,M3.2.0,M11.1.0", kWinter_s), -12600);
    for (const double hostile : {1e300, -1e300, 1e14, HUGE_VAL, std::nan("")})
        EXPECT_LT(std::abs(offset_s("IST-5:30", hostile)), 24 * 3600);
}

TEST_F(DeviceFactsTest, TheVersionIsTheReleasesElseItsNameElseTheKernels) {
    EXPECT_EQ(version("NAME=Debian\nVERSION_ID=\"12\"\nPRETTY_NAME=\"Debian 12\"\n"), "12");
    EXPECT_EQ(version("PRETTY_NAME='It is \"rolling\"'\n"), "It is \"rolling\"");
    EXPECT_EQ(version("VERSION_ID=3.\\\"1\\\"\n"), "3.\"1\"");
    utsname system = {};
    ::uname(&system);
    EXPECT_EQ(version(std::string(100000, 'x')), system.release);
    fs::remove(m_root.path() / "etc/os-release");
    m_root.write("usr/lib/os-release", "VERSION_ID=40\n");
    EXPECT_EQ(sorvel::makeDeviceFacts(m_root.path())->osVersion(), "40");
    EXPECT_EQ(sorvel::makeDeviceFacts(m_root.path())->modelName(), system.machine);
}

TEST(Uuids, AreRandomAndUpperCase) {
    const auto uuids = sorvel::makeUuids();
    const std::string first = uuids->make();
    std::string shape = first;
    for (char& digit : shape) {
        if (std::string_view("0123456789ABCDEF").find(digit) != std::string_view::npos) digit = 'x';
    }
    EXPECT_EQ(shape, "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx") << first;
    EXPECT_NE(first, uuids->make());
}

} // namespace
