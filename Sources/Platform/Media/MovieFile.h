#pragma once

#include "Platform/Core/Error.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <vector>

struct AVIOContext;

namespace panoveer {

// The file that a muxer writes into, with the first failure of the file system kept. One thread at a time. Not for
// other layers.
class MovieFile {
public:
    // Makes the file, and holds a FileLock on it. Throws Error in posixErrorDomain, EEXIST when there is one of that
    // name.
    explicit MovieFile(const std::filesystem::path& path);
    ~MovieFile();
    MovieFile(const MovieFile&) = delete;
    MovieFile& operator=(const MovieFile&) = delete;

    // What the muxer writes and seeks in. Buffered.
    AVIOContext* context() const { return context_.get(); }

    // Brings all that is buffered into the file and returns the position that the muxer is at. Throws error().
    std::int64_t flush();

    // From now on the muxer's writes stop reaching the file: those at or behind `offset` are kept for takeTail(), those
    // before it, corrections of what is there, are dropped. So nothing that is in the file changes before all that
    // belongs behind it is known.
    void divertTail(std::int64_t offset);
    std::vector<std::uint8_t> takeTail();

    // Unbuffered. Throw Error in posixErrorDomain.
    void writeAt(std::int64_t offset, std::span<const std::uint8_t> bytes);
    void readAt(std::int64_t offset, std::span<std::uint8_t> bytes);
    void truncate(std::int64_t size);

    const std::optional<Error>& error() const { return error_; }

private:
    struct FreeContext {
        void operator()(AVIOContext* context) const noexcept;
    };

    int write(const std::uint8_t* bytes, int count);
    std::int64_t seek(std::int64_t offset, int whence);
    void keepForTail(std::span<const std::uint8_t> bytes);

    std::string name_;
    int descriptor_ = -1;
    std::unique_ptr<AVIOContext, FreeContext> context_;
    std::int64_t position_ = 0;
    std::int64_t size_ = 0;
    std::optional<std::int64_t> tailStart_;
    std::vector<std::uint8_t> tail_;
    std::optional<Error> error_;
};

} // namespace panoveer
