#include "platform/files/file_store.hpp"
#include "tests/support/temporary_folder.hpp"

#include <cstdlib>
#include <gmock/gmock.h>
#include <set>
#include <sys/stat.h>
#include <thread>
#include <vector>

namespace {

namespace fs = std::filesystem;

constexpr const char* kId = "0D4E8B27-91A3-4C6F-B5E2-7A19C3D8F054";

class FileStoreTest : public testing::Test {
protected:
    std::optional<std::string> idOf(const std::string& content) {
        m_folder.write("settings", content);
        return sorvel::makeFileStore(m_folder.path() / "settings")->string("id");
    }

    TemporaryFolder m_folder;
};

TEST_F(FileStoreTest, KeepsTheIdForTheNextProcessInAFileOfTheUserAlone) {
    const fs::path file = m_folder.path() / "config/sorvel/settings"; // neither folder exists
    const auto store = sorvel::makeFileStore(file);
    EXPECT_EQ(store->string("id"), std::nullopt);
    store->setString("id", "first");
    store->setString("id", kId);
    EXPECT_EQ(store->string("id"), kId);
    EXPECT_EQ(sorvel::makeFileStore(file)->string("id"), kId);
    EXPECT_EQ(m_folder.read("config/sorvel/settings"), std::string("id=") + kId + "\n");
    struct stat facts = {};
    ASSERT_EQ(::stat(file.c_str(), &facts), 0);
    EXPECT_EQ(facts.st_mode & 0777U, 0600U);
    ASSERT_EQ(::stat(file.parent_path().c_str(), &facts), 0);
    EXPECT_EQ(facts.st_mode & 0777U, 0700U);
    EXPECT_EQ(std::distance(fs::directory_iterator(file.parent_path()), {}), 1); // no temporary file stays
}

TEST_F(FileStoreTest, KeepsOtherKeysAndWhatFitsNoLineInMemory) {
    m_folder.write("settings", "other=a=b\n");
    const auto store = sorvel::makeFileStore(m_folder.path() / "settings");
    EXPECT_EQ(store->string("other"), "a=b");
    store->setString("lines", "a\nid=forged");
    store->setString("id", kId);
    EXPECT_EQ(store->string("lines"), "a\nid=forged");
    EXPECT_EQ(m_folder.read("settings"), std::string("id=") + kId + "\nother=a=b\n");
}

TEST_F(FileStoreTest, ADamagedFileCountsAsEmptyAndIsReplaced) {
    for (const std::string& content :
         {std::string(), std::string("garbage"), std::string("id=\n"), std::string("=x\n"),
          std::string("id=a\n\n"), std::string("id=\xFF\n"), std::string("id=a\0b\n", 7),
          std::string("id=a\nhalf"), std::string(70000, 'x'), "id=" + std::string(70000, 'x')})
        EXPECT_EQ(idOf(content), std::nullopt) << content.substr(0, 40);
    EXPECT_EQ(idOf("id=a"), "a"); // an editor may leave the last line open
    sorvel::makeFileStore(m_folder.path() / "settings")->setString("id", kId);
    EXPECT_EQ(sorvel::makeFileStore(m_folder.path() / "settings")->string("id"), kId);
}

TEST_F(FileStoreTest, WhereNothingCanBeStoredTheIdLastsForTheProcess) {
    m_folder.write("file", "");
    fs::create_directories(m_folder.path() / "folder/settings");
    ASSERT_EQ(::mkfifo((m_folder.path() / "pipe").c_str(), 0600), 0);
    fs::create_symlink("/nowhere/settings", m_folder.path() / "dangling");
    // Also as root, for whom nothing is read-only: a file in place of a folder, a folder in place
    // of the file, a pipe that would block, and a system folder in which nobody can make files.
    for (const fs::path& file :
         {fs::path(), m_folder.path() / "file/settings", m_folder.path() / "folder/settings",
          m_folder.path() / "pipe", m_folder.path() / "dangling", fs::path("/proc/sorvel/x")}) {
        const auto store = sorvel::makeFileStore(file);
        EXPECT_EQ(store->string("id"), std::nullopt);
        store->setString("id", kId);
        EXPECT_EQ(store->string("id"), kId) << file;
    }
    std::set<std::string> left; // no temporary file among them
    for (const auto& entry : fs::recursive_directory_iterator(m_folder.path()))
        left.insert(entry.path().lexically_relative(m_folder.path()));
    EXPECT_THAT(left, testing::ElementsAre("dangling", "file", "folder", "folder/settings", "pipe"));
}

TEST_F(FileStoreTest, ThreadsAndStoresMayWriteAtOnce) {
    const fs::path file = m_folder.path() / "settings";
    const auto shared = sorvel::makeFileStore(file);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&, thread] {
            const auto own = sorvel::makeFileStore(file);
            for (int at = 0; at < 20; ++at) {
                shared->setString("id", kId);
                own->setString("id", kId);
                EXPECT_EQ(shared->string("id"), kId) << thread;
                EXPECT_EQ(sorvel::makeFileStore(file)->string("id"), kId); // never half a file
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
}

TEST_F(FileStoreTest, LivesInTheConfigurationFolder) {
    const auto fileWith = [](const char* configuration, const char* home) {
        configuration == nullptr ? ::unsetenv("XDG_CONFIG_HOME")
                                 : ::setenv("XDG_CONFIG_HOME", configuration, 1);
        home == nullptr ? ::unsetenv("HOME") : ::setenv("HOME", home, 1);
        return sorvel::settingsFile();
    };
    const char* const value = std::getenv("HOME");
    const std::string home = value == nullptr ? "" : value;
    EXPECT_EQ(fileWith("/c", "/h"), "/c/sorvel/settings");
    EXPECT_EQ(fileWith("relative", "/h"), "/h/.config/sorvel/settings");
    EXPECT_EQ(fileWith(nullptr, "/h"), "/h/.config/sorvel/settings");
    EXPECT_EQ(fileWith("", "relative"), "");
    EXPECT_EQ(fileWith(nullptr, nullptr), "");
    ::setenv("HOME", home.c_str(), 1);
}

} // namespace
