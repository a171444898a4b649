#pragma once

#include <stdint.h>

// The one door to libavformat, libavcodec, libswscale and libswresample: probing, video decoding into the caller's
// memory, pairing of the two views of multiview HEVC, and audio as interleaved 32-bit float at 48,000 Hz.
//
// Plain functions and records that C can call. Nothing is thrown and nothing is logged. Success is 0 or positive;
// failure is a negative FFmpeg error code, with a text in the caller's error buffer: `errorBuffer` may be null, and is
// written only when `errorLength` is at least 1. All times are seconds from the start of the container.
//
// A reader belongs to one thread at a time. Only a cancellation token and PNVFFmpegCancelAudio may be used from others.

#ifdef __cplusplus
extern "C" {
#endif

// What `sphericalProjection` and `stereoType` say, beside -1 for "no such side data".
enum {
    PNVSphericalEquirectangular = 0,
    PNVSphericalCubemap = 1,
    PNVSphericalEquirectangularTile = 2,
    PNVSphericalHalfEquirectangular = 3,
    PNVSphericalRectilinear = 4,
    PNVSphericalFisheye = 5,
    PNVSphericalParametricImmersive = 6, // from libavutil 60 on

    PNVStereo2D = 0,
    PNVStereoSideBySide = 1,
    PNVStereoTopBottom = 2,
};

typedef struct PNVFFmpegVideoInfo {
    int32_t width;    // coded pixels; doubled for stereo multiview
    int32_t height;   // coded pixels
    double duration;  // seconds, not negative
    double frameRate; // frames per second; 0 when not known
    int32_t videoStreamIndex;
    int32_t audioStreamIndex; // negative when there is none
    int32_t hasAlpha;         // 0 or 1
    int32_t rotationDegrees;  // clockwise; 0 when there is no display matrix
    int32_t colorPrimaries;   // code point of ITU-T H.273
    int32_t colorTransfer;    // code point of ITU-T H.273
    int32_t colorSpace;       // matrix, code point of ITU-T H.273
    char codecName[64];       // of the decoder: "hevc", "libdav1d"
    char codecLongName[128];
    char pixelFormatName[64]; // "yuv420p10le"
    int32_t sphericalProjection;
    uint32_t boundLeft, boundTop, boundRight, boundBottom; // cropped away, in 2^-32 of the sphere
    int32_t stereoType;
    int32_t stereoInverted;             // 1: the right eye comes first
    int32_t isStereoMultiview;          // 0 or 1
    uint32_t stereoBaseline;            // micrometres; 0 when not known
    double stereoHorizontalFieldOfView; // degrees; 0 when not known
} PNVFFmpegVideoInfo;

typedef struct PNVFFmpegFrame {
    uint8_t* data;  // first plane; null for a frame handed over as a hardware pixel buffer
    int32_t width;  // pixels
    int32_t height; // pixels
    int32_t stride; // bytes from one row of the first plane to the next
    double ptsSeconds;
} PNVFFmpegFrame;

typedef struct PNVFFmpegAudioFrame {
    float* samples;      // interleaved; the reader's, valid until the next read or close
    int32_t sampleCount; // per channel
    int32_t sampleRate;  // 48,000
    int32_t channelCount;
    double ptsSeconds; // of the first sample
} PNVFFmpegAudioFrame;

typedef struct PNVFFmpegAudioStreamInfo {
    int32_t streamIndex; // index in the container
    int32_t streamID;
    int32_t channelCount;
    int32_t sampleRate;     // Hz
    int32_t ambisonicOrder; // -1 when the layout is not ambisonic
    int32_t isDefault;      // 0 or 1
    uint64_t channelMask;   // 0 unless the layout is a native one
    int32_t channelIDs[64]; // FFmpeg's AVChannel of the first 64 channels
    char codecName[32];
} PNVFFmpegAudioStreamInfo;

typedef struct PNVFFmpegReader PNVFFmpegReader;
typedef struct PNVFFmpegAudioReader PNVFFmpegAudioReader;
// A counter of cancellations: a read stops when it changes after the read has begun.
typedef struct PNVFFmpegCancellationToken PNVFFmpegCancellationToken;

int32_t PNVFFmpegProbe(const char* path, PNVFFmpegVideoInfo* info, char* errorBuffer, int32_t errorLength);

// The key frame at or before a time, from the container's own index alone. 1 when found, 0 when not.
int32_t PNVFFmpegPreviousKeyframeTime(const char* path, double* seconds, char* errorBuffer, int32_t errorLength,
                                      double targetSeconds);

// Opens the best video stream. The output keeps the coded size unless both maxima are at least 1 and it exceeds one of
// them. `fastDecode` gives up quality for speed, for previews. A duration that is not positive means up to the end.
int32_t PNVFFmpegOpen(const char* path, int32_t maximumWidth, int32_t maximumHeight, int32_t fastDecode,
                      PNVFFmpegReader** reader, char* errorBuffer, int32_t errorLength, double startSeconds,
                      double durationSeconds);
// Goes to the key frame at or before a time; what follows is read from there. The end of the window stays.
int32_t PNVFFmpegSeek(PNVFFmpegReader* reader, char* errorBuffer, int32_t errorLength, double seconds);

int32_t PNVFFmpegOutputWidth(const PNVFFmpegReader* reader);
int32_t PNVFFmpegOutputHeight(const PNVFFmpegReader* reader);
int32_t PNVFFmpegHasAlphaChannel(const PNVFFmpegReader* reader);
// Whether a hardware decoder was set up, and whether one has delivered a frame. Only where FFmpeg has VideoToolbox.
int32_t PNVFFmpegCanUseVideoToolboxDecode(const PNVFFmpegReader* reader);
int32_t PNVFFmpegUsesVideoToolboxDecode(const PNVFFmpegReader* reader);

// The read functions: 1 for a frame, 0 when the input or the window has ended or the token was cancelled. The
// at-or-after forms drop every frame before the target. A multiview stream gives both eyes side by side, left first.
int32_t PNVFFmpegReadFrameIntoBGRA(PNVFFmpegReader* reader, uint8_t* destination, int32_t stride, PNVFFmpegFrame* frame,
                                   char* errorBuffer, int32_t errorLength);
int32_t PNVFFmpegReadFrameAtOrAfterIntoBGRA(PNVFFmpegReader* reader, uint8_t* destination, int32_t stride,
                                            PNVFFmpegFrame* frame, char* errorBuffer, int32_t errorLength,
                                            const PNVFFmpegCancellationToken* token, double targetSeconds);
int32_t PNVFFmpegReadFrameIntoNV12(PNVFFmpegReader* reader, uint8_t* luma, int32_t lumaStride, uint8_t* chroma,
                                   int32_t chromaStride, PNVFFmpegFrame* frame, char* errorBuffer, int32_t errorLength);
int32_t PNVFFmpegReadFrameAtOrAfterIntoNV12(PNVFFmpegReader* reader, uint8_t* luma, int32_t lumaStride, uint8_t* chroma,
                                            int32_t chromaStride, PNVFFmpegFrame* frame, char* errorBuffer,
                                            int32_t errorLength, const PNVFFmpegCancellationToken* token,
                                            double targetSeconds);
// Hands over a retained hardware pixel buffer in `pixelBuffer` where the platform has that type; everywhere else
// `pixelBuffer` (which may be null) is cleared and the frame lies in the reader's own BGRA image until the next read.
int32_t PNVFFmpegReadFramePreferVideoToolbox(PNVFFmpegReader* reader, void** pixelBuffer, PNVFFmpegFrame* frame,
                                             char* errorBuffer, int32_t errorLength);
int32_t PNVFFmpegReadFrameAtOrAfterPreferVideoToolbox(PNVFFmpegReader* reader, void** pixelBuffer,
                                                      PNVFFmpegFrame* frame, char* errorBuffer, int32_t errorLength,
                                                      const PNVFFmpegCancellationToken* token, double targetSeconds);

// Null when memory is short. Every function takes a null token.
PNVFFmpegCancellationToken* PNVFFmpegCancellationTokenCreate(void);
// Stops the reads under way with this token, not those that begin later. Any thread.
void PNVFFmpegCancellationTokenCancel(PNVFFmpegCancellationToken* token);
void PNVFFmpegCancellationTokenClose(PNVFFmpegCancellationToken* token);

void PNVFFmpegClose(PNVFFmpegReader* reader);

// Fills at most `capacity` records and counts every audio stream that has channels, beyond the capacity too.
int32_t PNVFFmpegProbeAudioStreams(const char* path, PNVFFmpegAudioStreamInfo* streams, int32_t capacity,
                                   int32_t* count, char* errorBuffer, int32_t errorLength);

// A negative index opens the best audio stream. A non-zero mask asks for that native layout; with none the stream's own
// channels pass straight through.
int32_t PNVFFmpegOpenAudioStream(const char* path, int32_t streamIndex, uint64_t outputChannelMask,
                                 PNVFFmpegAudioReader** reader, char* errorBuffer, int32_t errorLength,
                                 double startSeconds, double durationSeconds);
int32_t PNVFFmpegAudioReaderChannelCount(const PNVFFmpegAudioReader* reader);
// 1 for a block, 0 when finished or cancelled.
int32_t PNVFFmpegReadAudio(PNVFFmpegAudioReader* reader, PNVFFmpegAudioFrame* frame, char* errorBuffer,
                           int32_t errorLength);
// Ends the read under way, wherever in the file it is, and all later ones. Any thread; a null reader is let be.
void PNVFFmpegCancelAudio(PNVFFmpegAudioReader* reader);
void PNVFFmpegCloseAudio(PNVFFmpegAudioReader* reader);

#ifdef __cplusplus
}
#endif
