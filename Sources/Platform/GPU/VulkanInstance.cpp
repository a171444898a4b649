#include "Platform/GPU/VulkanInstance.h"

#include "Platform/Core/Log.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <format>
#include <optional>

namespace panoveer {

namespace {

constexpr Logger logger("GPU");
constexpr std::uint32_t neededVersion = VK_API_VERSION_1_2;
constexpr std::uint32_t usedVersion = VK_API_VERSION_1_3; // where there is that much
constexpr const char* validationLayer = "VK_LAYER_KHRONOS_validation";

bool validationIsWanted() {
    const char* value = std::getenv("PANOVEER_VULKAN_VALIDATION");
    return value && std::strcmp(value, "1") == 0;
}

bool hasLayer(const char* name) {
    std::uint32_t count = 0;
    vkEnumerateInstanceLayerProperties(&count, nullptr);
    std::vector<VkLayerProperties> layers(count);
    vkEnumerateInstanceLayerProperties(&count, layers.data());
    return std::ranges::any_of(layers, [&](const auto& layer) { return std::strcmp(layer.layerName, name) == 0; });
}

bool hasInstanceExtension(const char* name) {
    std::uint32_t count = 0;
    vkEnumerateInstanceExtensionProperties(nullptr, &count, nullptr);
    std::vector<VkExtensionProperties> extensions(count);
    vkEnumerateInstanceExtensionProperties(nullptr, &count, extensions.data());
    return std::ranges::any_of(extensions,
                               [&](const auto& entry) { return std::strcmp(entry.extensionName, name) == 0; });
}

VkBool32 onValidationMessage(VkDebugUtilsMessageSeverityFlagBitsEXT severity, VkDebugUtilsMessageTypeFlagsEXT,
                             const VkDebugUtilsMessengerCallbackDataEXT* data, void* count) {
    ++*static_cast<std::atomic<std::uint64_t>*>(count);
    if (severity & VK_DEBUG_UTILS_MESSAGE_SEVERITY_ERROR_BIT_EXT)
        logger.error("{}", data->pMessage);
    else
        logger.warning("{}", data->pMessage);
    return VK_FALSE;
}

// Drivers' own devices before emulations of them; what the processor emulates comes last.
int preference(VkPhysicalDeviceType type) {
    switch (type) {
    case VK_PHYSICAL_DEVICE_TYPE_DISCRETE_GPU: return 0;
    case VK_PHYSICAL_DEVICE_TYPE_INTEGRATED_GPU: return 1;
    case VK_PHYSICAL_DEVICE_TYPE_VIRTUAL_GPU: return 2;
    case VK_PHYSICAL_DEVICE_TYPE_CPU: return 4;
    default: return 3;
    }
}

struct ComputeFamily {
    std::uint32_t index = 0;
    bool hasGraphics = false;
};

// A family with graphics as well, if there is one: it is the device's main road.
std::optional<ComputeFamily> computeFamily(VkPhysicalDevice device) {
    std::uint32_t count = 0;
    vkGetPhysicalDeviceQueueFamilyProperties(device, &count, nullptr);
    std::vector<VkQueueFamilyProperties> families(count);
    vkGetPhysicalDeviceQueueFamilyProperties(device, &count, families.data());
    constexpr VkQueueFlags both = VK_QUEUE_COMPUTE_BIT | VK_QUEUE_GRAPHICS_BIT;
    for (const VkQueueFlags wanted : {both, VkQueueFlags(VK_QUEUE_COMPUTE_BIT)})
        for (std::uint32_t family = 0; family < count; ++family)
            if ((families[family].queueFlags & wanted) == wanted)
                return ComputeFamily{family, wanted == both};
    return std::nullopt;
}

GPUDeviceDescription describe(VkPhysicalDevice device, const VkPhysicalDeviceProperties& properties) {
    VkPhysicalDeviceDriverProperties driver{.sType = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_DRIVER_PROPERTIES};
    VkPhysicalDeviceProperties2 query{.sType = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_PROPERTIES_2, .pNext = &driver};
    vkGetPhysicalDeviceProperties2(device, &query);
    const auto version = properties.apiVersion;
    return {
        .name = properties.deviceName,
        .isSoftware = properties.deviceType == VK_PHYSICAL_DEVICE_TYPE_CPU,
        .hasUnifiedMemory = properties.deviceType == VK_PHYSICAL_DEVICE_TYPE_CPU ||
                            properties.deviceType == VK_PHYSICAL_DEVICE_TYPE_INTEGRATED_GPU,
        .apiVersion = std::format("{}.{}.{}", VK_API_VERSION_MAJOR(version), VK_API_VERSION_MINOR(version),
                                  VK_API_VERSION_PATCH(version)),
        .driver = driver.driverName[0] ? std::format("{} {}", driver.driverName, driver.driverInfo) : std::string(),
    };
}

} // namespace

std::unique_ptr<VulkanInstance> VulkanInstance::make() {
    std::uint32_t version = VK_API_VERSION_1_0;
    if (vkEnumerateInstanceVersion(&version) != VK_SUCCESS || version < neededVersion)
        return nullptr;

    const bool validates = validationIsWanted() && hasLayer(validationLayer);
    if (validationIsWanted() && !validates)
        logger.warning("The Vulkan validation layer is not installed; going on without it");
    const bool hasDebugUtilities = validates || hasInstanceExtension(VK_EXT_DEBUG_UTILS_EXTENSION_NAME);
    std::vector<const char*> extensions;
    if (hasDebugUtilities)
        extensions.push_back(VK_EXT_DEBUG_UTILS_EXTENSION_NAME);
    if (validates)
        extensions.push_back(VK_EXT_VALIDATION_FEATURES_EXTENSION_NAME);

    const VkApplicationInfo application{
        .sType = VK_STRUCTURE_TYPE_APPLICATION_INFO, .pApplicationName = "Panoveer Studio", .apiVersion = usedVersion};
    const VkValidationFeatureEnableEXT synchronization = VK_VALIDATION_FEATURE_ENABLE_SYNCHRONIZATION_VALIDATION_EXT;
    const VkValidationFeaturesEXT validation{.sType = VK_STRUCTURE_TYPE_VALIDATION_FEATURES_EXT,
                                             .enabledValidationFeatureCount = 1,
                                             .pEnabledValidationFeatures = &synchronization};
    const VkInstanceCreateInfo info{.sType = VK_STRUCTURE_TYPE_INSTANCE_CREATE_INFO,
                                    .pNext = validates ? &validation : nullptr,
                                    .pApplicationInfo = &application,
                                    .enabledLayerCount = validates ? 1u : 0u,
                                    .ppEnabledLayerNames = &validationLayer,
                                    .enabledExtensionCount = std::uint32_t(extensions.size()),
                                    .ppEnabledExtensionNames = extensions.data()};
    std::unique_ptr<VulkanInstance> made(new VulkanInstance);
    if (const auto result = vkCreateInstance(&info, nullptr, &made->instance_); result != VK_SUCCESS) {
        logger.info("Vulkan is not usable on this machine: {}", resultName(result));
        return nullptr;
    }
    if (hasDebugUtilities)
        made->setObjectName_ = reinterpret_cast<PFN_vkSetDebugUtilsObjectNameEXT>(
            vkGetInstanceProcAddr(made->instance_, "vkSetDebugUtilsObjectNameEXT"));
    if (validates)
        made->startValidation();
    return made;
}

void VulkanInstance::startValidation() {
    const auto create = reinterpret_cast<PFN_vkCreateDebugUtilsMessengerEXT>(
        vkGetInstanceProcAddr(instance_, "vkCreateDebugUtilsMessengerEXT"));
    const VkDebugUtilsMessengerCreateInfoEXT info{.sType = VK_STRUCTURE_TYPE_DEBUG_UTILS_MESSENGER_CREATE_INFO_EXT,
                                                  .messageSeverity = VK_DEBUG_UTILS_MESSAGE_SEVERITY_WARNING_BIT_EXT |
                                                                     VK_DEBUG_UTILS_MESSAGE_SEVERITY_ERROR_BIT_EXT,
                                                  .messageType = VK_DEBUG_UTILS_MESSAGE_TYPE_VALIDATION_BIT_EXT |
                                                                 VK_DEBUG_UTILS_MESSAGE_TYPE_PERFORMANCE_BIT_EXT,
                                                  .pfnUserCallback = onValidationMessage,
                                                  .pUserData = &messageCount_};
    if (create)
        create(instance_, &info, nullptr, &messenger_);
}

VulkanInstance::~VulkanInstance() {
    if (messenger_ != VK_NULL_HANDLE) {
        const auto destroy = reinterpret_cast<PFN_vkDestroyDebugUtilsMessengerEXT>(
            vkGetInstanceProcAddr(instance_, "vkDestroyDebugUtilsMessengerEXT"));
        destroy(instance_, messenger_, nullptr);
    }
    if (instance_ != VK_NULL_HANDLE)
        vkDestroyInstance(instance_, nullptr);
}

std::vector<VulkanCandidate> VulkanInstance::candidates() const {
    std::uint32_t count = 0;
    vkEnumeratePhysicalDevices(instance_, &count, nullptr);
    std::vector<VkPhysicalDevice> devices(count);
    vkEnumeratePhysicalDevices(instance_, &count, devices.data());
    devices.resize(count);

    std::vector<std::pair<int, VulkanCandidate>> found;
    for (const auto device : devices) {
        VkPhysicalDeviceProperties properties;
        vkGetPhysicalDeviceProperties(device, &properties);
        VkPhysicalDeviceFeatures features;
        vkGetPhysicalDeviceFeatures(device, &features);
        const auto family = computeFamily(device);
        // Kernels write pictures of any format through one declaration.
        if (properties.apiVersion < neededVersion || !features.shaderStorageImageWriteWithoutFormat || !family) {
            logger.info("{} cannot run the program's kernels", properties.deviceName);
            continue;
        }
        found.emplace_back(preference(properties.deviceType),
                           VulkanCandidate{device, family->index, family->hasGraphics, describe(device, properties)});
    }
    std::ranges::stable_sort(found, {}, [](const auto& entry) { return entry.first; });

    std::vector<VulkanCandidate> candidates;
    for (auto& entry : found)
        candidates.push_back(std::move(entry.second));
    return candidates;
}

void VulkanInstance::setName(VkDevice device, VkObjectType type, std::uint64_t handle, const char* name) const {
    if (!setObjectName_)
        return;
    const VkDebugUtilsObjectNameInfoEXT info{.sType = VK_STRUCTURE_TYPE_DEBUG_UTILS_OBJECT_NAME_INFO_EXT,
                                             .objectType = type,
                                             .objectHandle = handle,
                                             .pObjectName = name};
    setObjectName_(device, &info);
}

} // namespace panoveer
