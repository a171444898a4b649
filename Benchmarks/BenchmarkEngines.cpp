#include "Benchmarks/BenchmarkEngines.h"

#include "Panoveer/Rendering/Projection/CPUProjectionRenderer.h"
#include "Panoveer/Rendering/Projection/ScalarProjectionReference.h"
#include "Panoveer/Rendering/Projection/VRMetalProjectionRenderer.h"
#include "Platform/GPU/GPUDevice.h"

#include <functional>
#include <iostream>
#include <stdexcept>

namespace panoveer::bench {

namespace {

enum class Purpose { use, reference };

struct Engine {
    const char* name;
    Purpose purpose;
    std::function<std::unique_ptr<ProjectionRenderer>()> make;
};

std::unique_ptr<ProjectionRenderer> gpuRenderer(GPUDeviceSelection::Kind kind) {
    return std::make_unique<VRMetalProjectionRenderer>(GPUDevice::make({.kind = kind}));
}

const std::vector<Engine>& engines() {
    static const std::vector<Engine> all{
        {"cpu", Purpose::use, [] { return std::make_unique<CPUProjectionRenderer>(); }},
        {"gpu", Purpose::use, [] { return gpuRenderer(GPUDeviceSelection::Kind::hardware); }},
        {"software", Purpose::reference, [] { return gpuRenderer(GPUDeviceSelection::Kind::software); }},
        {"scalar", Purpose::reference, [] { return std::make_unique<ScalarProjectionReference>(); }},
    };
    return all;
}

} // namespace

std::vector<std::string> engineChoices() {
    std::vector<std::string> names{"all"};
    for (const auto& engine : engines())
        names.emplace_back(engine.name);
    return names;
}

std::vector<std::unique_ptr<ProjectionRenderer>> makeEngines(const std::string& choice) {
    std::vector<std::unique_ptr<ProjectionRenderer>> made;
    for (const auto& engine : engines()) {
        const bool isNamed = choice == engine.name;
        if (!isNamed && choice != "all" && !(choice.empty() && engine.purpose == Purpose::use))
            continue;
        try {
            made.push_back(engine.make());
        } catch (const std::exception& failure) {
            if (isNamed)
                throw;
            std::cerr << "panoveer-bench: without the engine " << engine.name << ": " << failure.what() << '\n';
        }
    }
    if (made.empty())
        throw std::runtime_error("there is no engine to measure");
    return made;
}

} // namespace panoveer::bench
