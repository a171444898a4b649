#include "Panoveer/Services/Export/ExportBufferBudget.h"
#include "Platform/Media/PixelBuffer.h"

#include <gtest/gtest.h>

namespace panoveer {
namespace {

TEST(ExportBufferBudget, IsBoundByTheMemoryOfTheMachine) {
    struct Row {
        const char* what;
        FourCC format;
        std::int64_t width, height;
        std::uint64_t physical, workingSet, allocated; // gigabytes
        std::uint64_t bytesPerBuffer;
        int encoderLimit, inFlightLimit;
    };
    constexpr std::uint64_t gigabyte = 1ull << 30;
    using namespace pixelFormat;
    for (const auto& row :
         {Row{"full HD on a roomy machine", yCbCr420VideoRange, 1920, 1080, 16, 8, 0, 3110400, 8, 3},
          Row{"16K half float on 16 GB", rgbaHalf, 16384, 8192, 16, 64, 0, gigabyte, 2, 1},
          Row{"a full GPU still gets two", yCbCr420TenBitVideoRange, 4096, 2048, 64, 1, 2, 3 * 8388608, 2, 1},
          Row{"the smaller cap wins", yCbCr422TenBitVideoRange, 4096, 4096, 64, 2, 1, 4 * 16777216, 3, 2}}) {
        SCOPED_TRACE(row.what);
        const auto budget =
            ExportBufferBudget::make(row.format, row.width, row.height,
                                     {row.physical * gigabyte, row.workingSet * gigabyte, row.allocated * gigabyte});
        EXPECT_EQ(budget.bytesPerPixelBuffer, row.bytesPerBuffer);
        EXPECT_EQ(budget.encoderPixelBufferLimit, row.encoderLimit);
        EXPECT_EQ(budget.inFlightFrameLimit, row.inFlightLimit);
        EXPECT_GE(budget.bufferMemoryBudgetBytes, 2 * budget.bytesPerPixelBuffer);
    }
}

} // namespace
} // namespace panoveer
