#include "Panoveer/Services/Intake/FileNameImmersiveHints.h"

#include "Platform/Core/Text.h"

#include <algorithm>
#include <charconv>
#include <initializer_list>
#include <string>

namespace panoveer {

namespace {

using Projection = ProjectionFormat;
using Layout = StereoVideoLayout;

bool isOneOf(std::string_view word, std::initializer_list<std::string_view> words) {
    return std::ranges::find(words, word) != words.end();
}

// The number behind the word "fisheye", where there is a sensible one.
std::optional<double> fieldOfViewAfterFisheye(std::string_view word) {
    constexpr std::string_view prefix = "fisheye";
    constexpr double least = 90, most = 360; // degrees
    if (!word.starts_with(prefix))
        return std::nullopt;
    word.remove_prefix(prefix.size());
    double degrees = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), degrees);
    if (error != std::errc{} || end != word.data() + word.size() || !(degrees >= least && degrees <= most))
        return std::nullopt;
    return degrees;
}

void apply(std::string_view word, FileNameImmersiveHints& hints) {
    if (isOneOf(word, {"sbs", "lr", "3dh", "sidebyside", "halfsbs", "fullsbs"})) {
        hints.stereoLayout = Layout::sideBySide;
    } else if (word == "rl") {
        hints.stereoLayout = Layout::sideBySide;
        hints.eyesSwapped = true;
    } else if (isOneOf(word, {"tb", "ou", "3dv", "overunder", "topbottom"})) {
        hints.stereoLayout = Layout::overUnder;
    } else if (word == "bt") {
        hints.stereoLayout = Layout::overUnder;
        hints.eyesSwapped = true;
    } else if (isOneOf(word, {"180", "vr180", "180x180", "180x160"})) {
        // Fisheye pairs are often named for their 180 degrees.
        if (hints.projection != Projection::domemaster)
            hints.projection = Projection::halfEquirectangular;
    } else if (isOneOf(word, {"360", "equirect", "equirectangular", "erp", "vr360"})) {
        hints.projection = Projection::equirectangular;
    } else if (isOneOf(word, {"fisheye", "domemaster", "fulldome", "dome", "mkx200", "mkx220", "rf52"})) {
        hints.projection = Projection::domemaster;
    } else if (word == "eac") {
        hints.projection = Projection::eac;
    } else if (word == "cubemap") {
        hints.projection = Projection::cubemap;
    } else if (const auto degrees = fieldOfViewAfterFisheye(word)) {
        hints.projection = Projection::domemaster;
        hints.fisheyeFieldOfView = degrees;
    }
}

} // namespace

FileNameImmersiveHints::FileNameImmersiveHints(std::string_view fileName) {
    const auto words = alphanumericRuns(lowercased(fileName));
    for (const auto& word : words)
        apply(word, *this);
    if (projection != Projection::domemaster || fisheyeFieldOfView)
        return;
    // Lenses that are named for their field of view.
    if (std::ranges::contains(words, "mkx220"))
        fisheyeFieldOfView = 220;
    else if (std::ranges::contains(words, "mkx200"))
        fisheyeFieldOfView = 200;
}

} // namespace panoveer
