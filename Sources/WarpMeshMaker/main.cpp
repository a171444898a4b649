// Writes the standard warp meshes of mirror domes: warp-mesh-maker FOLDER. The files below
// Sources/Panoveer/Resources/WarpMeshes are exactly what it writes.

#include "WarpMeshMaker/MirrorDomeInstallation.h"

#include <filesystem>
#include <fstream>
#include <iostream>

int main(int argc, char** argv) {
    using panoveer::MirrorDomeProjectorAspect;
    if (argc != 2) {
        std::cerr << "warp-mesh-maker FOLDER: writes the standard warp meshes into an existing folder\n";
        return 2;
    }
    const std::pair<const char*, MirrorDomeProjectorAspect> meshes[] = {
        {"standard_16x9.data", MirrorDomeProjectorAspect::sixteenNine},
        {"standard_16x10.data", MirrorDomeProjectorAspect::sixteenTen}};
    for (const auto& [name, aspect] : meshes) {
        const auto path = std::filesystem::path(argv[1]) / name;
        std::ofstream file(path, std::ios::binary);
        file << panoveer::meshmaker::MirrorDomeInstallation{}.mesh(aspect);
        file.close();
        if (!file) {
            std::cerr << "warp-mesh-maker: cannot write " << path.string() << '\n';
            return 1;
        }
    }
    return 0;
}
