#include "Platform/Core/UUID.h"

#include <gtest/gtest.h>

namespace panoveer {
namespace {

TEST(UUID, TextReadsBackInEitherCase) {
    const auto id = UUID::parse("0f8FAD5b-d9cb-469F-a165-70867728950e");
    ASSERT_TRUE(id);
    EXPECT_EQ(id->bytes[0], 0x0f);
    EXPECT_EQ(id->bytes[15], 0x0e);
    EXPECT_EQ(id->text(), "0F8FAD5B-D9CB-469F-A165-70867728950E");
    EXPECT_EQ(UUID::parse(id->text()), id);
}

TEST(UUID, RefusesOtherForms) {
    for (const auto* text : {"", "0F8FAD5B-D9CB-469F-A165-70867728950", "0F8FAD5BD9CB469FA16570867728950E",
                             "{0F8FAD5B-D9CB-469F-A165-70867728950E}", "0F8FAD5B-D9CB-469F-A165-70867728950G",
                             "0F8FAD5-BD9CB-469F-A165-70867728950E"})
        EXPECT_EQ(UUID::parse(text), std::nullopt) << text;
}

} // namespace
} // namespace panoveer
