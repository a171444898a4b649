#pragma once

#include "Platform/Media/AssetWriter.h"
#include "Platform/Media/PixelBuffer.h"

namespace panoveer {

// Where the frame loop gets its pictures from and hands them to, whatever the track makes of them. One thread.
class ExportVideoFrameSink {
public:
    virtual ~ExportVideoFrameSink() = default;

    // Buffers of the size and format that append() takes; null when there are none to be had.
    virtual PixelBufferPool* pixelBufferPool() = 0;
    // Blocks while the track has no room. False when the picture was not taken; the writer may say why.
    virtual bool append(const PixelBufferPtr& picture, MediaTime presentationTime) = 0;
};

// Hands pictures to a track of single pictures as they are. Owned by the movie's export.
class PixelBufferAdaptor final : public ExportVideoFrameSink {
public:
    // The input outlives this. Throws Error as PixelBufferPool does.
    PixelBufferAdaptor(VideoInput& input, FourCC pixelFormat, int width, int height)
        : input_(input), pool_(pixelFormat, width, height) {}

    PixelBufferPool* pixelBufferPool() override { return &pool_; }
    bool append(const PixelBufferPtr& picture, MediaTime presentationTime) override {
        return input_.append(picture, presentationTime);
    }

private:
    VideoInput& input_;
    PixelBufferPool pool_;
};

} // namespace panoveer
