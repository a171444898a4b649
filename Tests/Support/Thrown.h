#pragma once

#include <optional>

namespace panoveer::test {

// The exception of this kind that a call ends with, if it does. Others go on.
template<class Exception, class Call>
std::optional<Exception> thrown(const Call& call) {
    try {
        call();
    } catch (const Exception& exception) {
        return exception;
    }
    return std::nullopt;
}

} // namespace panoveer::test
