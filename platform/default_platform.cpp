#include "platform/default_platform.hpp"

#include "platform/files/file_store.hpp"
#include "platform/http/curl_http.hpp"
#include "platform/system/device_facts.hpp"
#include "platform/system/uuid.hpp"
#include "sdk/MainQueue.hpp"
#include "sdk/SorvelUBM.hpp"

namespace sorvel {

namespace {

class Machine {
public:
    Machine() {
        m_platform.store = makeFileStore(settingsFile());
        m_platform.facts = makeDeviceFacts();
        m_platform.uuids = makeUuids();
        m_platform.http = m_http;
        m_platform.mainQueue = std::shared_ptr<TaskQueue>(std::shared_ptr<void>(), &MainQueue::main());
        addDefaultAudio(m_platform);
        const Environment& environment = m_platform;
        setSharedEnvironment(environment);
    }
    Machine(const Machine&) = delete;
    Machine& operator=(const Machine&) = delete;
    // Copies of the platform may be held for longer, but nothing is sent any more.
    ~Machine() { m_http->shutdown(); }

    const Platform& platform() const { return m_platform; }

private:
    std::shared_ptr<CurlHttpSession> m_http = std::make_shared<CurlHttpSession>();
    Platform m_platform;
};

} // namespace

Platform defaultPlatform() {
    static const Machine machine;
    return machine.platform();
}

} // namespace sorvel

// Here rather than in the SDK, which knows no platform.
SorvelUBM::SorvelUBM(const std::string& prefix) : SorvelUBM(prefix, sorvel::defaultPlatform()) {}
