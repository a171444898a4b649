#include "Platform/Media/ProResFrameCoder.h"

#include "Platform/Media/MovieBox.h"
#include "Platform/Media/ProResEntropy.h"
#include "Platform/Media/VideoEncoder.h"

#include <algorithm>
#include <bit>
#include <utility>

namespace panoveer {

namespace {

// Sizes of the parts of a frame (RDD 36, 5.1 to 5.3): its own size and name come first, then its header, its picture's
// header and the table of slices.
constexpr std::size_t frameStart = 8;
constexpr std::size_t matricesStart = frameStart + 20;
constexpr std::size_t matricesSize = 2 * 64;
constexpr std::size_t frameHeaderSize = 20 + matricesSize;
constexpr std::size_t pictureHeaderSize = 8;
constexpr std::size_t tableStart = frameStart + frameHeaderSize + pictureHeaderSize;

// A step is a weight, which a frame gives to all coefficients, times the quantiser of its slices. With weights that
// rise with the frequency, frames of the same size are further from their pictures, by the error and by SSIM.
struct Quantisation {
    int weight = 0;
    int quantiser = 0;

    int step() const { return weight * quantiser; }
};

Quantisation quantisationFor(int step) {
    constexpr int weights[] = {2, 8, 32};  // of 2 to 63
    constexpr int coarsestQuantiser = 128; // that slices name by itself
    for (const int weight : weights)
        if (step <= weight * coarsestQuantiser)
            return {weight, std::max((step + weight - 1) / weight, 1)};
    return {weights[2], coarsestQuantiser};
}

class HeaderWriter {
public:
    void put(std::uint64_t value, std::size_t byteCount) {
        bytes_.resize(bytes_.size() + byteCount);
        writeBigEndian(std::span(bytes_).last(byteCount), value);
    }
    std::vector<std::uint8_t> take() { return std::move(bytes_); }

private:
    std::vector<std::uint8_t> bytes_;
};

// RDD 36, table 4; 0 for all others.
std::uint64_t frameRateCode(MediaTime frameDuration) {
    struct Rate {
        std::int64_t frames, seconds;
    };
    static constexpr Rate rates[] = {{24000, 1001}, {24, 1}, {25, 1},  {30000, 1001},  {30, 1}, {50, 1},
                                     {60000, 1001}, {60, 1}, {100, 1}, {120000, 1001}, {120, 1}};
    const auto* found = std::ranges::find_if(rates, [&](const Rate& rate) {
        return rate.frames * frameDuration.value == rate.seconds * frameDuration.timescale;
    });
    return found == std::end(rates) ? 0 : std::uint64_t(found - rates) + 1;
}

// What the sizes of a frame and its picture and its weights go into is left 0.
std::vector<std::uint8_t> headerOf(const ProResVariant& variant, const EncoderConfiguration& configuration,
                                   int alphaDepth, std::size_t sliceCount) {
    const auto& settings = configuration.settings;
    constexpr std::uint64_t chroma422 = 2, chroma444 = 3;
    constexpr std::uint64_t squarePixels = 1;
    HeaderWriter header;
    header.put(0, 4); // size of the frame
    header.put(FourCC("icpf").value, 4);
    header.put(frameHeaderSize, 2);
    header.put(variant.hasAlpha ? 1 : 0, 2); // version
    header.put(FourCC("pnvr").value, 4);     // the encoder
    header.put(std::uint64_t(settings.width), 2);
    header.put(std::uint64_t(settings.height), 2);
    header.put((variant.hasAlpha ? chroma444 : chroma422) << 6, 1); // and progressive
    header.put(squarePixels << 4 | frameRateCode(configuration.frameDuration), 1);
    header.put(std::uint64_t(settings.color.primaries), 1);
    header.put(std::uint64_t(settings.color.transfer), 1);
    header.put(std::uint64_t(settings.color.matrix), 1);
    header.put(alphaDepth == 0 ? 0 : alphaDepth == 8 ? 1 : 2, 1);
    header.put(0, 1);
    header.put(3, 1); // both matrices follow
    for (std::size_t i = 0; i < matricesSize; ++i)
        header.put(0, 1);
    header.put(pictureHeaderSize << 3, 1);
    header.put(0, 4);                                     // size of the picture
    header.put(sliceCount <= 0xffff ? sliceCount : 0, 2); // readers count for themselves
    header.put(std::uint64_t(std::bit_width(unsigned(largestSliceLength)) - 1) << 4, 1);
    return header.take();
}

template<class Sample>
void repeatLast(Sample* row, int count, int length) {
    std::fill(row + count, row + length, row[count - 1]);
}

} // namespace

ProResFrameCoder::ProResFrameCoder(const ProResVariant& variant, const EncoderConfiguration& configuration)
    : hasAlpha_(variant.hasAlpha),
      alphaDepth_(!variant.hasAlpha                                  ? 0
                  : configuration.pictureFormat == pixelFormat::bgra ? 8
                                                                     : 16),
      width_(configuration.settings.width),
      height_(configuration.settings.height),
      matrix_(configuration.settings.color.matrix),
      slices_(slicesOf(width_, height_)),
      header_(headerOf(variant, configuration, alphaDepth_, slices_.size())) {}

// RDD 36, 5.3: slices are eight macroblocks long; what is left at the end of a row is parted into shorter ones, each
// the longest power of two that fits.
std::vector<ProResFrameCoder::Slice> ProResFrameCoder::slicesOf(int width, int height) {
    std::vector<Slice> slices;
    const int macroblocks = (width + macroblockSide - 1) / macroblockSide;
    for (int y = 0; y < height; y += macroblockSide)
        for (int column = 0, length = largestSliceLength; column < macroblocks; column += length) {
            while (length > macroblocks - column)
                length /= 2;
            slices.push_back({column * macroblockSide, y, length});
        }
    return slices;
}

int ProResFrameCoder::codableStep(int step) { return quantisationFor(step).step(); }

std::span<const std::uint8_t> ProResFrameCoder::code(const PixelBuffer& picture, int step) {
    const auto quantisation = quantisationFor(step);
    quantiser_ = quantisation.quantiser;
    // RDD 36, 7.3: a coefficient is level * weight * quantiser / 8 for samples of 9 bits; of 12 bits, without the 8.
    scales_ = levelScales(quantisation.step());
    colorByteCount_ = 0;
    used_ = tableStart + 2 * slices_.size();
    bytes_.resize(std::max(bytes_.size(), used_));
    std::ranges::copy(header_, bytes_.begin());
    std::ranges::fill(std::span(bytes_).subspan(matricesStart, matricesSize), std::uint8_t(quantisation.weight));
    for (std::size_t i = 0; i < slices_.size(); ++i) {
        const auto start = used_;
        writeSlice(picture, slices_[i]);
        writeBigEndian(std::span(bytes_).subspan(tableStart + 2 * i, 2), used_ - start);
    }
    writeBigEndian(std::span(bytes_).first(4), used_);
    writeBigEndian(std::span(bytes_).subspan(frameStart + frameHeaderSize + 1, 4),
                   used_ - frameStart - frameHeaderSize);
    return std::span(bytes_).first(used_);
}

void ProResFrameCoder::writeSlice(const PixelBuffer& picture, const Slice& slice) {
    readSamples(picture, slice);
    // Enough for the slice whatever is in it.
    constexpr std::size_t largestSlice =
        3 * largestLevelBytes(SliceSamples::count) + largestAlphaBytes(SliceSamples::count) + 16;
    if (bytes_.size() < used_ + largestSlice)
        bytes_.resize(2 * bytes_.size() + largestSlice);

    const std::size_t headerSize = hasAlpha_ ? 8 : 6;
    const auto start = used_;
    used_ += headerSize;
    const int columnCount = 2 * slice.length;
    const auto ySize = writeComponent(y_, columnCount, BlockOrder::byRows);
    const auto cbSize = writeComponent(cb_, hasAlpha_ ? columnCount : columnCount / 2, BlockOrder::byColumns);
    const auto crSize = writeComponent(cr_, hasAlpha_ ? columnCount : columnCount / 2, BlockOrder::byColumns);

    const auto header = std::span(bytes_).subspan(start, headerSize);
    header[0] = std::uint8_t(headerSize << 3);
    header[1] = std::uint8_t(quantiser_);
    writeBigEndian(header.subspan(2, 2), ySize);
    writeBigEndian(header.subspan(4, 2), cbSize);
    colorByteCount_ += ySize + cbSize + crSize;
    if (!hasAlpha_)
        return;
    writeBigEndian(header.subspan(6, 2), crSize);
    writeAlphaOf(slice);
}

// The slice's samples, the last columns and rows repeated where it goes beyond the picture.
void ProResFrameCoder::readSamples(const PixelBuffer& picture, const Slice& slice) {
    const int length = slice.length * macroblockSide;
    const int count = std::min(length, width_ - slice.x);
    const int chromaShift = hasAlpha_ ? 0 : 1;
    for (int y = 0; y < macroblockSide; ++y) {
        auto* const alpha = &alpha_[std::size_t(y * length)];
        readComponents(picture, slice.x, std::min(slice.y + y, height_ - 1), count, matrix_,
                       {y_.row(y), cb_.row(y), cr_.row(y), alpha});
        if (count == length)
            continue;
        repeatLast(y_.row(y), count, length);
        const int chromaCount = (count + chromaShift) >> chromaShift;
        repeatLast(cb_.row(y), chromaCount, length >> chromaShift);
        repeatLast(cr_.row(y), chromaCount, length >> chromaShift);
        repeatLast(alpha, count, length);
    }
}

// How many bytes it took.
std::size_t ProResFrameCoder::writeComponent(const SliceSamples& samples, int columnCount, BlockOrder order) {
    const auto levels = std::span(levels_).first(2 * std::size_t(columnCount) * coefficientsPerBlock);
    transformSlice(samples, columnCount, order, scales_, levels);
    BitWriter writer(end());
    writeLevels(levels, writer);
    return advance(writer.finish());
}

void ProResFrameCoder::writeAlphaOf(const Slice& slice) {
    BitWriter writer(end());
    writeAlpha(std::span(alpha_).first(std::size_t(slice.length) * macroblockSide * macroblockSide), alphaDepth_,
               writer);
    advance(writer.finish());
}

std::size_t ProResFrameCoder::advance(const std::uint8_t* newEnd) {
    const auto size = std::size_t(newEnd - end());
    used_ += size;
    return size;
}

} // namespace panoveer
