#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

// Text as people read it: Unicode rules from ICU. All strings are UTF-8. Pure functions, any thread.
namespace panoveer {

std::string lowercased(std::string_view text);
std::string uppercased(std::string_view text);

// Without white space and line breaks at both ends (Unicode White_Space).
std::string trimmed(std::string_view text);
// Without any of the given ASCII characters at both ends.
std::string trimmed(std::string_view text, std::string_view characters);

// The pieces between runs of white space; no empty ones.
std::vector<std::string> splitAtWhiteSpace(std::string_view text);

// The runs of letters and numbers of any script, with the marks upon them; what lies between them is dropped.
std::vector<std::string> alphanumericRuns(std::string_view text);

// How many bytes at the beginning are whole characters of UTF-8. What follows is an error, or a character cut off.
std::size_t validUTF8Length(std::string_view text);

// At most so many characters from the beginning.
std::string_view firstCharacters(std::string_view text, std::size_t count);

// Without the run of numeric characters (general categories Nd, Nl, No) at its end.
std::string withoutTrailingNumbers(std::string_view text);

// The order in which a file browser lists names: the user's collation, case ignored at first, runs of digits by value.
// Negative, 0 or positive.
int localizedStandardCompare(std::string_view left, std::string_view right);

// Bytes that compare as the texts do in that order: for long lists, where each text is compared many times.
std::string localizedStandardSortKey(std::string_view text);

// A date by skeleton ("yyyyMMdd", "jmm") in the order and spelling of a locale ("en_US") and an Olson time zone.
std::string formatDate(std::chrono::system_clock::time_point time, std::string_view skeleton, std::string_view locale,
                       std::string_view timeZone);

// Local time in a form of strftime ("%Y%m%d-%H%M%S"), at most 64 bytes long.
std::string localTimeText(std::chrono::system_clock::time_point time, const char* form);

} // namespace panoveer
