#include "Platform/GPU/ShaderLibrary.h"

#include "Platform/Core/Error.h"
#include "Platform/Core/Localization.h"
#include "Platform/Core/Log.h"
#include "Platform/GPU/GPUDevice.h"

#include <glib.h>
#include <shaderc/shaderc.hpp>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <format>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>

namespace panoveer {

namespace fs = std::filesystem;

namespace {

constexpr Logger logger("GPU");

// Part of the cache's keys: raised when the compiler's options change.
constexpr std::string_view compilerOptions = "vulkan1.2 spirv1.5 unoptimized";

std::string sha256(std::string_view text) {
    const std::unique_ptr<char, decltype(&g_free)> digest(
        g_compute_checksum_for_data(G_CHECKSUM_SHA256, reinterpret_cast<const guchar*>(text.data()), text.size()),
        g_free);
    return digest.get();
}

std::optional<std::string> readFile(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    if (!stream)
        return std::nullopt;
    std::string content{std::istreambuf_iterator<char>(stream), {}};
    return stream.bad() ? std::nullopt : std::optional(std::move(content));
}

// The text of a file with every line `#include "name"` replaced by the file of that name beside it. Line directives
// keep the compiler's messages pointing at the files.
std::string readWithIncludes(const fs::path& file) {
    errno = 0;
    const auto text = readFile(file);
    if (!text)
        throw posixError(file.string(), errno ? errno : EIO);
    constexpr std::string_view directive = "#include \"";
    std::string result;
    std::istringstream lines(*text);
    int number = 1;
    for (std::string line; std::getline(lines, line); ++number) {
        if (!line.starts_with(directive) || !line.ends_with('"')) {
            result += line + '\n';
            continue;
        }
        const auto name = line.substr(directive.size(), line.size() - directive.size() - 1);
        result += std::format("#line 1 \"{}\"\n{}#line {} \"{}\"\n", name, readWithIncludes(file.parent_path() / name),
                              number + 1, file.filename().string());
    }
    return result;
}

// A cache file holds the digest of the words, then the words.
std::optional<std::vector<std::uint32_t>> readCached(const fs::path& file) {
    constexpr std::size_t digestLength = 64;
    const auto content = readFile(file);
    if (!content || content->size() <= digestLength || (content->size() - digestLength) % sizeof(std::uint32_t) != 0)
        return std::nullopt;
    const auto words = std::string_view(*content).substr(digestLength);
    if (sha256(words) != content->substr(0, digestLength))
        return std::nullopt;
    std::vector<std::uint32_t> code(words.size() / sizeof(std::uint32_t));
    std::memcpy(code.data(), words.data(), words.size());
    return code;
}

// Under a name of its own first, so that other processes never see half a file. A cache that cannot be written is none.
void writeCached(const fs::path& file, const std::vector<std::uint32_t>& code) {
    std::error_code failure;
    fs::create_directories(file.parent_path(), failure);
    const std::string_view words(reinterpret_cast<const char*>(code.data()), code.size() * sizeof(std::uint32_t));
    auto staged = file;
    staged += std::format(".{}", getpid());
    std::ofstream stream(staged, std::ios::binary);
    stream << sha256(words) << words;
    stream.close();
    if (stream)
        fs::rename(staged, file, failure);
    if (!stream || failure)
        fs::remove(staged, failure);
}

shaderc_shader_kind kind(ShaderStage stage) {
    switch (stage) {
    case ShaderStage::compute: return shaderc_compute_shader;
    case ShaderStage::vertex: return shaderc_vertex_shader;
    case ShaderStage::fragment: return shaderc_fragment_shader;
    }
    return shaderc_compute_shader;
}

bool isNameCharacter(char c) { return std::isalnum(static_cast<unsigned char>(c)) || c == '_'; }

bool containsWord(std::string_view text, std::string_view word) {
    for (auto at = text.find(word); at != text.npos; at = text.find(word, at + 1)) {
        const bool begins = at == 0 || !isNameCharacter(text[at - 1]);
        const auto end = at + word.size();
        if (begins && (end == text.size() || !isNameCharacter(text[end])))
            return true;
    }
    return false;
}

} // namespace

ShaderLibrary::ShaderLibrary(std::string name, std::string source, fs::path cacheDirectory)
    : name_(std::move(name)), source_(std::move(source)), cacheDirectory_(std::move(cacheDirectory)) {}

ShaderLibrary ShaderLibrary::fromFile(const fs::path& file, fs::path cacheDirectory) {
    return ShaderLibrary(file.filename().string(), readWithIncludes(file), std::move(cacheDirectory));
}

fs::path ShaderLibrary::userCacheDirectory() {
    if (const char* cache = std::getenv("XDG_CACHE_HOME"); cache && *cache)
        return fs::path(cache) / "Panoveer Studio/Shaders";
    const char* home = std::getenv("HOME");
    return home && *home ? fs::path(home) / ".cache/Panoveer Studio/Shaders" : fs::path();
}

std::optional<ShaderFunction> ShaderLibrary::function(std::string_view functionName, ShaderStage stage) const {
    const auto macro = "KERNEL_" + std::string(functionName);
    if (!containsWord(source_, macro))
        return std::nullopt;
    ShaderFunction function{.name = std::string(functionName), .stage = stage, .code = {}};
    if (cacheDirectory_.empty()) {
        function.code = compile(macro, stage);
        return function;
    }
    const auto key = sha256(std::format("{}\n{}\n{}\n{}", compilerOptions, int(kind(stage)), macro, source_));
    const auto file = cacheDirectory_ / (key + ".spv");
    if (auto cached = readCached(file)) {
        function.code = std::move(*cached);
    } else {
        function.code = compile(macro, stage);
        writeCached(file, function.code);
    }
    return function;
}

std::vector<std::uint32_t> ShaderLibrary::compile(const std::string& macro, ShaderStage stage) const {
    shaderc::CompileOptions options;
    options.SetTargetEnvironment(shaderc_target_env_vulkan, shaderc_env_version_vulkan_1_2);
    options.SetTargetSpirv(shaderc_spirv_version_1_5);
    options.SetOptimizationLevel(shaderc_optimization_level_zero);
    options.AddMacroDefinition(macro);
    const auto result = shaderc::Compiler().CompileGlslToSpv(source_, kind(stage), name_.c_str(), options);
    if (result.GetCompilationStatus() != shaderc_compilation_status_success)
        throw Error(localized("error.gpu.shader_compilation_failed", result.GetErrorMessage()),
                    std::string(gpuErrorDomain));
    if (result.GetNumWarnings() > 0)
        logger.warning("{}", result.GetErrorMessage());
    return {result.cbegin(), result.cend()};
}

} // namespace panoveer
