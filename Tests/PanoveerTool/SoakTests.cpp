#include "Panoveer/Model/Records/ClipDefaults.h"
#include "Panoveer/Rendering/Projection/CPUProjectionRenderer.h"
#include "Panoveer/Services/Export/VRNativeExporter.h"
#include "Panoveer/Services/Intake/VideoMetadataReader.h"
#include "Platform/Media/LibAVMessages.h"
#include "Support/MediaFactory.h"

#include <gtest/gtest.h>
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <iterator>

namespace panoveer::test {
namespace {

namespace fs = std::filesystem;

struct Load {
    std::ptrdiff_t descriptors = 0;
    std::ptrdiff_t threads = 0;
    double heapMegabytes = 0;     // in use; 0 under a sanitizer, whose heap is another
    double residentMegabytes = 0; // of the process

    static Load now() {
        malloc_trim(0);
        long total = 0, resident = 0;
        std::ifstream("/proc/self/statm") >> total >> resident;
        const auto heap = mallinfo2();
        const auto count = [](const char* folder) {
            return std::distance(fs::directory_iterator(folder), fs::directory_iterator());
        };
        return {count("/proc/self/fd"), count("/proc/self/task"), double(heap.uordblks + heap.hblkhd) / 1e6,
                double(resident) * double(sysconf(_SC_PAGESIZE)) / 1e6};
    }
};

// One of every kind: codecs, containers, depths, rates, turned and stereo pictures, sound, both roads.
std::vector<MovieSpec> kinds() {
    std::vector<MovieSpec> specs = {
        {.name = "plain.mp4"},
        {.name = "deep_360.mkv", .width = 256, .height = 128, .codec = "libx265", .pixelFormat = "yuv420p10le"},
        {.name = "alpha.mov", .codec = "prores_ks", .pixelFormat = "yuva444p10le"},
        {.name = "photo.avi", .frameRate = "15", .codec = "mjpeg", .pixelFormat = "yuvj420p"},
        {.name = "web.webm", .frameRate = "60", .codec = "libvpx-vp9"},
        {.name = "broadcast.ts", .frameRate = "25", .codec = "mpeg2video", .audio = {{.codec = "mp2"}}},
        {.name = "archive_TB.mkv", .width = 128, .height = 128, .codec = "ffv1", .pixelFormat = "yuv444p"},
        {.name = "turned.mov", .rotationDegrees = 90, .audio = {{}, {.layout = "mono"}}},
        {.name = "eyes_360_SBS.mp4", .width = 256, .height = 64, .frameRate = "30000/1001"},
        {.name = "damaged.mp4", .outputOptions = {"-movflags", "+faststart"}},
    };
    for (auto& spec : specs)
        spec.frameCount = 10;
    return specs;
}

class Soak : public testing::Test {
protected:
    void SetUp() override {
        sendLibAVMessagesToLog();
        for (const auto& spec : kinds())
            sources.push_back(makeMovie(folder, spec));
        fs::resize_file(sources.back(), fs::file_size(sources.back()) * 2 / 3);
        fs::create_directories(out);
    }

    // Every fifth source's conversion is cancelled on its way.
    void convert(std::size_t index) {
        constexpr ExportCodec codecs[] = {ExportCodec::h264, ExportCodec::hevc10, ExportCodec::proRes422HQ,
                                          ExportCodec::proRes4444};
        ExportSettings settings;
        settings.mode = ExportMode::separateClips;
        settings.codec = codecs[index % std::size(codecs)];
        settings.outputFormat = ProjectionFormat::equirectangular;
        settings.customWidth = 160;
        settings.customHeight = 80;
        std::stop_source stop;
        const bool isCancelled = index % 5 == 4;
        const auto asset = VideoMetadataReader::withFormatDetection(
            VideoMetadataReader::readStreams(URL::fromFilePath(sources[index])));
        const VRClipSegment clips[] = {makeClip(asset, settings)};
        try {
            exporter.exportClips(
                clips, settings, URL::fromFilePath(out), {{asset.url, asset.frameRate}},
                [&](const ExportProgress&) {
                    if (isCancelled && exporter.framesWritten() >= 3)
                        stop.request_stop();
                },
                stop.get_token());
            ++finished;
        } catch (const Cancelled&) {
            EXPECT_TRUE(isCancelled);
        }
    }

    TemporaryFolder folder;
    fs::path out = folder / "out";
    std::vector<fs::path> sources;
    CPUProjectionRenderer renderer;
    VRNativeExporter exporter{renderer};
    int finished = 0;
};

// What the first conversions have opened and kept, a log, caches, a pool of workers, is all that the later ones need.
TEST_F(Soak, FiftyConversionsInOneProcessKeepNothing) {
    Load early, late;
    for (int round = 0; round < 5; ++round) {
        for (std::size_t index = 0; index < sources.size(); ++index)
            convert(index);
        (round == 0 ? early : late) = Load::now();
        fs::remove_all(out);
        fs::create_directories(out);
    }
    RecordProperty("heapMegabytes", std::to_string(early.heapMegabytes) + " " + std::to_string(late.heapMegabytes));
    RecordProperty("residentMegabytes",
                   std::to_string(early.residentMegabytes) + " " + std::to_string(late.residentMegabytes));
    EXPECT_EQ(finished, 40);
    EXPECT_LE(late.descriptors, early.descriptors);
    EXPECT_LE(late.threads, early.threads);
    // One of these pictures as the renderer holds it is some hundred kilobytes: forty of them would show.
    EXPECT_LE(late.heapMegabytes, early.heapMegabytes + 0.5);
#ifndef __SANITIZE_ADDRESS__ // which keeps freed memory back on purpose
    // Freed memory comes back to the system in pages that nothing else lies on: heaps of threads keep some.
    EXPECT_LE(late.residentMegabytes, early.residentMegabytes + 20);
#endif
}

} // namespace
} // namespace panoveer::test
