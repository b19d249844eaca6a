#pragma once

#include "modem/ggwave.h"

#include <cstdio>
#include <cstdlib>
#include <string>

/// Collects the modem's log lines while it lives; the stream is standard error again afterwards.
class LogCapture {
public:
    LogCapture() : m_stream(open_memstream(&m_text, &m_size)) { ggwave_setLogFile(m_stream); }
    ~LogCapture() {
        ggwave_setLogFile(stderr);
        std::fclose(m_stream);
        std::free(m_text);
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    /// What was logged since the last call.
    std::string take() {
        std::fflush(m_stream);
        std::string text(m_text, m_size);
        const std::string fresh = text.substr(m_taken);
        m_taken = text.size();
        return fresh;
    }

private:
    char* m_text = nullptr;
    std::size_t m_size = 0;
    std::size_t m_taken = 0;
    std::FILE* m_stream;
};
