#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace panoveer {

enum class ShaderStage { compute, vertex, fragment };

// A compiled function: SPIR-V 1.5 with the entry point "main".
struct ShaderFunction {
    std::string name;
    ShaderStage stage = ShaderStage::compute;
    std::vector<std::uint32_t> code;
};

// Functions that travel as GLSL text: kernels, and the two stages of drawing. GLSL knows one entry point a program, so
// the text holds each function's main() between `#if defined(KERNEL_name)` and `#endif`, and is compiled once for every
// function that is asked for. A value; safe from any thread.
class ShaderLibrary {
public:
    // `name` is what messages of the compiler call the text. Compiled functions are kept in `cacheDirectory`; an empty
    // path keeps none.
    ShaderLibrary(std::string name, std::string source, std::filesystem::path cacheDirectory = userCacheDirectory());

    // A line `#include "name"` stands for the file of that name in the same folder. Throws Error when a file cannot be
    // read.
    static ShaderLibrary fromFile(const std::filesystem::path& file,
                                  std::filesystem::path cacheDirectory = userCacheDirectory());

    // $XDG_CACHE_HOME, else ~/.cache, below it "Panoveer Studio/Shaders".
    static std::filesystem::path userCacheDirectory();

    // No value when the text has no such function. Throws Error with the compiler's messages when it does not compile.
    std::optional<ShaderFunction> function(std::string_view functionName,
                                           ShaderStage stage = ShaderStage::compute) const;

private:
    std::vector<std::uint32_t> compile(const std::string& macro, ShaderStage stage) const;

    std::string name_;
    std::string source_;
    std::filesystem::path cacheDirectory_;
};

} // namespace panoveer
