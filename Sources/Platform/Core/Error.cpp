#include "Platform/Core/Error.h"

#include <cstring>

namespace panoveer {

Error posixError(std::string_view what, int errorNumber) {
    char buffer[256];
    return Error(std::string(what) + ": " + strerror_r(errorNumber, buffer, sizeof buffer),
                 std::string(posixErrorDomain), errorNumber);
}

} // namespace panoveer
