#pragma once

#include "Platform/Media/AssetWriter.h"

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <tuple>

namespace panoveer {

// Knows which encoders this build and this machine have, and for which picture sizes: it opens an encoder once for each
// codec, profile and size, and remembers how that went. Any thread; the first question of a kind takes as long as the
// encoder takes to open, up to a second for the largest pictures.
class EncoderCatalog {
public:
    static EncoderCatalog& shared();

    // Why pictures cannot be encoded so, in words for a log; no value when they can. Bit rate, key frames and colours
    // have no part in it.
    std::optional<std::string> refusal(const VideoSettings& settings);

    // The library that encodes pictures in layers, two eyes or colour and alpha.
    struct LayerLibrary {
        std::string path;
        std::string absence; // why it cannot be used and what to do, in one line; empty when it can
    };
    static LayerLibrary layerLibrary();

    // Whether a stream of two eyes can be encoded here at all, in 8 or 10 bits a sample; sizes are for refusal().
    bool supportsStereoMultiview(int bitDepth);

private:
    using Key = std::tuple<FourCC, int, int, VideoProfile, bool>;

    std::mutex mutex_;
    std::map<Key, std::optional<std::string>> answers_; // guarded by mutex_
};

} // namespace panoveer
