#include "Panoveer/Rendering/Projection/ScalarProjectionReference.h"

#include "Panoveer/Rendering/Projection/ParallelRows.h"
#include "Panoveer/Rendering/Projection/PictureWriter.h"
#include "Panoveer/Rendering/Projection/PlaneSampler.h"
#include "Panoveer/Rendering/Projection/VideoColorMath.h"
#include "Platform/Core/Error.h"

#include <algorithm>
#include <optional>
#include <vector>

namespace panoveer {

namespace {

PictureSize uprightSize(const PixelBuffer& buffer, SourceVideoOrientation orientation) {
    return swapsDimensions(orientation) ? PictureSize{buffer.height(), buffer.width()}
                                        : PictureSize{buffer.width(), buffer.height()};
}

struct Color {
    RGB straight;
    double alpha = 1;
};

class PictureRender {
public:
    PictureRender(const PixelBuffer& source, const SourcePictureDescription& description, const VRTransform& transform,
                  PixelBuffer& output, const ScalarRenderOptions& options)
        : description_(description),
          options_(options),
          mapping_(transform, {output.width(), output.height()}, uprightSize(source, description.orientation)),
          first_(source, 0, description.orientation, description.alphaMode),
          sourceRange_(
              VideoColorMath::codeRange(source.layout().bytesPerSample == 1 ? 8 : 10, source.layout().isFullRange)),
          conversion_(description.colorPrimaries, description.transferFunction, options.colorOutputMode),
          writer_(output, VideoColorMath::outputMatrix(options.colorOutputMode),
                  VideoColorMath::dithers(source.layout().bytesPerSample, output.layout().bytesPerSample)) {
        if (source.layout().isYCbCr())
            chroma_.emplace(source, 1, description.orientation, description.alphaMode);
    }

    void run() {
        if (!writer_.isYCbCr()) {
            forEachRowInParallel(writer_.height(), [this](int y) { writeColorRow(y); });
            return;
        }
        keepsYCbCr_ = chroma_ && conversion_.keepsYCbCr(description_.yCbCrMatrix);
        forEachRowInParallel(writer_.height(), [this](int y) { writeLumaRow(y); });
        forEachRowInParallel(writer_.chromaRows(), [this](int row) { writeChromaRow(row); });
    }

private:
    using Places = std::vector<ProjectionMapping::Place>;

    Texel sample(const SourcePlane& plane, const Places& places) const {
        Texel mean{};
        for (const auto& place : places) {
            const auto value = sampled(plane, mapping_.sourceLattice(), place, options_.resamplingTaps);
            for (std::size_t i = 0; i < mean.size(); ++i)
                mean[i] += value[i] / double(places.size());
        }
        return mean;
    }

    double luma(const Places& places) const {
        return (sample(first_, places)[0] - sourceRange_.lumaOffset) / sourceRange_.lumaScale;
    }

    YCbCr chroma(const Places& places) const {
        const auto value = sample(*chroma_, places);
        return {0, (value[0] - sourceRange_.chromaOffset) / sourceRange_.chromaScale,
                (value[1] - sourceRange_.chromaOffset) / sourceRange_.chromaScale};
    }

    Color color(const Places& places) const {
        if (chroma_) {
            auto value = chroma(places);
            value.y = luma(places);
            return {conversion_(VideoColorMath::rgbFromYCbCr(value, description_.yCbCrMatrix)), 1};
        }
        const auto value = sample(first_, places);
        if (value[3] <= 0)
            return {{}, 0};
        // By the alpha that the same taps give, even where they overshoot: colour and alpha ring alike.
        const auto straight = [&](double premultiplied) { return std::clamp(premultiplied / value[3], 0.0, 1.0); };
        return {conversion_({straight(value[0]), straight(value[1]), straight(value[2])}), std::min(value[3], 1.0)};
    }

    // The colour at an output position as the output holds it, over what lies behind it.
    Color finished(const Places& places, int x, int y, double intensity) const {
        auto result = !places.empty() ? color(places) : Color{{}, options_.transparentUnmappedAreas ? 0.0 : 1.0};
        result.straight = result.straight * intensity;
        if (options_.hasCheckerboard) {
            const double grey = checkerboardGrey(x, y) * (1 - result.alpha);
            const auto& c = result.straight;
            return {{c.r * result.alpha + grey, c.g * result.alpha + grey, c.b * result.alpha + grey}, 1};
        }
        return result;
    }

    void writeColorRow(int y) {
        for (int x = 0; x < writer_.width(); ++x) {
            const auto result = finished(mapping_.places(x + 0.5, y + 0.5), x, y, mapping_.intensity(x + 0.5, y + 0.5));
            const bool isPremultiplied = description_.alphaMode == AlphaMode::premultiplied;
            writer_.writeColor(x, y, result.straight * (isPremultiplied ? result.alpha : 1), result.alpha);
        }
    }

    // Y'CbCr has no alpha: what is transparent is black.
    RGB overBlack(const Color& value) const { return value.straight * value.alpha; }

    void writeLumaRow(int y) {
        for (int x = 0; x < writer_.width(); ++x) {
            const auto places = mapping_.places(x + 0.5, y + 0.5);
            const double intensity = mapping_.intensity(x + 0.5, y + 0.5);
            if (keepsYCbCr_ && !places.empty())
                writer_.writeLuma(x, y, luma(places) * intensity);
            else
                writer_.writeLuma(x, y, overBlack(finished(places, x, y, intensity)));
        }
    }

    void writeChromaRow(int row) {
        const Footprint pixelSize{double(writer_.chromaWidth()), double(writer_.chromaHeight())};
        const auto sampleSize = keepsYCbCr_
                                    ? Footprint{chroma_->geometry().columns().pitch, chroma_->geometry().rows().pitch}
                                    : Footprint{};
        for (int column = 0; column < writer_.chromaColumns(); ++column) {
            const auto places = mapping_.places(writer_.chromaX(column), writer_.chromaY(row), pixelSize, sampleSize);
            const double intensity = mapping_.intensity(writer_.chromaX(column), writer_.chromaY(row));
            if (keepsYCbCr_ && !places.empty()) {
                const auto value = chroma(places);
                writer_.writeChroma(column, row, value.cb * intensity, value.cr * intensity);
            } else {
                const int x = column * writer_.chromaWidth();
                const int y = row * writer_.chromaHeight();
                writer_.writeChroma(column, row, overBlack(finished(places, x, y, intensity)));
            }
        }
    }

    const SourcePictureDescription& description_;
    const ScalarRenderOptions& options_;
    ProjectionMapping mapping_;
    SourcePlane first_; // luma, or all colours
    std::optional<SourcePlane> chroma_;
    YCbCrCodeRange sourceRange_;
    ColorConversion conversion_;
    PictureWriter writer_;
    bool keepsYCbCr_ = false;
};

class DoneRender final : public PendingRender {
public:
    void wait() override {}
};

RGB colorOfBGRA(const PixelPlane& plane, int x, int y) {
    const auto* pixel = plane.data + std::size_t(y) * plane.rowBytes + std::size_t(x) * 4;
    const auto value = [&](int channel) { return std::to_integer<int>(pixel[channel]) / 255.0; };
    return {value(2), value(1), value(0)};
}

} // namespace

double checkerboardGrey(int x, int y) { return ((x / 16 + y / 16) & 1) ? 0.3 : 0.2; }

void ScalarProjectionReference::renderPicture(const PixelBuffer& source, const SourcePictureDescription& description,
                                              const VRTransform& transform, PixelBuffer& output,
                                              const ScalarRenderOptions& options) {
    if (source.format() == pixelFormat::rgbaHalf)
        throw Error("A picture of the format " + source.format().text() + " cannot be projected",
                    std::string(mediaErrorDomain), -6680);
    PictureRender(source, description, transform, output, options).run();
}

std::unique_ptr<PendingRender> ScalarProjectionReference::render(PixelBufferPtr source,
                                                                 const SourcePictureDescription& description,
                                                                 const VRTransform& transform, PixelBufferPtr output,
                                                                 VRColorOutputMode colorOutputMode,
                                                                 VRResamplingQuality resampling,
                                                                 bool transparentUnmappedAreas) {
    renderPicture(*source, description, transform, *output,
                  {.colorOutputMode = colorOutputMode,
                   .resamplingTaps = resampling == VRResamplingQuality::final ? 8 : 2,
                   .transparentUnmappedAreas = transparentUnmappedAreas});
    return std::make_unique<DoneRender>();
}

void ScalarProjectionReference::convertToYCbCr(const PixelBuffer& projected, PixelBuffer& output,
                                               VideoYCbCrMatrix matrix) {
    PictureWriter writer(output, matrix);
    const auto& plane = projected.plane(0);
    forEachRowInParallel(writer.height(), [&](int y) {
        for (int x = 0; x < writer.width(); ++x)
            writer.writeLuma(x, y, colorOfBGRA(plane, x, y));
    });
    forEachRowInParallel(writer.chromaRows(), [&](int row) {
        for (int column = 0; column < writer.chromaColumns(); ++column) {
            RGB sum{};
            double total = 0;
            for (int j = 0; j < writer.chromaHeight(); ++j) {
                for (int i = 1 - writer.chromaWidth(); i < writer.chromaWidth(); ++i) {
                    const double weight = i == 0 ? 2 : 1;
                    const auto c = colorOfBGRA(plane, std::clamp(column * writer.chromaWidth() + i, 0, plane.width - 1),
                                               std::min(row * writer.chromaHeight() + j, plane.height - 1));
                    sum = {sum.r + c.r * weight, sum.g + c.g * weight, sum.b + c.b * weight};
                    total += weight;
                }
            }
            writer.writeChroma(column, row, sum * (1 / total));
        }
    });
}

} // namespace panoveer
