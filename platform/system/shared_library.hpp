/// Libraries that are opened when they are first used, so that a run that needs none of them starts
/// without them and all that they bring along.
#pragma once

#include <stdexcept>

namespace sorvel {

/// One line for the user: which library cannot be used, why, and what to install.
class SharedLibraryError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A library that stays open until the process ends: what it has started cannot be called back.
///
///     struct Functions {
///         explicit Functions(const SharedLibrary& library) { library.find(init, "cubeb_init"); }
///         decltype(&cubeb_init) init = nullptr;
///     };
class SharedLibrary {
public:
    /// @param soname   with the number of its interface: "libcurl.so.4"
    /// @param package  that holds it on Debian
    /// @throws SharedLibraryError  when there is no such library
    SharedLibrary(const char* soname, const char* package);

    /// @throws SharedLibraryError  when the library has no such function
    template <typename Function>
    void find(Function*& function, const char* name) const {
        function = reinterpret_cast<Function*>(address(name));
    }

private:
    void* address(const char* name) const;
    [[noreturn]] void fail() const;

    const char* m_soname;
    const char* m_package;
    void* m_handle;
};

} // namespace sorvel
