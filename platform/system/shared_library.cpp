#include "platform/system/shared_library.hpp"

#include <dlfcn.h>
#include <string>

namespace sorvel {

SharedLibrary::SharedLibrary(const char* soname, const char* package)
    : m_soname(soname), m_package(package),
      m_handle(::dlopen(soname, RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE)) {
    if (m_handle == nullptr) fail();
}

void* SharedLibrary::address(const char* name) const {
    void* const found = ::dlsym(m_handle, name);
    if (found == nullptr) fail();
    return found;
}

/// The system's words begin with the library's name or its path.
void SharedLibrary::fail() const {
    const char* const words = ::dlerror();
    const std::string reason = words != nullptr ? words : m_soname;
    throw SharedLibraryError("cannot use " + reason + "; install " + m_package);
}

} // namespace sorvel
