#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

/// A folder of its own, gone with this object.
class TemporaryFolder {
public:
    TemporaryFolder() {
        std::string name = std::filesystem::temp_directory_path() / "sorvel-test-XXXXXX";
        if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder");
        m_path = name;
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }

    const std::filesystem::path& path() const { return m_path; }

    void write(const std::string& name, const std::string& content) const {
        std::filesystem::create_directories((m_path / name).parent_path());
        std::ofstream(m_path / name, std::ios::binary) << content;
    }
    std::string read(const std::string& name) const {
        std::stringstream content;
        content << std::ifstream(m_path / name, std::ios::binary).rdbuf();
        return content.str();
    }

private:
    std::filesystem::path m_path;
};
