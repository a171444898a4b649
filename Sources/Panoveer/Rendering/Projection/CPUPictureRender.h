#pragma once

#include "Panoveer/Rendering/Projection/ColorRows.h"
#include "Panoveer/Rendering/Projection/PlaneResampler.h"
#include "Panoveer/Rendering/Projection/ProjectionPlan.h"
#include "Panoveer/Rendering/Projection/ProjectionRenderer.h"
#include "Panoveer/Rendering/Projection/WorkerPool.h"

#include <memory>
#include <optional>
#include <vector>

namespace panoveer {

// One picture on its way through a plan, as stages for a WorkerPool. Holds all that it reads and writes.
//
//   premultiply      straight alpha only: BGRA to 16 bits with premultiplied colours
//   fill tiles       what windows read that leave their image
//   blocks           resample, convert the colours, write
class CPUPictureRender {
public:
    struct Request {
        PixelBufferPtr source;
        PixelBufferPtr output;
        SourcePictureDescription description;
        VRColorOutputMode colorOutputMode = VRColorOutputMode::sdr;
        bool transparentUnmappedAreas = false;
        std::shared_ptr<const ProjectionPlan> plan;
        std::shared_ptr<const ColorCurves> curves = nullptr; // null where R'G'B' stays what it is
    };
    explicit CPUPictureRender(Request request);

    // This object must live until they are done.
    std::vector<WorkerPool::Stage> stages();

private:
    // A map with what it reads.
    struct Plane {
        const SampleMap* map = nullptr;
        SampleView samples;
        TileSamples tiles;
        std::array<float, 4> background{}; // where the source shows nothing
    };
    struct Reading {
        std::optional<Plane> primary;
        std::optional<Plane> chroma;
        const float* intensity = nullptr; // of the output plane's samples; null where nothing is dimmed
        int width = 0;                    // of the output plane, in samples
    };
    // A row of a block of an output plane.
    struct Piece {
        int block = 0;
        int rowInBlock = 0;
        int column = 0; // of the plane
        int row = 0;
        int count = 0;
    };
    // The colours of a piece, R'G'B' and alpha.
    struct Colors;

    Reading reading(const ProjectionPlan::Reading& maps, int outputPlane) const;
    Plane plane(const SampleMap& map, const SampleView& samples, std::array<float, 4> background) const;
    SampleView viewOf(int plane) const;
    bool hasStraightAlpha() const;

    void premultiplyRow(int y);
    static Piece pieceOf(const SampleMap& map, int block, int row);
    void writeBlock(int index) const;
    void writePixels(const Piece& piece) const;
    void writeChroma(const Piece& piece) const;
    static void read(const Plane& plane, const Piece& piece, float* values);
    void readColors(const Reading& reading, const Piece& piece, Colors& colors) const;
    void readAlpha(const SampleMap& map, const Piece& piece, Colors& colors) const;
    static const float* intensityOf(const Reading& reading, const Piece& piece);
    void writeKept(const Reading& reading, int outputPlane, const Piece& piece, float sourceOffset, float sourceScale,
                   float outputOffset, float outputScale) const;
    CodeOutput codeOutput(int plane, const Piece& piece) const;
    std::byte* outputAt(int plane, const Piece& piece) const;

    Request request_;
    YCbCrCodeRange sourceRange_; // in units of what the samples hold
    YCbCrCodeRange outputRange_;
    std::array<AffineRow, 3> toRGB_{};   // from the samples of a Y'CbCr source
    std::array<AffineRow, 3> toCodes_{}; // from R'G'B' to the codes of a Y'CbCr output
    std::vector<std::byte> premultiplied_;
    Reading atPixels_;
    Reading atChroma_;
};

} // namespace panoveer
