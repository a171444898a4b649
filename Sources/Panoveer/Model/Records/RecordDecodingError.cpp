#include "Panoveer/Model/Records/RecordDecodingError.h"

namespace panoveer {

namespace {

std::string message(const std::string& keyPath, const std::string& description) {
    return keyPath.empty() ? "The document " + description : "\"" + keyPath + "\" in the document " + description;
}

} // namespace

RecordDecodingError::RecordDecodingError(Problem problem, std::string keyPath, const std::string& description)
    : Error(message(keyPath, description)), problem_(problem), keyPath_(std::move(keyPath)) {}

RecordEncodingError::RecordEncodingError(const std::string& keyPath)
    : Error(message(keyPath, "is not a finite number and cannot be written.")) {}

} // namespace panoveer
