#include "Platform/Core/Text.h"

#include <unicode/coll.h>
#include <unicode/dtptngen.h>
#include <unicode/smpdtfmt.h>
#include <unicode/timezone.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/utf8.h>

#include <ctime>
#include <memory>

namespace panoveer {

namespace {

icu::UnicodeString unicode(std::string_view text) {
    return icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), int32_t(text.size())));
}

std::string utf8(const icu::UnicodeString& text) {
    std::string result;
    text.toUTF8String(result);
    return result;
}

bool isNumber(UChar32 c) {
    const auto category = u_charType(c);
    return category == U_DECIMAL_DIGIT_NUMBER || category == U_LETTER_NUMBER || category == U_OTHER_NUMBER;
}

bool isMark(UChar32 c) {
    const auto category = u_charType(c);
    return category == U_NON_SPACING_MARK || category == U_ENCLOSING_MARK || category == U_COMBINING_SPACING_MARK;
}

// The pieces between runs of separators; no empty ones.
std::vector<std::string> split(std::string_view text, bool (*isSeparator)(UChar32)) {
    const auto source = unicode(text);
    std::vector<std::string> pieces;
    int32_t begin = 0;
    for (int32_t i = 0; i <= source.length(); i = source.moveIndex32(i, 1)) {
        const bool atEnd = i == source.length();
        if (!atEnd && !isSeparator(source.char32At(i)))
            continue;
        if (i > begin)
            pieces.push_back(utf8(source.tempSubStringBetween(begin, i)));
        if (atEnd)
            break;
        begin = source.moveIndex32(i, 1);
    }
    return pieces;
}

std::unique_ptr<icu::Collator> makeFileNameCollator() {
    // The POSIX locale, that of LANG=C, sorts by code and capitals first; people's names are sorted by letter there
    // too.
    const auto& user = icu::Locale::getDefault();
    const auto& order = std::string_view(user.getVariant()) == "POSIX" ? icu::Locale::getRoot() : user;
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::Collator> collator(icu::Collator::createInstance(order, status));
    if (U_FAILURE(status))
        return nullptr;
    collator->setAttribute(UCOL_NUMERIC_COLLATION, UCOL_ON, status);
    return collator;
}

// Collators are not safe to share between threads while they compare.
const icu::Collator* fileNameCollator() {
    thread_local const auto collator = makeFileNameCollator();
    return collator.get();
}

} // namespace

std::string lowercased(std::string_view text) { return utf8(unicode(text).toLower(icu::Locale::getRoot())); }

std::string uppercased(std::string_view text) { return utf8(unicode(text).toUpper(icu::Locale::getRoot())); }

std::string trimmed(std::string_view text) {
    const auto source = unicode(text);
    int32_t begin = 0;
    int32_t end = source.length();
    while (begin < end && u_isUWhiteSpace(source.char32At(begin)))
        begin = source.moveIndex32(begin, 1);
    while (end > begin && u_isUWhiteSpace(source.char32At(source.moveIndex32(end, -1))))
        end = source.moveIndex32(end, -1);
    return utf8(source.tempSubStringBetween(begin, end));
}

std::string trimmed(std::string_view text, std::string_view characters) {
    const auto begin = text.find_first_not_of(characters);
    if (begin == std::string_view::npos)
        return {};
    return std::string(text.substr(begin, text.find_last_not_of(characters) - begin + 1));
}

std::vector<std::string> splitAtWhiteSpace(std::string_view text) {
    return split(text, [](UChar32 c) { return bool(u_isUWhiteSpace(c)); });
}

std::vector<std::string> alphanumericRuns(std::string_view text) {
    return split(text, [](UChar32 c) { return !u_isalpha(c) && !isNumber(c) && !isMark(c); });
}

std::size_t validUTF8Length(std::string_view text) {
    const auto* bytes = text.data();
    const auto length = int64_t(text.size());
    for (int64_t at = 0; at < length;) {
        const auto start = at;
        UChar32 c = 0;
        U8_NEXT(bytes, at, length, c);
        if (c < 0)
            return std::size_t(start);
    }
    return text.size();
}

std::string_view firstCharacters(std::string_view text, std::size_t count) {
    const auto length = int64_t(text.size());
    int64_t at = 0;
    for (std::size_t i = 0; i < count && at < length; ++i)
        U8_FWD_1(text.data(), at, length);
    return text.substr(0, std::size_t(at));
}

std::string withoutTrailingNumbers(std::string_view text) {
    const auto source = unicode(text);
    int32_t end = source.length();
    while (end > 0 && isNumber(source.char32At(source.moveIndex32(end, -1))))
        end = source.moveIndex32(end, -1);
    return utf8(source.tempSubStringBetween(0, end));
}

int localizedStandardCompare(std::string_view left, std::string_view right) {
    const auto* collator = fileNameCollator();
    if (!collator)
        return left.compare(right);
    UErrorCode status = U_ZERO_ERROR;
    return collator->compare(unicode(left), unicode(right), status);
}

std::string localizedStandardSortKey(std::string_view text) {
    const auto* collator = fileNameCollator();
    if (!collator)
        return std::string(text);
    const auto source = unicode(text);
    std::string key(4 * std::size_t(source.length()) + 16, '\0');
    const auto write = [&] {
        return std::size_t(collator->getSortKey(source, reinterpret_cast<uint8_t*>(key.data()), int32_t(key.size())));
    };
    auto size = write();
    if (size > key.size()) {
        key.resize(size);
        size = write();
    }
    key.resize(size);
    return key;
}

std::string formatDate(std::chrono::system_clock::time_point time, std::string_view skeleton, std::string_view locale,
                       std::string_view timeZone) {
    UErrorCode status = U_ZERO_ERROR;
    const icu::Locale place(std::string(locale).c_str());
    const std::unique_ptr<icu::DateTimePatternGenerator> generator(
        icu::DateTimePatternGenerator::createInstance(place, status));
    if (U_FAILURE(status))
        return {};
    const auto pattern = generator->getBestPattern(unicode(skeleton), status);
    icu::SimpleDateFormat format(pattern, place, status);
    if (U_FAILURE(status))
        return {};
    format.adoptTimeZone(icu::TimeZone::createTimeZone(unicode(timeZone)));
    icu::UnicodeString result;
    format.format(UDate(std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count()),
                  result);
    return utf8(result);
}

std::string localTimeText(std::chrono::system_clock::time_point time, const char* form) {
    const auto seconds = std::chrono::system_clock::to_time_t(time);
    std::tm local{};
    localtime_r(&seconds, &local);
    char text[64];
    return {text, std::strftime(text, sizeof text, form, &local)};
}

} // namespace panoveer
