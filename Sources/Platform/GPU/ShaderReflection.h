#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

namespace panoveer {

// A texture that a kernel names in descriptor set 0.
struct ShaderTextureBinding {
    std::uint32_t binding = 0;
    bool isStorage = false; // written to; otherwise only read

    friend bool operator==(const ShaderTextureBinding&, const ShaderTextureBinding&) = default;
};

// What a kernel says of itself, so that the program need not say it again.
struct ShaderReflection {
    std::vector<ShaderTextureBinding> textures; // in the order of their bindings
    std::array<std::uint32_t, 3> groupSize{1, 1, 1};
};

// Throws Error when the words are no SPIR-V module.
ShaderReflection reflect(std::span<const std::uint32_t> code);

} // namespace panoveer
