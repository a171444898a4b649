#include "Panoveer/Services/Intake/DualFisheyeLensHint.h"

#include "Platform/Core/FileDescriptor.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <vector>

namespace panoveer::DualFisheyeLensHint {

namespace {

constexpr std::string_view markers[] = {"DUAL FISHEYE", "Dual Fisheye", "RF5.2mm", "RF-S3.9mm", "RF-S7.8mm"};

constexpr off_t chunkSize = off_t(4) << 20;

// The bytes from an offset on, as many as there are.
std::string_view read(const FileDescriptor& file, off_t offset, std::vector<char>& buffer) {
    std::size_t size = 0;
    while (size < buffer.size()) {
        const auto count = pread(file.get(), buffer.data() + size, buffer.size() - size, offset + off_t(size));
        if (count > 0)
            size += std::size_t(count);
        else if (count == 0 || errno != EINTR)
            break;
    }
    return {buffer.data(), size};
}

bool containsMarker(std::string_view bytes) {
    return !bytes.empty() && std::ranges::any_of(markers, [&](std::string_view marker) {
        return memmem(bytes.data(), bytes.size(), marker.data(), marker.size()) != nullptr;
    });
}

} // namespace

bool isDualFisheye(const URL& url) {
    // Not to hang on a pipe that nobody writes to.
    const FileDescriptor file(open(url.path().c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status{};
    if (!file || fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode))
        return false;
    std::vector<char> buffer(std::size_t(std::min<off_t>(status.st_size, chunkSize)));
    if (containsMarker(read(file, 0, buffer)))
        return true;
    return status.st_size > chunkSize && containsMarker(read(file, status.st_size - chunkSize, buffer));
}

} // namespace panoveer::DualFisheyeLensHint
