#include "Platform/GPU/GPUDevice.h"

#include "Platform/Core/Error.h"
#include "Platform/Core/Localization.h"
#include "Platform/Core/Log.h"
#include "Platform/GPU/VulkanDevice.h"
#include "Platform/GPU/VulkanInstance.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>

namespace panoveer {

namespace {

constexpr Logger logger("GPU");

Error noDeviceError(std::string_view key) {
    return Error(localized(key), std::string(gpuErrorDomain), VK_ERROR_INITIALIZATION_FAILED);
}

const VulkanCandidate* choose(const std::vector<VulkanCandidate>& candidates, const GPUDeviceSelection& selection) {
    using enum GPUDeviceSelection::Kind;
    switch (selection.kind) {
    case automatic: return candidates.empty() ? nullptr : &candidates.front();
    case index: return selection.index < std::ssize(candidates) ? &candidates[std::size_t(selection.index)] : nullptr;
    case hardware:
    case software: {
        const auto found = std::ranges::find_if(candidates, [&](const auto& candidate) {
            return candidate.description.isSoftware == (selection.kind == software);
        });
        return found == candidates.end() ? nullptr : &*found;
    }
    }
    return nullptr;
}

} // namespace

GPUDeviceSelection GPUDeviceSelection::fromEnvironment() {
    const char* variable = std::getenv("PANOVEER_GPU");
    const std::string_view value = variable ? variable : "";
    if (value.empty())
        return {};
    if (value == "hardware")
        return {.kind = Kind::hardware};
    if (value == "software")
        return {.kind = Kind::software};
    GPUDeviceSelection selection{.kind = Kind::index};
    const auto [end, failure] = std::from_chars(value.data(), value.data() + value.size(), selection.index);
    if (failure != std::errc() || end != value.data() + value.size() || selection.index < 0)
        throw Error(localized("error.gpu.unknown_selection", value), std::string(gpuErrorDomain));
    return selection;
}

std::shared_ptr<GPUDevice> GPUDevice::make(const GPUDeviceSelection& selection) {
    auto instance = VulkanInstance::make();
    if (!instance)
        throw noDeviceError("error.gpu.none_found");
    const auto candidates = instance->candidates();
    const auto* chosen = choose(candidates, selection);
    if (!chosen)
        throw noDeviceError(candidates.empty() ? "error.gpu.none_found" : "error.gpu.selection_not_found");
    auto vulkan = std::make_unique<VulkanDevice>(std::move(instance), *chosen);
    const auto& description = chosen->description;
    logger.info("Using {} (Vulkan {}, {})", description.name, description.apiVersion, description.driver);
    return std::shared_ptr<GPUDevice>(new GPUDevice(std::move(vulkan), description));
}

std::vector<GPUDeviceDescription> GPUDevice::available() {
    std::vector<GPUDeviceDescription> descriptions;
    if (const auto instance = VulkanInstance::make())
        for (auto& candidate : instance->candidates())
            descriptions.push_back(std::move(candidate.description));
    return descriptions;
}

GPUDevice::GPUDevice(std::unique_ptr<VulkanDevice> vulkan, GPUDeviceDescription description)
    : vulkan_(std::move(vulkan)), description_(std::move(description)) {}

GPUDevice::~GPUDevice() = default;

bool GPUDevice::canDraw() const { return vulkan_->canDraw(); }

std::uint64_t GPUDevice::recommendedMaxWorkingSetSize() const { return vulkan_->memoryUse().budget; }

std::uint64_t GPUDevice::currentAllocatedSize() const { return vulkan_->memoryUse().used; }

std::uint64_t GPUDevice::validationMessageCount() const { return vulkan_->instance().validationMessageCount(); }

bool GPUDevice::isValidated() const { return vulkan_->instance().isValidated(); }

} // namespace panoveer
