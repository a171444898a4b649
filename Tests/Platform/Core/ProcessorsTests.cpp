#include "Platform/Core/Processors.h"

#include <gtest/gtest.h>

#include <thread>

namespace panoveer {
namespace {

TEST(ProcessorsTests, ALimitHoldsForTheThreadAndThoseThatItStarts) {
    const int before = availableProcessors();
    int limited = 0;
    int inherited = 0;
    int withoutLimit = 0;
    std::thread([&] {
        limitProcessors(0);
        limitProcessors(before + 1);
        withoutLimit = availableProcessors();
        limitProcessors(1);
        limited = availableProcessors();
        std::thread([&] { inherited = availableProcessors(); }).join();
    }).join();
    EXPECT_EQ(withoutLimit, before);
    EXPECT_EQ(limited, 1);
    EXPECT_EQ(inherited, 1);
    EXPECT_EQ(availableProcessors(), before) << "threads beside it keep theirs";
}

} // namespace
} // namespace panoveer
