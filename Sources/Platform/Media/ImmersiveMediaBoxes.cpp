#include "Platform/Media/ImmersiveMediaBoxes.h"

#include "Platform/Core/FourCC.h"
#include "Platform/Media/MovieBox.h"

#include <initializer_list>

namespace panoveer {

namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes bigEndian(std::uint32_t value) {
    Bytes bytes(4);
    writeBigEndian(bytes, value);
    return bytes;
}

Bytes joined(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const auto& part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

// No box where there is no content.
Bytes box(FourCC type, const Bytes& content) { return content.empty() ? Bytes() : makeMovieBox(type, content); }

// Version 0, no flags.
Bytes fullBox(FourCC type, const Bytes& content) { return box(type, joined({bigEndian(0), content})); }

FourCC code(VideoProjectionKind kind) {
    switch (kind) {
    case VideoProjectionKind::rectilinear: break;
    case VideoProjectionKind::equirectangular: return FourCC("equi");
    case VideoProjectionKind::halfEquirectangular: return FourCC("hequ");
    }
    return FourCC("rect");
}

Bytes eyes(const MultiviewProperties& properties) {
    const auto views = std::uint8_t(properties.hasLeftStereoEyeView | properties.hasRightStereoEyeView << 1);
    Bytes content = fullBox(FourCC("stri"), {views});
    if (properties.heroEye != HeroEye::none)
        content = joined({content, fullBox(FourCC("hero"), {std::uint8_t(properties.heroEye)})});
    if (properties.stereoCameraBaseline)
        content = joined(
            {content, box(FourCC("cams"), fullBox(FourCC("blin"), bigEndian(*properties.stereoCameraBaseline)))});
    return content;
}

} // namespace

std::vector<std::uint8_t> immersiveMediaBoxes(const ImmersiveMediaProperties& properties) {
    Bytes usage, fieldOfView;
    if (const auto& multiview = properties.multiview) {
        usage = box(FourCC("eyes"), eyes(*multiview));
        if (multiview->horizontalFieldOfView)
            fieldOfView = box(FourCC("hfov"), bigEndian(*multiview->horizontalFieldOfView));
    }
    if (properties.projectionKind)
        usage = joined(
            {usage, box(FourCC("proj"), fullBox(FourCC("prji"), bigEndian(code(*properties.projectionKind).value)))});
    if (properties.viewPackingKind) {
        const auto kind = properties.viewPackingKind == ViewPackingKind::sideBySide ? FourCC("side") : FourCC("over");
        usage = joined({usage, box(FourCC("pack"), fullBox(FourCC("pkin"), bigEndian(kind.value)))});
    }
    return joined({box(FourCC("vexu"), usage), fieldOfView});
}

} // namespace panoveer
