#include "PanoveerTool/ExportStart.h"

#include "Panoveer/Model/Records/RecordEnums.h"
#include "Panoveer/Services/Export/StaleExportRecovery.h"
#include "PanoveerTool/Exit.h"
#include "PanoveerTool/JSONText.h"
#include "Platform/Core/Localization.h"

#include <nlohmann/json.hpp>

#include <iostream>

namespace panoveer::tool {

namespace {

using JSON = nlohmann::ordered_json;
using Blocker = ExportReadinessBlocker;

struct Payload {
    JSON& json;

    void operator()(const Blocker::MissingSource& blocker) const { json["source"] = blocker.source.path().string(); }
    void operator()(const Blocker::EncoderUnavailable& blocker) const {
        json["codec"] = rawValue(blocker.codec);
        json["width"] = blocker.resolution.width;
        json["height"] = blocker.resolution.height;
    }
    void operator()(const Blocker::InsufficientSpace& blocker) const {
        json["estimatedOutputBytes"] = blocker.estimatedOutputBytes;
        json["requiredBytes"] = blocker.requiredBytes;
        json["availableBytes"] = blocker.availableBytes;
    }
    void operator()(const Blocker::DestinationCapacityUnavailable& blocker) const {
        json["destination"] = blocker.destination.path().string();
    }
    void operator()(const auto&) const {}
};

} // namespace

void recoverStaleExports(const URL& folder, ProgressStyle style) {
    for (const auto& partial : StaleExportRecovery::recover(folder)) {
        const auto path = partial.path().string();
        if (style == ProgressStyle::json)
            std::cerr << jsonText({{"event", "recovered"}, {"partial", path}}) << std::endl;
        else
            std::cerr << "panoveer: " << localized("status.recovered_partial", path) << '\n';
    }
}

void throwIfBlocked(const std::vector<ExportReadinessBlocker>& blockers, bool json) {
    if (blockers.empty())
        return;
    JSON list = JSON::array();
    for (const auto& blocker : blockers) {
        std::cerr << "panoveer: " << blocker.message() << '\n';
        JSON entry = {{"blocker", blocker.name()}, {"message", blocker.message()}};
        std::visit(Payload{entry}, blocker.reason);
        list.push_back(std::move(entry));
    }
    if (json)
        std::cout << jsonText({{"blockers", list}}, 2) << '\n';
    throw ToldFailure();
}

} // namespace panoveer::tool
