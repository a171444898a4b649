#include "Panoveer/Services/Diagnostics/GenerationFailureDescriber.h"

#include "Platform/Core/Localization.h"
#include "Platform/Core/Text.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <new>
#include <optional>
#include <set>

namespace panoveer {

namespace {

constexpr std::string_view cocoaErrorDomain = "NSCocoaErrorDomain";

struct KnownFailure {
    std::string_view domain;
    int code;
    std::string_view key;
};

constexpr std::string_view permissionDenied = "error.generation.permission_denied";
constexpr std::string_view destinationMissing = "error.generation.destination_missing";
constexpr std::string_view outOfMemory = "error.generation.out_of_memory";
constexpr std::string_view readOnlyDestination = "error.generation.read_only_destination";
constexpr std::string_view encoderUnavailable = "error.generation.encoder_unavailable";
constexpr std::string_view sourceUnreadable = "error.generation.source_unreadable";

constexpr auto knownFailures = std::to_array<KnownFailure>({
    {posixErrorDomain, EPERM, permissionDenied},    {posixErrorDomain, EACCES, permissionDenied},
    {posixErrorDomain, ENOENT, destinationMissing}, {posixErrorDomain, ENOMEM, outOfMemory},
    {posixErrorDomain, EROFS, readOnlyDestination}, {cocoaErrorDomain, 257, permissionDenied},
    {cocoaErrorDomain, 513, permissionDenied},      {cocoaErrorDomain, 4, destinationMissing},
    {cocoaErrorDomain, 642, readOnlyDestination},   {mediaErrorDomain, -11884, permissionDenied},
    {mediaErrorDomain, -11862, permissionDenied},   {mediaErrorDomain, -11883, encoderUnavailable},
    {mediaErrorDomain, -11864, encoderUnavailable}, {mediaErrorDomain, -11861, encoderUnavailable},
    {mediaErrorDomain, -11840, encoderUnavailable}, {mediaErrorDomain, -11834, encoderUnavailable},
    {mediaErrorDomain, -11881, sourceUnreadable},   {mediaErrorDomain, -11855, sourceUnreadable},
    {mediaErrorDomain, -11849, sourceUnreadable},   {mediaErrorDomain, -11829, sourceUnreadable},
    {mediaErrorDomain, -11828, sourceUnreadable},   {mediaErrorDomain, -11822, sourceUnreadable},
    {mediaErrorDomain, -11821, sourceUnreadable},   {mediaErrorDomain, -11801, outOfMemory},
});

bool isOutOfSpace(const Error& error) {
    return (error.domain() == posixErrorDomain && (error.code() == ENOSPC || error.code() == EDQUOT)) ||
           (error.domain() == cocoaErrorDomain && error.code() == 640) ||
           (error.domain() == mediaErrorDomain && error.code() == -11807);
}

std::optional<std::string> knownMessage(const Error& error) {
    const auto known = std::ranges::find_if(knownFailures, [&](const KnownFailure& each) {
        return each.domain == error.domain() && each.code == error.code();
    });
    return known == knownFailures.end() ? std::nullopt : std::optional(localized(known->key));
}

// What a platform or a library prints when it has nothing to say.
bool isGenericDescription(std::string_view text) {
    constexpr auto phrases = std::to_array<std::string_view>({
        "operation could not be completed", "operazione non può essere completata",
        "operazione non puo essere completata", // without the accent
        "unknown error", "generic error in an external library", "internal bug, should not have happened",
        "error number ", // libavutil's words for a code that it does not know
    });
    const auto lower = lowercased(text);
    return std::ranges::any_of(phrases, [&](auto phrase) { return lower.contains(phrase); });
}

} // namespace

std::vector<Error> GenerationFailureDescriber::errorChain(const std::exception& failure) {
    std::vector<Error> chain;
    if (dynamic_cast<const std::bad_alloc*>(&failure))
        chain.push_back(posixError("Memory", ENOMEM));
    std::set<const Error*> visited;
    for (const auto* error = dynamic_cast<const Error*>(&failure); error && visited.insert(error).second;
         error = error->underlying().get())
        chain.push_back(*error);
    return chain;
}

bool GenerationFailureDescriber::containsOutOfSpaceError(const std::exception& failure) {
    return std::ranges::any_of(errorChain(failure), isOutOfSpace);
}

std::string GenerationFailureDescriber::message(const std::exception& failure) {
    const auto chain = errorChain(failure);
    if (!chain.empty() && chain.front().speaksForUnderlying())
        return chain.front().what();
    if (std::ranges::any_of(chain, isOutOfSpace))
        return localized("error.generation.disk_full");
    for (const auto& error : chain)
        if (auto known = knownMessage(error))
            return *known;
    if (chain.empty())
        return failure.what();

    const auto& first = chain.front();
    const std::string description = first.what();
    if (chain.size() == 1)
        return first.domain() == mediaErrorDomain || isGenericDescription(description)
                   ? localized("error.generation.with_error_code", first.domain(), description, first.code())
                   : description;
    // Many a failure quotes its reason already.
    const std::string deepest = chain.back().what();
    return description.contains(deepest) ? description
                                         : localized("error.generation.with_underlying_reason", description, deepest);
}

std::string GenerationFailureDescriber::diagnosticMessage(const std::exception& failure) {
    std::string line;
    for (const auto& error : errorChain(failure)) {
        line +=
            (line.empty() ? "" : " <- ") + error.domain() + "(" + std::to_string(error.code()) + "): " + error.what();
        if (!error.failureReason().empty())
            line += " reason=" + error.failureReason();
    }
    return line.empty() ? failure.what() : line;
}

} // namespace panoveer
