#include "Platform/Core/Base64.h"

#include <gtest/gtest.h>

namespace panoveer {
namespace {

std::vector<std::uint8_t> bytesOf(std::string_view text) { return {text.begin(), text.end()}; }

TEST(Base64, MeetsTheVectorsOfTheStandard) {
    // RFC 4648, section 10.
    const std::pair<std::string_view, std::string_view> vectors[] = {
        {"", ""},
        {"f", "Zg=="},
        {"fo", "Zm8="},
        {"foo", "Zm9v"},
        {"foob", "Zm9vYg=="},
        {"fooba", "Zm9vYmE="},
        {"foobar", "Zm9vYmFy"},
        {"\xff\xef\xfe", "/+/+"},
    };
    for (const auto& [plain, encoded] : vectors) {
        EXPECT_EQ(base64Encoded(bytesOf(plain)), encoded);
        EXPECT_EQ(base64Decoded(encoded), bytesOf(plain));
    }
}

TEST(Base64, RefusesWhatIsNot) {
    for (const auto* text : {"Zg", "Zg=", "Z===", "====", "Zm9v\n", "Zm-_", "Zg==Zg==", "Zm 9"})
        EXPECT_EQ(base64Decoded(text), std::nullopt) << text;
}

} // namespace
} // namespace panoveer
