#include "Panoveer/Rendering/Projection/ProjectionGridGeometry.h"

#include "Panoveer/Rendering/Projection/MirrorDomeGridMapper.h"
#include "Panoveer/Rendering/Projection/MirrorDomeWarpMesh.h"
#include "Panoveer/Rendering/Projection/MirrorDomeWarpMeshError.h"

#include <filesystem>
#include <map>
#include <mutex>
#include <string>

namespace panoveer {

namespace {

struct MirrorDomeGridMapperCacheKey {
    std::string path;
    std::optional<std::filesystem::file_time_type> modificationDate; // none: the file cannot be looked at
    std::optional<MirrorDomeProjectorAspect> aspect;

    friend auto operator<=>(const MirrorDomeGridMapperCacheKey&, const MirrorDomeGridMapperCacheKey&) = default;
};

using Mapper = std::shared_ptr<const MirrorDomeGridMapper>;

std::mutex mirrorDomeCacheLock;
std::map<MirrorDomeGridMapperCacheKey, Mapper> mirrorDomeMapperCache; // guarded by mirrorDomeCacheLock

MirrorDomeGridMapperCacheKey cacheKey(const MirrorDomeMeshCacheKey& mesh) {
    std::error_code failure;
    const auto date = std::filesystem::last_write_time(mesh.url.path(), failure);
    return {mesh.url.path().string(), failure ? std::nullopt : std::optional(date), mesh.aspect};
}

} // namespace

Mapper ProjectionGridGeometry::mirrorDomeGridMapper(const VRTransform& transform) {
    const auto meshKey = MirrorDomeMeshCacheKey::of(transform);
    if (!meshKey)
        return nullptr;
    const auto key = cacheKey(*meshKey);
    {
        std::lock_guard lock(mirrorDomeCacheLock);
        if (const auto found = mirrorDomeMapperCache.find(key); found != mirrorDomeMapperCache.end())
            return found->second;
    }
    // Reading a mesh takes its time. Two threads may both do it; the later one's mapper stays.
    try {
        const auto mapper = std::make_shared<const MirrorDomeGridMapper>(MirrorDomeWarpMesh::load(meshKey->url));
        std::lock_guard lock(mirrorDomeCacheLock);
        std::erase_if(mirrorDomeMapperCache, [&](const auto& entry) { // what the file held before
            return entry.first.path == key.path && entry.first.aspect == key.aspect;
        });
        mirrorDomeMapperCache[key] = mapper;
        return mapper;
    } catch (const MirrorDomeWarpMeshError&) {
        return nullptr;
    }
}

} // namespace panoveer
