#include "Platform/Core/Error.h"
#include "Platform/Core/Localization.h"
#include "Platform/GPU/GPUDevice.h"
#include "Platform/GPU/GPUTexture.h"
#include "Platform/GPU/VulkanDevice.h"
#include "Support/Thrown.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace panoveer {

namespace {

class EnvironmentVariable {
public:
    EnvironmentVariable(const char* name, const char* value) : name_(name) {
        if (const char* old = std::getenv(name))
            old_ = old;
        setenv(name, value, 1);
    }
    ~EnvironmentVariable() { old_ ? setenv(name_, old_->c_str(), 1) : unsetenv(name_); }

private:
    const char* name_;
    std::optional<std::string> old_;
};

TEST(GPUDevice, ListsRealDevicesBeforeSoftwareOnesAndPicksTheFirst) {
    const auto devices = GPUDevice::available();
    ASSERT_FALSE(devices.empty());
    for (std::size_t i = 1; i < devices.size(); ++i)
        EXPECT_TRUE(devices[i].isSoftware || !devices[i - 1].isSoftware) << devices[i].name;
    EXPECT_EQ(GPUDevice::make(GPUDeviceSelection{})->name(), devices.front().name);
}

TEST(GPUDevice, IsTheOneThatTheEnvironmentAsksFor) {
    const auto devices = GPUDevice::available();
    {
        const EnvironmentVariable variable("PANOVEER_GPU", "software");
        EXPECT_TRUE(GPUDevice::make()->isSoftware());
    }
    {
        const auto last = std::to_string(devices.size() - 1);
        const EnvironmentVariable variable("PANOVEER_GPU", last.c_str());
        EXPECT_EQ(GPUDevice::make()->name(), devices.back().name);
    }
    for (const char* absent : {"99", "-1", "1x", "fast"}) {
        const EnvironmentVariable variable("PANOVEER_GPU", absent);
        EXPECT_THROW(GPUDevice::make(), Error) << absent;
    }
}

TEST(GPUDevice, SaysWhatToDoWhereThereIsNoDriver) {
    setLanguage("en");
    const EnvironmentVariable variable("VK_DRIVER_FILES", "/dev/null");
    EXPECT_TRUE(GPUDevice::available().empty());
    const std::string text = test::thrown<Error>([] { GPUDevice::make(); }).value().what();
    EXPECT_NE(text.find("Install a Vulkan"), std::string::npos) << text;
}

TEST(GPUDevice, IsWatchedByTheValidationLayerOnRequest) {
    const EnvironmentVariable variable("PANOVEER_VULKAN_VALIDATION", "1");
    const auto device = GPUDevice::make();
    ASSERT_TRUE(device->isValidated());
    EXPECT_EQ(device->validationMessageCount(), 0u);
    // A fault on purpose, so that a count of 0 elsewhere means something.
    const VkFenceCreateInfo faulty{.sType = VK_STRUCTURE_TYPE_SEMAPHORE_CREATE_INFO};
    VkFence fence = VK_NULL_HANDLE;
    vkCreateFence(device->vulkan().get(), &faulty, nullptr, &fence);
    EXPECT_GT(device->validationMessageCount(), 0u);
    vkDestroyFence(device->vulkan().get(), fence, nullptr);
}

TEST(GPUDevice, CountsTheMemoryOfItsTextures) {
    const auto device = GPUDevice::make();
    const auto before = device->currentAllocatedSize();
    const auto texture =
        GPUTexture::make(device, GPUPixelFormat::rgba16Float, 4096, 4096, GPUTextureUsage::shaderReadWrite, "large");
    EXPECT_GE(device->currentAllocatedSize(), before + std::uint64_t(4096) * 4096 * 8);
    EXPECT_GT(device->recommendedMaxWorkingSetSize(), device->currentAllocatedSize());
}

} // namespace

} // namespace panoveer
