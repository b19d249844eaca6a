#include "sdk/platform.hpp"

#include <cstdio>

namespace sorvel {

namespace {

class StreamLines final : public ProgressLines {
public:
    explicit StreamLines(std::FILE* stream) : m_stream(stream) {}

    void line(std::string_view text) noexcept override {
        // One call, so that lines of several threads stay whole.
        std::fprintf(m_stream, "%.*s\n", static_cast<int>(text.size()), text.data());
        std::fflush(m_stream);
    }

private:
    std::FILE* m_stream;
};

} // namespace

std::shared_ptr<ProgressLines> standardOutputLines() { return std::make_shared<StreamLines>(stdout); }
std::shared_ptr<ProgressLines> standardErrorLines() { return std::make_shared<StreamLines>(stderr); }

} // namespace sorvel
