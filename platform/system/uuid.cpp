#include "platform/system/uuid.hpp"

#include <uuid/uuid.h>

namespace sorvel {

namespace {

class SystemUuids final : public UuidGenerator {
public:
    std::string make() override {
        uuid_t id = {};
        uuid_generate_random(id);
        char text[UUID_STR_LEN] = {};
        uuid_unparse_upper(id, text);
        return text;
    }
};

} // namespace

std::shared_ptr<UuidGenerator> makeUuids() { return std::make_shared<SystemUuids>(); }

} // namespace sorvel
