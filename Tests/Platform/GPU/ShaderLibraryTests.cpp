#include "Platform/Core/Error.h"
#include "Platform/GPU/ShaderLibrary.h"
#include "Platform/GPU/ShaderReflection.h"
#include "Support/Thrown.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

namespace panoveer {

namespace {

namespace fs = std::filesystem;

constexpr const char* source = R"(#version 450
#extension GL_EXT_samplerless_texture_functions : require
#if defined(KERNEL_copy)
layout(local_size_x = 8, local_size_y = 4) in;
layout(set = 0, binding = 0) uniform texture2D source;
layout(set = 0, binding = 2) uniform writeonly image2D destination;
void main() {
    ivec2 at = ivec2(gl_GlobalInvocationID.xy);
    imageStore(destination, at, texelFetch(source, at, 0));
}
#endif
)";

class CacheDirectory {
public:
    CacheDirectory() : path_(fs::temp_directory_path() / ("panoveer-shaders-" + std::to_string(getpid()))) {
        fs::remove_all(path_);
    }
    ~CacheDirectory() { fs::remove_all(path_); }

    const fs::path& path() const { return path_; }
    std::vector<fs::path> files() const {
        std::vector<fs::path> found;
        for (const auto& entry : fs::directory_iterator(path_))
            found.push_back(entry.path());
        return found;
    }

private:
    fs::path path_;
};

TEST(ShaderLibrary, CompilesOneKernelOfTheTextAndTellsItsTextures) {
    const auto function = ShaderLibrary("test.glsl", source, {}).function("copy");
    ASSERT_TRUE(function);
    const auto reflection = reflect(function->code);
    EXPECT_EQ(reflection.textures, (std::vector<ShaderTextureBinding>{{0, false}, {2, true}}));
    EXPECT_EQ(reflection.groupSize, (std::array<std::uint32_t, 3>{8, 4, 1}));
}

TEST(ShaderLibrary, HasNoFunctionThatTheTextDoesNotName) {
    const ShaderLibrary library("test.glsl", source, {});
    for (const char* absent : {"cop", "copyAll", "main", ""})
        EXPECT_FALSE(library.function(absent)) << absent;
}

TEST(ShaderLibrary, IncludesPartsAndSaysInWhichOneATextDoesNotCompile) {
    const CacheDirectory folder;
    fs::create_directories(folder.path());
    std::ofstream(folder.path() / "part.glsl")
        << "#if defined(KERNEL_badPart)\nint one() { return missing; }\n#endif\n";
    std::ofstream(folder.path() / "main.glsl") << R"(#version 450
#extension GL_GOOGLE_cpp_style_line_directive : require
#include "part.glsl"
#if defined(KERNEL_good)
void main() {}
#elif defined(KERNEL_badPart)
void main() { one(); }
#elif defined(KERNEL_badMain)
void main() { two(); }
#endif
)";
    const auto library = ShaderLibrary::fromFile(folder.path() / "main.glsl", {});
    EXPECT_TRUE(library.function("good"));
    for (const auto& [kernel, place] : {std::pair("badPart", "part.glsl:2"), std::pair("badMain", "main.glsl:9")}) {
        const std::string text = test::thrown<Error>([&] { library.function(kernel); }).value().what();
        EXPECT_NE(text.find(place), std::string::npos) << text;
    }
    fs::remove(folder.path() / "part.glsl");
    EXPECT_THROW(ShaderLibrary::fromFile(folder.path() / "main.glsl", {}), Error);
}

TEST(ShaderLibrary, TakesKernelsFromTheCacheUnlessTheyAreDamaged) {
    const CacheDirectory cache;
    const ShaderLibrary library("test.glsl", source, cache.path());
    const auto compiled = library.function("copy")->code;
    ASSERT_EQ(cache.files().size(), 1u);
    const auto file = cache.files().front();
    const auto written = fs::last_write_time(file);

    EXPECT_EQ(library.function("copy")->code, compiled);
    EXPECT_EQ(fs::last_write_time(file), written);

    std::fstream(file, std::ios::in | std::ios::out | std::ios::binary).seekp(100) << "damage";
    EXPECT_EQ(library.function("copy")->code, compiled);
    fs::resize_file(file, 77);
    EXPECT_EQ(library.function("copy")->code, compiled);

    EXPECT_TRUE(ShaderLibrary("test.glsl", std::string(source) + "\n", cache.path()).function("copy"));
    EXPECT_EQ(cache.files().size(), 2u);
}

TEST(ShaderLibrary, WorksWhereTheCacheCannotBeWritten) {
    EXPECT_TRUE(ShaderLibrary("test.glsl", source, "/proc/none").function("copy"));
}

TEST(ShaderLibrary, TellsOfAFileThatCannotBeRead) {
    EXPECT_THROW(ShaderLibrary::fromFile("/nowhere/kernels.glsl"), Error);
}

TEST(ShaderReflection, RefusesWhatIsNoModule) {
    EXPECT_THROW(reflect(std::vector<std::uint32_t>{1, 2, 3, 4, 5, 6}), Error);
    auto code = ShaderLibrary("test.glsl", source, {}).function("copy")->code;
    code[5] = 0xffff0000 | (code[5] & 0xffff); // an instruction longer than the module
    EXPECT_THROW(reflect(code), Error);
}

} // namespace

} // namespace panoveer
