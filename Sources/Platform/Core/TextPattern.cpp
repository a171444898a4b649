#include "Platform/Core/TextPattern.h"

#include <unicode/regex.h>
#include <unicode/unistr.h>

namespace panoveer {

namespace {

// Bytes for the places that a match may have to go back to: enough for a line of a megabyte.
constexpr int32_t backtrackingLimit = 128 << 20;

icu::UnicodeString unicode(std::string_view text) {
    return icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), int32_t(text.size())));
}

} // namespace

struct TextPattern::Compiled {
    std::unique_ptr<icu::RegexPattern> pattern;
};

std::optional<TextPattern> TextPattern::ignoringCase(std::string_view expression) {
    UErrorCode status = U_ZERO_ERROR;
    UParseError where;
    std::unique_ptr<icu::RegexPattern> pattern(
        icu::RegexPattern::compile(unicode(expression), UREGEX_CASE_INSENSITIVE | UREGEX_MULTILINE, where, status));
    if (U_FAILURE(status))
        return std::nullopt;
    return TextPattern(std::make_shared<const Compiled>(std::move(pattern)));
}

std::optional<std::string> TextPattern::replacingMatches(std::string_view text, std::string_view replacement) const {
    const auto input = unicode(text);
    UErrorCode status = U_ZERO_ERROR;
    const std::unique_ptr<icu::RegexMatcher> matcher(compiled_->pattern->matcher(input, status));
    if (U_FAILURE(status))
        return std::nullopt;
    matcher->setStackLimit(backtrackingLimit, status);
    const auto replaced = matcher->replaceAll(unicode(replacement), status);
    if (U_FAILURE(status))
        return std::nullopt;
    std::string result;
    replaced.toUTF8String(result);
    return result;
}

} // namespace panoveer
