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

private:
    using Key = std::tuple<FourCC, int, int, VideoProfile, bool>;

    std::mutex mutex_;
    std::map<Key, std::optional<std::string>> answers_; // guarded by mutex_
};

} // namespace panoveer
