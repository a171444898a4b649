#include "Panoveer/Services/Export/ExportBufferBudget.h"
#include "Platform/Media/PixelBuffer.h"

#include <gtest/gtest.h>

namespace panoveer {
namespace {

constexpr std::uint64_t gigabyte = 1ull << 30;

struct BudgetCase {
    const char* name;
    FourCC format;
    std::int64_t width, height;
    ExportMemory memory;
    std::uint64_t bytesPerBuffer;
    int encoderLimit, inFlightLimit;
};

class ExportBufferBudgetTest : public testing::TestWithParam<BudgetCase> {};

TEST_P(ExportBufferBudgetTest, BoundsBuffersByMemory) {
    const auto& given = GetParam();
    const auto budget = ExportBufferBudget::make(given.format, given.width, given.height, given.memory);
    EXPECT_EQ(budget.bytesPerPixelBuffer, given.bytesPerBuffer);
    EXPECT_EQ(budget.encoderPixelBufferLimit, given.encoderLimit);
    EXPECT_EQ(budget.inFlightFrameLimit, given.inFlightLimit);
    EXPECT_GE(budget.bufferMemoryBudgetBytes, 2 * budget.bytesPerPixelBuffer);
}

INSTANTIATE_TEST_SUITE_P(Machines, ExportBufferBudgetTest,
                         testing::Values(BudgetCase{"Full_HD_on_a_roomy_machine",
                                                    pixelFormat::yCbCr420VideoRange,
                                                    1920,
                                                    1080,
                                                    {16 * gigabyte, 8 * gigabyte, 0},
                                                    3110400,
                                                    8,
                                                    3},
                                         BudgetCase{"Sixteen_K_half_float_on_16_GB",
                                                    pixelFormat::rgbaHalf,
                                                    16384,
                                                    8192,
                                                    {16 * gigabyte, 64 * gigabyte, 0},
                                                    gigabyte,
                                                    2,
                                                    1},
                                         BudgetCase{"A_GPU_that_is_full_still_gets_two",
                                                    pixelFormat::yCbCr420TenBitVideoRange,
                                                    4096,
                                                    2048,
                                                    {64 * gigabyte, gigabyte, 2 * gigabyte},
                                                    3 * 8388608,
                                                    2,
                                                    1},
                                         BudgetCase{"The_smaller_cap_wins",
                                                    pixelFormat::yCbCr422TenBitVideoRange,
                                                    4096,
                                                    4096,
                                                    {64 * gigabyte, 2 * gigabyte, gigabyte},
                                                    4 * 16777216,
                                                    3,
                                                    2}),
                         [](const auto& test) { return test.param.name; });

} // namespace
} // namespace panoveer
