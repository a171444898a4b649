#include "Benchmarks/DetectionBenchmark.h"

#include "Benchmarks/BenchmarkReport.h"
#include "Panoveer/Model/Records/RecordEnums.h"
#include "Panoveer/Services/Intake/ImmersiveFormatDetector.h"
#include "Panoveer/Services/Intake/ImmersiveImageAnalysis.h"
#include "Panoveer/Services/Intake/Majority.h"
#include "Support/SyntheticWorld.h"

#include <nlohmann/json.hpp>

#include <format>
#include <iostream>
#include <map>
#include <string>
#include <vector>

namespace panoveer::bench {

namespace {

using JSON = nlohmann::ordered_json;
using test::SyntheticClip;
using Projection = ProjectionFormat;
using Layout = StereoVideoLayout;

struct Kind {
    std::string name;
    Projection projection;
    Layout layout;
    int width; // of the whole frame
    int height;
    FisheyeCircle circle = {};
    double fisheyeDegrees = 180;
};

const std::vector<Kind>& kinds() {
    static const std::vector<Kind> all = {
        {"flat 16:9", Projection::standard, Layout::mono, 512, 288},
        {"flat 2:1", Projection::standard, Layout::mono, 512, 256},
        {"flat 3:2", Projection::standard, Layout::mono, 480, 320},
        {"flat 4:3", Projection::standard, Layout::mono, 480, 360},
        {"flat 9:16", Projection::standard, Layout::mono, 288, 512},
        {"flat 16:9 pair", Projection::standard, Layout::sideBySide, 768, 216},
        {"flat 16:9 pair", Projection::standard, Layout::overUnder, 384, 432},
        {"flat pair in 16:9", Projection::standard, Layout::sideBySide, 512, 288},
        {"sphere", Projection::equirectangular, Layout::mono, 512, 256},
        {"sphere pair", Projection::equirectangular, Layout::sideBySide, 1024, 256},
        {"sphere pair", Projection::equirectangular, Layout::overUnder, 512, 512},
        {"half sphere", Projection::halfEquirectangular, Layout::mono, 384, 384},
        {"half sphere pair", Projection::halfEquirectangular, Layout::sideBySide, 768, 384},
        {"half sphere pair", Projection::halfEquirectangular, Layout::overUnder, 384, 768},
        {"fisheye, full circle", Projection::domemaster, Layout::mono, 384, 384, {0.5, 0.5, 0.5}},
        {"fisheye, off centre", Projection::domemaster, Layout::mono, 384, 384, {0.52, 0.49, 0.46}, 200},
        {"fisheye in 16:9", Projection::domemaster, Layout::mono, 512, 288, {0.5, 0.5, 0.5}},
        {"fisheye pair", Projection::domemaster, Layout::sideBySide, 768, 384, {0.5, 0.5, 0.47}, 190},
        {"fisheye pair, clipped", Projection::domemaster, Layout::sideBySide, 768, 384, {0.5, 0.5, 0.54}, 200},
        {"cubemap", Projection::cubemap, Layout::mono, 480, 320},
        {"cubemap pair", Projection::cubemap, Layout::overUnder, 480, 640},
        {"equi-angular cubemap", Projection::eac, Layout::mono, 480, 320},
        {"equi-angular pair", Projection::eac, Layout::overUnder, 480, 640},
    };
    return all;
}

// The ways in which every kind is recorded.
std::vector<SyntheticClip> recordings(const Kind& kind) {
    const SyntheticClip clean{.projection = kind.projection,
                              .stereoLayout = kind.layout,
                              .width = kind.width,
                              .height = kind.height,
                              .circle = kind.circle,
                              .fisheyeDegrees = kind.fisheyeDegrees};
    std::vector<SyntheticClip> all(4, clean);
    all[1].noise = 0.03;
    all[2].isNight = true;
    all[2].noise = 0.012;
    if (kind.projection == Projection::standard)
        all[3].barHeight = 0.12;
    else
        all[3].blackLevel = 0.05;
    return all;
}

std::vector<SyntheticClip> clipsOf(const Kind& kind, std::uint32_t& seed) {
    constexpr int worlds = 2;
    std::vector<SyntheticClip> clips;
    for (int world = 0; world < worlds; ++world)
        for (bool eyesSwapped : {false, true})
            if (!eyesSwapped || kind.layout != Layout::mono)
                for (auto clip : recordings(kind)) {
                    clip.eyesSwapped = eyesSwapped;
                    clip.seed = ++seed;
                    clips.push_back(clip);
                }
    return clips;
}

std::optional<bool> eyesSwapped(std::span<const GrayscaleImage> frames, Layout layout) {
    std::vector<bool> votes;
    for (const auto& frame : frames)
        if (const auto isLeft = ImmersiveImageAnalysis::firstViewIsLeftEye(frame, layout))
            votes.push_back(!*isLeft);
    return majority(votes);
}

struct EyeOrder {
    int right = 0;
    int wrong = 0;
    int open = 0;
};

struct KindResult {
    int clips = 0;
    int projectionRight = 0;
    int layoutRight = 0;
};

struct Results {
    std::map<Projection, std::map<Projection, int>> projections; // by truth, then by answer
    std::map<Layout, std::map<Layout, int>> layouts;
    EyeOrder eyes; // of the clips of two eyes, their layout given
    std::vector<KindResult> kinds;
    std::vector<double> seconds; // that detection took for each clip
};

void examine(const SyntheticClip& clip, Results& results, KindResult& kind) {
    const auto frames = test::sampleFrames(clip);
    ImmersiveFormatDetection found;
    results.seconds.push_back(timed(
        [&] { found = ImmersiveFormatDetector::detect(clip.width, clip.height, std::nullopt, "", false, frames); }));
    ++results.projections[clip.projection][found.projection];
    ++results.layouts[clip.stereoLayout][found.stereoLayout];
    ++kind.clips;
    kind.projectionRight += found.projection == clip.projection;
    kind.layoutRight += found.stereoLayout == clip.stereoLayout;
    if (clip.stereoLayout == Layout::mono)
        return;
    const auto swapped = eyesSwapped(frames, clip.stereoLayout);
    ++(!swapped ? results.eyes.open : *swapped == clip.eyesSwapped ? results.eyes.right : results.eyes.wrong);
}

template<class Enum>
void printConfusion(const char* title, std::map<Enum, std::map<Enum, int>> counts) {
    constexpr int width = 21;
    std::cout << std::format("{:{}}", title, width);
    for (auto answer : allCases<Enum>)
        std::cout << std::format("{:>{}}", rawValue(answer), width);
    std::cout << '\n';
    for (auto& [truth, answers] : counts) {
        std::cout << std::format("  {:{}}", rawValue(truth), width - 2);
        for (auto answer : allCases<Enum>)
            std::cout << std::format("{:>{}}", answers[answer], width);
        std::cout << '\n';
    }
    std::cout << '\n';
}

template<class Enum>
JSON confusionJSON(const std::map<Enum, std::map<Enum, int>>& counts) {
    JSON table = JSON::object();
    for (const auto& [truth, answers] : counts)
        for (const auto& [answer, count] : answers)
            table[std::string(rawValue(truth))][std::string(rawValue(answer))] = count;
    return table;
}

void print(const Results& results) {
    std::cout << std::format("{} clips of 3 frames each, by their pictures alone; rows are the truth\n\n",
                             results.seconds.size());
    printConfusion("projection", results.projections);
    printConfusion("layout", results.layouts);
    std::cout << std::format("eye order            {} right, {} wrong, {} without an answer\n\n", results.eyes.right,
                             results.eyes.wrong, results.eyes.open);
    std::cout << std::format("{:24} {:12} {:>9} {:>18} {:>14}\n", "kind", "layout", "frame", "projection right",
                             "layout right");
    for (std::size_t i = 0; i < kinds().size(); ++i) {
        const auto& kind = kinds()[i];
        const auto& result = results.kinds[i];
        std::cout << std::format("{:24} {:12} {:>9} {:>12} of {:2} {:>8} of {:2}\n", kind.name, rawValue(kind.layout),
                                 std::format("{}x{}", kind.width, kind.height), result.projectionRight, result.clips,
                                 result.layoutRight, result.clips);
    }
    std::cout << std::format("\ndetection of one clip    {:.1f} ms (median)\n",
                             Spread::of(results.seconds).median * 1e3);
}

void printJSON(const Results& results) {
    JSON list = JSON::array();
    for (std::size_t i = 0; i < kinds().size(); ++i)
        list.push_back({{"name", kinds()[i].name},
                        {"layout", rawValue(kinds()[i].layout)},
                        {"width", kinds()[i].width},
                        {"height", kinds()[i].height},
                        {"clips", results.kinds[i].clips},
                        {"projectionRight", results.kinds[i].projectionRight},
                        {"layoutRight", results.kinds[i].layoutRight}});
    const JSON eyes = {{"right", results.eyes.right}, {"wrong", results.eyes.wrong}, {"noAnswer", results.eyes.open}};
    const JSON report = {{"clips", results.seconds.size()},
                         {"projection", confusionJSON(results.projections)},
                         {"layout", confusionJSON(results.layouts)},
                         {"eyeOrder", eyes},
                         {"kinds", list},
                         {"medianSeconds", Spread::of(results.seconds).median}};
    std::cout << report.dump(2) << '\n';
}

} // namespace

void detectionBenchmark(bool json) {
    Results results;
    std::uint32_t seed = 0;
    for (const auto& kind : kinds()) {
        auto& result = results.kinds.emplace_back();
        for (const auto& clip : clipsOf(kind, seed))
            examine(clip, results, result);
    }
    json ? printJSON(results) : print(results);
}

} // namespace panoveer::bench
