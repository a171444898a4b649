#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace panoveer {

// Failures of this layer are Errors of this domain with a VkResult as their code.
inline constexpr std::string_view gpuErrorDomain = "VulkanErrorDomain";

struct GPUDeviceDescription {
    std::string name; // "NVIDIA H100", "llvmpipe (LLVM 19.1.7, 256 bits)"
    bool isSoftware = false;
    bool hasUnifiedMemory = false; // works in the machine's memory
    std::string apiVersion;        // "1.4.305"
    std::string driver;            // "llvmpipe Mesa 25.0.7"; empty when the driver does not say
};

// Which device is wanted.
struct GPUDeviceSelection {
    enum class Kind { automatic, hardware, software, index };
    Kind kind = Kind::automatic; // automatic: real devices before software ones, discrete before integrated
    int index = 0;               // for `index`: place in GPUDevice::available()

    // What the environment variable PANOVEER_GPU asks for: "software", "hardware" or an index; automatic when it is
    // unset or empty. Throws Error for anything else.
    static GPUDeviceSelection fromEnvironment();
};

class VulkanDevice;

// A GPU, or a processor that stands in for one, reached through Vulkan 1.2 or newer. Shared by everything that is made
// on it; safe from any thread. With PANOVEER_VULKAN_VALIDATION=1 the validation layer watches every call, and its
// messages go to the log.
class GPUDevice {
public:
    // Throws Error when there is no usable device of the kind asked for.
    static std::shared_ptr<GPUDevice> make(const GPUDeviceSelection& selection = GPUDeviceSelection::fromEnvironment());

    // The usable devices in the order of preference; empty when there is none. Never throws for want of a driver.
    static std::vector<GPUDeviceDescription> available();

    ~GPUDevice();
    GPUDevice(const GPUDevice&) = delete;
    GPUDevice& operator=(const GPUDevice&) = delete;

    const GPUDeviceDescription& description() const { return description_; }
    const std::string& name() const { return description_.name; }
    // True when the processor does the work.
    bool isSoftware() const { return description_.isSoftware; }
    // False for the rare device that only computes: it takes no GPURenderPipeline.
    bool canDraw() const;

    // Bytes of its own memory that this process can use in all without slowing down, and bytes that it uses now.
    std::uint64_t recommendedMaxWorkingSetSize() const;
    std::uint64_t currentAllocatedSize() const;

    // Warnings and errors of the validation layer so far; 0 without the layer.
    std::uint64_t validationMessageCount() const;
    bool isValidated() const;

    // For the classes of this layer.
    VulkanDevice& vulkan() const { return *vulkan_; }

private:
    GPUDevice(std::unique_ptr<VulkanDevice> vulkan, GPUDeviceDescription description);

    std::unique_ptr<VulkanDevice> vulkan_;
    GPUDeviceDescription description_;
};

} // namespace panoveer
