#include "Platform/Core/Text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace panoveer {
namespace {

using testing::ElementsAre;

TEST(Text, WhiteSpaceIsThatOfUnicode) {
    EXPECT_EQ(trimmed(" \t\n dome show \u00a0\u3000"), "dome show");
    EXPECT_EQ(trimmed("\u2003"), "");
    EXPECT_EQ(trimmed("..a.b.", "."), "a.b");
    EXPECT_EQ(trimmed("...", "."), "");
    EXPECT_THAT(splitAtWhiteSpace(" 球幕\u3000show \n 2 "), ElementsAre("球幕", "show", "2"));
    EXPECT_TRUE(splitAtWhiteSpace(" ").empty());
    EXPECT_TRUE(splitAtWhiteSpace("").empty());
}

TEST(Text, RunsOfLettersAndNumbersAreThoseOfUnicode) {
    EXPECT_THAT(alphanumericRuns("a-b__c.3 球幕²!e\u0301"), ElementsAre("a", "b", "c", "3", "球幕²", "e\u0301"));
    EXPECT_TRUE(alphanumericRuns("-_.").empty());
}

TEST(Text, CaseFollowsUnicodeInEveryLocale) {
    EXPECT_EQ(lowercased("ÉTÉ.MOV I"), "été.mov i");
    EXPECT_EQ(uppercased("straße"), "STRASSE");
}

TEST(Text, CountsWholeCharactersOfUTF8) {
    EXPECT_EQ(validUTF8Length("dome"), 4u);
    EXPECT_EQ(validUTF8Length("球幕"), 6u);
    EXPECT_EQ(validUTF8Length(std::string_view("球幕").substr(0, 5)), 3u);
    EXPECT_EQ(validUTF8Length("a\xff z"), 1u);
    EXPECT_EQ(validUTF8Length("\xc0\x80"), 0u) << "an overlong zero";
    EXPECT_EQ(firstCharacters("球幕 show", 3), "球幕 ");
    EXPECT_EQ(firstCharacters("球", 3), "球");
}

TEST(Text, TrailingNumbersOfAnyScriptGo) {
    EXPECT_EQ(withoutTrailingNumbers("GX0100"), "GX");
    EXPECT_EQ(withoutTrailingNumbers("take ٣Ⅳ²"), "take ");
    EXPECT_EQ(withoutTrailingNumbers("4K dome"), "4K dome");
    EXPECT_EQ(withoutTrailingNumbers("2025"), "");
}

TEST(Text, NumbersInFileNamesSortByValue) {
    EXPECT_LT(localizedStandardCompare("clip 9.mov", "clip 10.mov"), 0);
    EXPECT_GT(localizedStandardCompare("clip b", "clip A"), 0);
    EXPECT_EQ(localizedStandardCompare("clip", "clip"), 0);
}

TEST(Text, DatesFollowLocaleAndTimeZone) {
    using namespace std::chrono;
    const auto time = sys_days(2025y / March / 1) + 23h + 5min;
    EXPECT_EQ(formatDate(time, "yyyyMMdd", "en_US", "UTC"), "03/01/2025");
    EXPECT_EQ(formatDate(time, "yyyyMMdd", "de_DE", "Asia/Tokyo"), "02.03.2025");
    EXPECT_EQ(formatDate(time, "jmm", "fr_FR", "UTC"), "23:05");
}

} // namespace
} // namespace panoveer
