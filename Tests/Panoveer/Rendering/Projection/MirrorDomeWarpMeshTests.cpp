#include "Panoveer/Rendering/Projection/MirrorDomeGridMapper.h"
#include "Panoveer/Rendering/Projection/MirrorDomeRaster.h"
#include "Panoveer/Rendering/Projection/MirrorDomeWarpMesh.h"
#include "Panoveer/Rendering/Projection/MirrorDomeWarpMeshError.h"
#include "Panoveer/Rendering/Projection/ProjectionGridGeometry.h"
#include "Support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <format>
#include <fstream>

namespace panoveer {

namespace {

namespace fs = std::filesystem;
using Case = MirrorDomeWarpMeshError::Case;

class MirrorDomeMeshFile : public testing::Test {
protected:
    MirrorDomeMeshFile() { fs::create_directories(folder_); }
    ~MirrorDomeMeshFile() override { fs::remove_all(folder_); }

    URL write(std::string_view text, const std::string& name = "mesh.data") const {
        std::ofstream(folder_ / name, std::ios::binary) << text;
        return URL::fromFilePath(folder_ / name);
    }
    MirrorDomeWarpMesh load(std::string_view text) const { return MirrorDomeWarpMesh::load(write(text)); }

    fs::path folder_ = fs::temp_directory_path() / ("panoveer-meshes-" + std::to_string(getpid()));
};

// A grid over the whole frame that shows the fisheye picture as it is, in its own axes.
std::string plainMesh(int columns, int rows, double aspect = 1.6) {
    std::string text = std::format("2\n{} {}\n", columns, rows);
    for (int r = 0; r < rows; ++r)
        for (int c = 0; c < columns; ++c) {
            const double s = c / double(columns - 1);
            const double t = r / double(rows - 1);
            text += std::format("{} {} {} {} 1\n", aspect * (1 - 2 * s), 1 - 2 * t, s * 0.98 + 0.01, t * 0.98 + 0.01);
        }
    return text;
}

// --- Reading ---------------------------------------------------------------------------------------------------------

TEST_F(MirrorDomeMeshFile, IsReadNodeByNodeWhateverItsBlanksAndLineBreaks) {
    const auto mesh = load("\xEF\xBB\xBF 1 \t\r\n\r\n 2\t 3 \r\n-1.5 1 0 0.25 1\r\n+1.25 1 1 0.25 0.5\n\n\t\n"
                           "-1.5 0 0.1 .5 1  \n1.5e0 0 1 0.5 1\r-1.5 -1 0.1 1 1\n1.5 -1 1 1 0\n\n");
    EXPECT_EQ(mesh.meshType, 1);
    EXPECT_EQ(mesh.width, 2);
    EXPECT_EQ(mesh.height, 3);
    EXPECT_EQ(mesh.aspectRatio, 1.5f);
    ASSERT_EQ(mesh.vertices.size(), 6u);
    EXPECT_EQ(mesh.vertices[1], (MirrorDomeWarpVertex{{1.25f, 1}, {1, 0.25f}, 0.5f, 0}));
    EXPECT_THAT(mesh.indices, testing::ElementsAre(0, 2, 1, 1, 2, 3, 2, 4, 3, 3, 4, 5));
}

TEST_F(MirrorDomeMeshFile, LeavesOutTheCellsAroundAHole) {
    const std::string head = "2\n3 2\n1 1 ";
    const std::string middle = " 1\n0 1 0.5 0.5 ";
    const std::string tail = "\n-1 1 0.9 0.1 1\n1 -1 0.1 0.9 1\n0 -1 0.5 0.9 1\n-1 -1 0.9 0.9 1\n";
    EXPECT_EQ(load(head + "0.1 0.1" + middle + "1" + tail).indices.size(), 12u);
    EXPECT_EQ(load(head + "0 0.1" + middle + "0" + tail).indices.size(), 12u) << "dark, but no hole";
    EXPECT_EQ(load(head + "0 0" + middle + "1" + tail).indices.size(), 6u);
    EXPECT_EQ(load(head + "0.1 0.1" + middle + "-0.5" + tail).indices.size(), 0u);
    EXPECT_EQ(load("1\n1 2\n1 0 0 0 1\n1 1 1 1 1\n").indices.size(), 0u) << "no cell at all";
}

struct BrokenMesh {
    const char* name;
    std::string text;
    Case which;
    std::string message;

    friend std::ostream& operator<<(std::ostream& stream, const BrokenMesh& mesh) { return stream << mesh.name; }
};

class BrokenMeshes : public MirrorDomeMeshFile, public testing::WithParamInterface<BrokenMesh> {};

TEST_P(BrokenMeshes, AreToldInOneLine) {
    const auto error = test::thrown<MirrorDomeWarpMeshError>([&] { load(GetParam().text); });
    ASSERT_TRUE(error) << "it was read";
    EXPECT_EQ(error->which(), GetParam().which);
    EXPECT_EQ(std::string(error->what()), GetParam().message);
}

BrokenMesh wrongCount(const char* name, const char* text, int expected, int found) {
    return {name, text, Case::unexpectedNodeCount,
            std::format("Mirror Dome warp mesh expected {} nodes, found {}.", expected, found)};
}
BrokenMesh wrongType(const char* name, const char* text, int type) {
    return {name, text, Case::invalidMeshType, std::format("Line 1: invalid Mirror Dome mesh type {}.", type)};
}
BrokenMesh wrongSize(const char* name, const char* text) {
    return {name, text, Case::invalidGridSize, "Line 2: invalid Mirror Dome grid size."};
}
// Behind a sound node, and between blank lines, which do not count. `shown` bytes of the node are shown.
BrokenMesh wrongNode(const char* name, const std::string& node, std::size_t shown = std::string::npos) {
    return {name, "2\n2 1\n\n1 0 0 0 1\n\n " + node + " \n", Case::malformedNodeLine,
            "Line 4: malformed Mirror Dome node: " + node.substr(0, shown)};
}

std::string foreignLine() {
    std::string line;
    for (int i = 0; i < 90; ++i)
        line += "球";
    return line;
}

INSTANTIATE_TEST_SUITE_P(
    All, BrokenMeshes,
    testing::Values(wrongCount("Empty", "", 0, 0), wrongCount("OneLine", "\n2\n \n", 0, 1),
                    wrongType("TypeThree", "3\n1 1\n", 3), wrongType("TypeIsText", "mesh\n1 1\n", 0),
                    wrongType("TypeIsTwoNumbers", "2 2\n1 1\n", 0), wrongSize("SizeZero", "2\n0 4\n"),
                    wrongSize("SizeTooLarge", "2\n4 10000\n"), wrongSize("SizeOfThree", "2\n4 4 4\n"),
                    wrongSize("SizeInHalves", "2\n4 4.5\n"), wrongCount("LargestSize", "2\n9999 9999\n", 99980001, 0),
                    wrongCount("NodeMissing", "2\n2 1\n1 0 0 0 1\n", 2, 1), wrongNode("FourNumbers", "1 0 0 0"),
                    wrongNode("SixNumbers", "0 0 0 0 1 " + std::string(100, '7'), 80),
                    wrongNode("Foreign", foreignLine(), 240), wrongNode("NotFinite", "1 0 nan 0 1"),
                    wrongNode("BeyondFloats", "1 0 1e99 0 1"),
                    BrokenMesh{"NoExtent", "2\n2 1\n0 0 0 0 1\n0 1 1 1 1\n", Case::zeroAspectRatio,
                               "Mirror Dome warp mesh has a zero projector aspect ratio."}),
    [](const auto& test) { return test.param.name; });

TEST_F(MirrorDomeMeshFile, MustBeARegularFileOfText) {
    const auto failure = [](const URL& url) -> std::string {
        const auto error = test::thrown<MirrorDomeWarpMeshError>([&] { MirrorDomeWarpMesh::load(url); });
        return error && error->which() == Case::fileNotReadable ? error->what() : "it was read";
    };
    const std::string start = "Cannot read Mirror Dome warp mesh: ";
    for (const auto& place : {folder_ / "gone.data", folder_, fs::path("/dev/zero")})
        EXPECT_EQ(failure(URL::fromFilePath(place)), start + place.string());
    EXPECT_EQ(failure(*URL::fromString("https://example.org/m.data")), start + "https://example.org/m.data");
    EXPECT_EQ(failure(write("2\n1 1\n1 0 0 0 1 \xff\n")), start + (folder_ / "mesh.data").string());
    EXPECT_EQ(failure(write("2\n1 1\n1 0 0 0 1\n\xe7\x90")), start + (folder_ / "mesh.data").string());
}

// --- Backwards -------------------------------------------------------------------------------------------------------

TEST_F(MirrorDomeMeshFile, RunsBackwardsFromTheFisheyePicture) {
    const MirrorDomeGridMapper mapper(load(plainMesh(12, 9)));
    for (const double u : {0.011, 0.3, 0.5, 0.77, 0.989})
        for (const double v : {0.02, 0.5, 0.6, 0.98}) {
            const auto found = mapper.project({u, v});
            ASSERT_TRUE(found) << u << " " << v;
            EXPECT_NEAR(found->u, (u - 0.01) / 0.98, 1e-5);
            EXPECT_NEAR(found->v, (v - 0.01) / 0.98, 1e-5);
        }
    for (const ImagePoint outside : {ImagePoint{0.005, 0.5}, {-0.1, 0.5}, {0.5, 1.1}, {0.5, 0.995}, {NAN, 0.5}})
        EXPECT_FALSE(mapper.project(outside)) << outside.u << " " << outside.v;
}

TEST_F(MirrorDomeMeshFile, ShowsNothingWhereItIsDark) {
    // Two sheets over the same part of the fisheye picture: the dark one comes first and hides the other.
    const auto sheets = [](const char* first, const char* second) {
        return std::format("2\n2 4\n1 1 0.2 0.2 {0}\n-1 1 0.8 0.2 {0}\n1 0.1 0.2 0.8 {0}\n-1 0.1 0.8 0.8 {0}\n"
                           "1 -0.1 0.2 0.2 {1}\n-1 -0.1 0.8 0.2 {1}\n1 -1 0.2 0.8 {1}\n-1 -1 0.8 0.8 {1}\n",
                           first, second);
    };
    EXPECT_FALSE(MirrorDomeGridMapper(load(sheets("0.0009", "1"))).project({0.4, 0.6}));
    const auto shown = MirrorDomeGridMapper(load(sheets("0.0011", "1"))).project({0.4, 0.6});
    ASSERT_TRUE(shown);
    EXPECT_LT(shown->v, 0.5) << "the first sheet lies in the upper half";
}

TEST_F(MirrorDomeMeshFile, IsSharedAsAMapperUntilItChanges) {
    VRTransform transform;
    transform.mirrorDomeWarpMeshURL = write(plainMesh(4, 4), "shared.data");
    const auto first = ProjectionGridGeometry::mirrorDomeGridMapper(transform);
    ASSERT_TRUE(first);
    transform.outputResolution = {1600, 1000};
    EXPECT_EQ(ProjectionGridGeometry::mirrorDomeGridMapper(transform), first) << "a file of one's own fits any shape";
    const auto file = transform.mirrorDomeWarpMeshURL->path();
    fs::last_write_time(file, fs::last_write_time(file) + std::chrono::hours(1));
    EXPECT_NE(ProjectionGridGeometry::mirrorDomeGridMapper(transform), first);
    write("nothing", "shared.data");
    EXPECT_FALSE(ProjectionGridGeometry::mirrorDomeGridMapper(transform));

    transform.mirrorDomeWarpMeshURL.reset();
    const auto tall = ProjectionGridGeometry::mirrorDomeGridMapper(transform);
    transform.outputResolution = {1920, 1080};
    const auto wide = ProjectionGridGeometry::mirrorDomeGridMapper(transform);
    EXPECT_TRUE(tall && wide && tall != wide);
}

// --- On the processor ------------------------------------------------------------------------------------------------

TEST_F(MirrorDomeMeshFile, DrawsLaterTrianglesOverEarlierOnesAndNothingOutsideThem) {
    // The lower row of cells is folded up over the upper one, up to a node far outside of the frame.
    const MirrorDomeRaster raster(load("2\n2 3\n1 1 0.1 0.1 1\n-1 1 0.9 0.1 1\n1 0 0.1 0.5 0\n-1 0 0.9 0.5 0\n"
                                       "1 0.5 0.1 0.9 1\n-1 3e30 0.9 0.9 1\n"),
                                  {40, 40});
    for (int x = 0; x < 40; ++x) {
        EXPECT_FALSE(raster.triangleAt(x, 20));
        ASSERT_TRUE(raster.triangleAt(x, 19) && raster.triangleAt(x, 0));
        EXPECT_GT(raster.triangleAt(x, 19)->fisheye(x + 0.5, 19.5).v, 0.5) << "the fold";
    }
    EXPECT_FALSE(MirrorDomeRaster(load("2\n1 1\n1 0 0.5 0.5 1\n"), {4, 4}).triangleAt(0, 0));
}

} // namespace
} // namespace panoveer
