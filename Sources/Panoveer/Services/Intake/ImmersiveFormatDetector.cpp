#include "Panoveer/Services/Intake/ImmersiveFormatDetector.h"

#include "Panoveer/Services/Intake/FileNameImmersiveHints.h"
#include "Panoveer/Services/Intake/ImmersiveImageAnalysis.h"
#include "Panoveer/Services/Intake/Majority.h"

#include <algorithm>
#include <cmath>
#include <type_traits>
#include <utility>
#include <vector>

namespace panoveer {

namespace {

using Layout = StereoVideoLayout;
using Projection = ProjectionFormat;
using Source = ImmersiveFormatDetection::Source;

constexpr double shapeTolerance = 0.08;

// Full aperture of the lenses that DualFisheyeLensHint knows.
constexpr double dualFisheyeLensDegrees = 190;

struct EyeSize {
    double width = 0;
    double height = 1; // at least 1

    double aspect() const { return width / height; }
};

EyeSize eyeSize(Layout layout, int width, int height) {
    return {layout == Layout::sideBySide ? width / 2.0 : width,
            std::max(layout == Layout::overUnder ? height / 2.0 : height, 1.0)};
}

std::vector<double> expectedAspects(std::optional<Projection> projection) {
    constexpr double wide = 16.0 / 9;
    if (!projection)
        return {1, 2, 1.5, wide};
    switch (*projection) {
    case Projection::standard: return {wide};
    case Projection::equirectangular: return {2};
    case Projection::halfEquirectangular:
    case Projection::domemaster: return {1};
    case Projection::cubemap:
    case Projection::eac: return {1.5};
    case Projection::mirrorDome: break;
    }
    return {1, 2, 1.5, wide};
}

// The answer that most frames give.
template<class Question>
auto vote(std::span<const GrayscaleImage> frames, const Question& question) {
    std::vector<typename std::invoke_result_t<Question, const GrayscaleImage&>::value_type> votes;
    for (const auto& frame : frames)
        if (const auto answer = question(frame))
            votes.push_back(*answer);
    return majority(votes);
}

std::optional<double> correlationOf(const GrayscaleImage& frame, Layout layout) {
    const auto match = ImmersiveImageAnalysis::stereoMatch(frame, layout);
    return match ? std::optional(match->correlation) : std::nullopt;
}

// A verdict under construction: what is known so far, and by what.
class Verdict {
public:
    Verdict(int width, int height, std::span<const GrayscaleImage> frames)
        : width_(width), height_(height), frames_(frames) {}

    void takeStatement(const StatedImmersiveFormat& stated) {
        projection_ = stated.projection;
        layout_ = stated.stereoLayout;
        eyesSwapped_ = stated.eyesSwapped;
    }

    void takeContainer(const ContainerImmersiveMetadata& container) {
        source_ = Source::metadata;
        if (!projection_)
            projection_ = container.projection;
        if (layout_)
            return;
        layout_ = container.stereoLayout;
        if (layout_ && layout_ != Layout::mono && !eyesSwapped_)
            eyesSwapped_ = container.eyesSwapped;
    }

    void takeFileName(const FileNameImmersiveHints& hints) {
        if (!projection_ && hints.projection) {
            projection_ = hints.projection;
            creditUnlessDecided(Source::fileName);
        }
        if (!layout_ && hints.stereoLayout) {
            layout_ = hints.stereoLayout;
            creditUnlessDecided(Source::fileName);
            if (!eyesSwapped_ && hints.eyesSwapped)
                eyesSwapped_ = true;
        }
    }

    void takeDualFisheyeLens() {
        projection_ = projection_.value_or(Projection::domemaster);
        layout_ = layout_.value_or(Layout::sideBySide);
    }

    void settleLayout() {
        if (layout_)
            return;
        const auto found = vote(frames_, [](const GrayscaleImage& frame) {
            return ImmersiveFormatDetector::stereoVote(correlationOf(frame, Layout::sideBySide),
                                                       correlationOf(frame, Layout::overUnder));
        });
        layout_ = Layout::mono;
        if (!found || !ImmersiveFormatDetector::isPlausible(*found, width_, height_, projection_))
            return;
        layout_ = found;
        creditUnlessDecided(Source::imageAnalysis);
    }

    // After the layout is settled.
    void searchCircles() {
        constexpr double fisheyeShapeTolerance = 0.15;
        const double aspect = eyeSize(*layout_, width_, height_).aspect();
        if (projection_ ? projection_ != Projection::domemaster : !(std::abs(aspect - 1) < fisheyeShapeTolerance))
            return;
        for (const auto& frame : frames_)
            for (const auto& view : viewsOf(frame))
                if (const auto circle = ImmersiveImageAnalysis::fisheyeCircle(view))
                    circles_.push_back(*circle);
        if (projection_ || circles_.empty())
            return;
        projection_ = Projection::domemaster;
        creditUnlessDecided(Source::imageAnalysis);
    }

    void settleProjection() {
        if (projection_)
            return;
        const auto eye = eyeSize(*layout_, width_, height_);
        if (std::abs(eye.aspect() - 1) < shapeTolerance) {
            // Nearly every square picture without a circle is half a sphere; without pictures there is no telling.
            projection_ =
                layout_ == Layout::mono && frames_.empty() ? Projection::domemaster : Projection::halfEquirectangular;
            if (!frames_.empty())
                creditUnlessDecided(Source::imageAnalysis);
        } else if (std::abs(eye.aspect() - 2) < shapeTolerance) {
            projection_ = Projection::equirectangular;
            const auto wraps = vote(frames_, [this](const GrayscaleImage& frame) {
                const auto views = viewsOf(frame);
                return views.empty() ? std::nullopt : ImmersiveImageAnalysis::wrapsAround(views.front());
            });
            if (wraps) {
                projection_ = *wraps ? Projection::equirectangular : Projection::standard;
                creditUnlessDecided(Source::imageAnalysis);
            }
        } else {
            projection_ = detectedProjectionFormat(int(std::lround(eye.width)), int(std::lround(eye.height)));
        }
    }

    void settleEyes(bool isDualFisheyeLens) {
        if (layout_ == Layout::mono || eyesSwapped_)
            return;
        const auto firstIsLeft = vote(frames_, [this](const GrayscaleImage& frame) {
            return ImmersiveImageAnalysis::firstViewIsLeftEye(frame, *layout_);
        });
        // Two lenses over one sensor form their images crosswise.
        eyesSwapped_ = firstIsLeft ? !*firstIsLeft : isDualFisheyeLens;
    }

    ImmersiveFormatDetection result() const {
        ImmersiveFormatDetection detection;
        detection.projection = *projection_;
        detection.stereoLayout = *layout_;
        detection.eyesSwapped = layout_ != Layout::mono && eyesSwapped_.value_or(false);
        if (projection_ == Projection::domemaster)
            detection.fisheyeCircle = ImmersiveImageAnalysis::averageCircle(circles_);
        detection.source = source_;
        return detection;
    }

private:
    // The first evidence that decides anything is the one that is named.
    void creditUnlessDecided(Source source) {
        if (source_ == Source::aspectRatio)
            source_ = source;
    }

    // The images of both eyes, or the whole frame where the layout has but one.
    std::vector<GrayscaleImage> viewsOf(const GrayscaleImage& frame) const {
        if (layout_ == Layout::mono)
            return {frame};
        if (auto views = frame.views(*layout_))
            return {std::move((*views)[0]), std::move((*views)[1])};
        return {};
    }

    int width_;
    int height_;
    std::span<const GrayscaleImage> frames_;
    std::optional<Projection> projection_;
    std::optional<Layout> layout_;
    std::optional<bool> eyesSwapped_;
    std::vector<FisheyeCircle> circles_;
    Source source_ = Source::aspectRatio;
};

} // namespace

ImmersiveFormatDetection ImmersiveFormatDetector::detect(int width, int height,
                                                         const std::optional<ContainerImmersiveMetadata>& container,
                                                         std::string_view fileName, bool isDualFisheyeLens,
                                                         std::span<const GrayscaleImage> frames,
                                                         const StatedImmersiveFormat& stated) {
    // A movie may still name the lens that it was shot with after it was made into something else.
    if (stated.projection.value_or(Projection::domemaster) != Projection::domemaster)
        isDualFisheyeLens = false;
    const FileNameImmersiveHints hints(fileName);
    Verdict verdict(width, height, frames);
    verdict.takeStatement(stated);
    if (container)
        verdict.takeContainer(*container);
    verdict.takeFileName(hints);
    if (isDualFisheyeLens)
        verdict.takeDualFisheyeLens();
    verdict.settleLayout();
    verdict.searchCircles();
    verdict.settleProjection();
    verdict.settleEyes(isDualFisheyeLens);

    auto detection = verdict.result();
    detection.isDualFisheyeLens = isDualFisheyeLens;
    if (detection.projection == Projection::domemaster) {
        detection.fisheyeFieldOfView = hints.fisheyeFieldOfView;
        if (!detection.fisheyeFieldOfView && isDualFisheyeLens)
            detection.fisheyeFieldOfView = dualFisheyeLensDegrees;
    }
    if (container) {
        if (container->isStereoMultiview)
            detection.isStereoMultiview = true;
        detection.horizontalFieldOfView = container->horizontalFieldOfView;
        detection.stereoBaselineMillimeters = container->stereoBaselineMillimeters;
    }
    return detection;
}

std::optional<StereoVideoLayout> ImmersiveFormatDetector::stereoVote(std::optional<double> sideBySide,
                                                                     std::optional<double> overUnder) {
    constexpr double leastMatch = 0.9;
    constexpr double leastLead = 0.1;
    constexpr double mostOfMono = 0.6;
    constexpr double noMatch = -1;
    const double horizontal = sideBySide.value_or(noMatch);
    if (!overUnder) {
        if (horizontal >= leastMatch)
            return Layout::sideBySide;
    } else {
        if (horizontal >= leastMatch && horizontal - *overUnder >= leastLead)
            return Layout::sideBySide;
        if (*overUnder >= leastMatch && *overUnder - horizontal >= leastLead)
            return Layout::overUnder;
    }
    const double larger = std::max(horizontal, overUnder.value_or(noMatch));
    if (larger < mostOfMono && larger > noMatch)
        return Layout::mono;
    return std::nullopt;
}

bool ImmersiveFormatDetector::isPlausible(StereoVideoLayout layout, int width, int height,
                                          std::optional<ProjectionFormat> projection) {
    if (layout == Layout::mono)
        return true;
    const double aspect = eyeSize(layout, width, height).aspect();
    return std::ranges::any_of(expectedAspects(projection), [&](double expected) {
        return std::abs(aspect - expected) / expected < shapeTolerance;
    });
}

} // namespace panoveer
