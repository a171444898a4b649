#pragma once

#include "Panoveer/Model/Records/ExportSettings.h"

#include <compare>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>

namespace panoveer {

// Asks whether an encoder here takes a codec at a size, and remembers the answers. Any thread.
class ExportEncoderPreflight {
public:
    struct CacheKey {
        std::string codec; // raw value
        std::int64_t width = 0;
        std::int64_t height = 0;

        friend auto operator<=>(const CacheKey&, const CacheKey&) = default;
    };
    // What is asked of the platform: whether an encoder of one layer opens at a size; whether there is one for a layer
    // for each eye.
    using EncoderQuery = std::function<bool(ExportCodec codec, std::int64_t width, std::int64_t height)>;
    using MultiviewQuery = std::function<bool()>;

    explicit ExportEncoderPreflight(EncoderQuery canEncode = asksEncoderCatalog,
                                    MultiviewQuery isStereoEncodeSupported = hasMultiviewEncoder)
        : canEncode_(std::move(canEncode)), isStereoEncodeSupported_(std::move(isStereoEncodeSupported)) {}

    // The one whose answers all callers share.
    static ExportEncoderPreflight& shared();

    bool isSupported(const ExportSettings& settings);
    bool isMultiviewSupported(const ExportSettings& settings);

    static bool asksEncoderCatalog(ExportCodec codec, std::int64_t width, std::int64_t height);
    // This build writes no multiview movies.
    static bool hasMultiviewEncoder() { return false; }

private:
    const EncoderQuery canEncode_;
    const MultiviewQuery isStereoEncodeSupported_;
    std::mutex mutex_;
    std::map<CacheKey, bool> answers_; // guarded by mutex_
};

} // namespace panoveer
