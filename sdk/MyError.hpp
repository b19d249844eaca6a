#pragma once

#include <exception>
#include <string>

/// The one error that the SDK throws, and only while something is constructed.
class MyError : public std::exception {
public:
    static MyError runtimeError(const std::string& message) { return MyError(message); }
    const char* what() const noexcept override { return m_message.c_str(); }

private:
    explicit MyError(const std::string& message) : m_message(message) {}
    std::string m_message;
};
