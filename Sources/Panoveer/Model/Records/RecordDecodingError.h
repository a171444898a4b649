#pragma once

#include "Platform/Core/Error.h"

#include <string>

namespace panoveer {

// A document that cannot be read: where in it, and what is wrong there.
class RecordDecodingError : public Error {
public:
    enum class Problem {
        malformedDocument, // no JSON at all
        missingKey,        // a required key is absent
        wrongType,         // a value of another JSON type
        invalidValue,      // the right type, but no known case, no UUID, no URL, no base64, no 64-bit number
    };

    RecordDecodingError(Problem problem, std::string keyPath, const std::string& description);

    Problem problem() const { return problem_; }
    // "segments[2].transform.fovDegrees"; empty for the document itself.
    const std::string& keyPath() const { return keyPath_; }

private:
    Problem problem_;
    std::string keyPath_;
};

// A record that JSON cannot hold: a number in it is not finite. The message names the key path.
class RecordEncodingError : public Error {
public:
    explicit RecordEncodingError(const std::string& keyPath);
};

} // namespace panoveer
