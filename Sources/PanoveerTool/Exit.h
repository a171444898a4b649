#pragma once

#include <exception>
#include <stdexcept>
#include <string>

namespace panoveer::tool {

// What the program ends with.
namespace exitCode {
inline constexpr int done = 0;
inline constexpr int failed = 1;
inline constexpr int wrongUsage = 2;
inline constexpr int cancelled = 130;
} // namespace exitCode

// The command line cannot be understood. what() says what is wrong with it.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The work failed, and standard error says why already.
class ToldFailure : public std::exception {
public:
    const char* what() const noexcept override { return "failed"; }
};

} // namespace panoveer::tool
