#include "Platform/GPU/ShaderReflection.h"

#include "Platform/Core/Error.h"

#include <algorithm>
#include <map>

namespace panoveer {

namespace {

// From the SPIR-V specification: the header (2.3), instruction layout (2.3), opcodes (3.52) and operands used here.
constexpr std::uint32_t magicNumber = 0x07230203;
constexpr std::size_t headerWords = 5;

constexpr std::uint32_t opExecutionMode = 16;
constexpr std::uint32_t opTypeImage = 25;
constexpr std::uint32_t opTypePointer = 32;
constexpr std::uint32_t opVariable = 59;
constexpr std::uint32_t opDecorate = 71;

constexpr std::uint32_t executionModeLocalSize = 17;
constexpr std::uint32_t decorationBinding = 33;
constexpr std::uint32_t storageClassUniformConstant = 0;
constexpr std::uint32_t imageIsStorage = 2; // operand "Sampled" of OpTypeImage

} // namespace

ShaderReflection reflect(std::span<const std::uint32_t> code) {
    if (code.size() < headerWords || code[0] != magicNumber)
        throw Error("The compiled kernel is damaged");

    ShaderReflection reflection;
    std::map<std::uint32_t, std::uint32_t> bindings;  // variable -> binding
    std::map<std::uint32_t, bool> storageByImageType; // image type -> is storage
    std::map<std::uint32_t, std::uint32_t> pointees;  // pointer type -> type
    for (std::size_t at = headerWords; at < code.size();) {
        const auto opcode = code[at] & 0xffff;
        const auto length = code[at] >> 16;
        if (length == 0 || at + length > code.size())
            throw Error("The compiled kernel is damaged");
        const auto words = code.subspan(at, length);
        if (opcode == opExecutionMode && length >= 6 && words[2] == executionModeLocalSize)
            reflection.groupSize = {words[3], words[4], words[5]};
        else if (opcode == opDecorate && length >= 4 && words[2] == decorationBinding)
            bindings[words[1]] = words[3];
        else if (opcode == opTypeImage && length >= 9)
            storageByImageType[words[1]] = words[7] == imageIsStorage;
        else if (opcode == opTypePointer && length >= 4)
            pointees[words[1]] = words[3];
        else if (opcode == opVariable && length >= 4 && words[3] == storageClassUniformConstant) {
            // Decorations and types stand before the variables that they concern.
            const auto binding = bindings.find(words[2]);
            const auto pointee = pointees.find(words[1]);
            if (binding != bindings.end() && pointee != pointees.end() && storageByImageType.contains(pointee->second))
                reflection.textures.push_back({binding->second, storageByImageType[pointee->second]});
        }
        at += length;
    }
    std::ranges::sort(reflection.textures, {}, &ShaderTextureBinding::binding);
    return reflection;
}

} // namespace panoveer
