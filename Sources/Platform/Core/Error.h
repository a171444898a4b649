#pragma once

#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

namespace panoveer {

// Domains that errors of the platform layer carry, so that failures can be told apart by code.
inline constexpr std::string_view posixErrorDomain = "NSPOSIXErrorDomain";
inline constexpr std::string_view mediaErrorDomain = "AVFoundationErrorDomain";

// A failure that a caller or a person has to be told about. what() is the text for the log and, unless
// a subclass localises it, for the person. Every error enumeration of the program is a subclass that
// carries its case; the platform layer throws this class itself, with a domain and a code.
class Error : public std::runtime_error {
public:
    explicit Error(const std::string& message, std::string domain = {}, int code = 0)
        : std::runtime_error(message), domain_(std::move(domain)), code_(code) {}

    // Empty when the failure has no code of its own.
    const std::string& domain() const noexcept { return domain_; }
    int code() const noexcept { return code_; }

    // The failure beneath this one, for diagnostics; null when there is none.
    const std::shared_ptr<const Error>& underlying() const noexcept { return underlying_; }
    void setUnderlying(std::shared_ptr<const Error> error) { underlying_ = std::move(error); }

    // What the platform gave as the reason, for diagnostics; empty when it gave none.
    const std::string& failureReason() const noexcept { return failureReason_; }
    void setFailureReason(std::string reason) { failureReason_ = std::move(reason); }

    // Whether what() already tells the person all that the failures beneath mean.
    bool speaksForUnderlying() const noexcept { return speaksForUnderlying_; }

protected:
    void setSpeaksForUnderlying() { speaksForUnderlying_ = true; }

private:
    std::string domain_;
    int code_;
    bool speaksForUnderlying_ = false;
    std::string failureReason_;
    std::shared_ptr<const Error> underlying_;
};

// Work was stopped on request. Not an Error: nothing went wrong.
class Cancelled : public std::exception {
public:
    const char* what() const noexcept override { return "cancelled"; }
};

// The failure of a system call: "WHAT: text of errno", in posixErrorDomain with errno as its code.
Error posixError(std::string_view what, int errorNumber);

} // namespace panoveer
