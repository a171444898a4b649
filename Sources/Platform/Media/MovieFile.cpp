#include "Platform/Media/MovieFile.h"

#include "Platform/Core/FileLock.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <utility>

extern "C" {
#include <libavformat/avio.h>
#include <libavutil/error.h>
#include <libavutil/mem.h>
}

namespace panoveer {

namespace {

constexpr int bufferSize = 1 << 18;

// Calls pread or pwrite until all bytes have gone; 0 or an errno.
template<class Bytes, class Transfer>
int transferAll(Bytes bytes, std::int64_t offset, const Transfer& transfer) {
    while (!bytes.empty()) {
        const auto count = transfer(bytes.data(), bytes.size(), offset);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return count < 0 ? errno : EIO;
        bytes = bytes.subspan(std::size_t(count));
        offset += count;
    }
    return 0;
}

} // namespace

void MovieFile::FreeContext::operator()(AVIOContext* context) const noexcept {
    av_freep(&context->buffer);
    avio_context_free(&context);
}

MovieFile::MovieFile(const std::filesystem::path& path) : name_(path.filename().string()) {
    auto* buffer = static_cast<unsigned char*>(av_malloc(bufferSize));
    if (!buffer)
        throw std::bad_alloc();
    context_.reset(avio_alloc_context(
        buffer, bufferSize, 1, this, nullptr,
        [](void* file, const std::uint8_t* bytes, int count) {
            return static_cast<MovieFile*>(file)->write(bytes, count);
        },
        [](void* file, std::int64_t offset, int whence) {
            return static_cast<MovieFile*>(file)->seek(offset, whence);
        }));
    if (!context_) {
        av_free(buffer);
        throw std::bad_alloc();
    }
    while (descriptor_ < 0) {
        descriptor_ = open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (descriptor_ < 0)
            throw posixError("Cannot create " + name_, errno);
        // Before it was marked, somebody may have taken it for one that a dead process left.
        if (!FileLock::markInUse(descriptor_))
            close(std::exchange(descriptor_, -1));
    }
}

MovieFile::~MovieFile() {
    if (descriptor_ >= 0)
        close(descriptor_);
}

std::int64_t MovieFile::flush() {
    avio_flush(context_.get());
    if (error_)
        throw *error_;
    return avio_tell(context_.get());
}

void MovieFile::divertTail(std::int64_t offset) { tailStart_ = offset; }

std::vector<std::uint8_t> MovieFile::takeTail() { return std::move(tail_); }

void MovieFile::writeAt(std::int64_t offset, std::span<const std::uint8_t> bytes) {
    const int code = transferAll(bytes, offset, [&](const std::uint8_t* data, std::size_t count, std::int64_t at) {
        return pwrite(descriptor_, data, count, at);
    });
    if (code != 0)
        throw posixError("Cannot write " + name_, code);
    size_ = std::max(size_, offset + std::int64_t(bytes.size()));
}

void MovieFile::readAt(std::int64_t offset, std::span<std::uint8_t> bytes) {
    const int code = transferAll(bytes, offset, [&](std::uint8_t* data, std::size_t count, std::int64_t at) {
        return pread(descriptor_, data, count, at);
    });
    if (code != 0)
        throw posixError("Cannot read " + name_, code);
}

void MovieFile::truncate(std::int64_t size) {
    if (ftruncate(descriptor_, size) != 0)
        throw posixError("Cannot shorten " + name_, errno);
    size_ = size;
}

int MovieFile::write(const std::uint8_t* bytes, int count) {
    const std::span<const std::uint8_t> span(bytes, std::size_t(count));
    if (tailStart_) {
        keepForTail(span);
    } else {
        try {
            writeAt(position_, span);
        } catch (const Error& error) {
            if (!error_)
                error_ = error;
            return AVERROR(error.code());
        }
    }
    position_ += count;
    return count;
}

void MovieFile::keepForTail(std::span<const std::uint8_t> bytes) {
    const auto start = position_ - *tailStart_;
    if (start < 0)
        return;
    tail_.resize(std::max(tail_.size(), std::size_t(start) + bytes.size()));
    std::ranges::copy(bytes, tail_.begin() + start);
}

std::int64_t MovieFile::seek(std::int64_t offset, int whence) {
    const auto end = tailStart_ ? *tailStart_ + std::int64_t(tail_.size()) : size_;
    switch (whence & ~AVSEEK_FORCE) {
    case AVSEEK_SIZE: return end;
    case SEEK_SET: break;
    case SEEK_CUR: offset += position_; break;
    case SEEK_END: offset += end; break;
    default: return AVERROR(EINVAL);
    }
    if (offset < 0)
        return AVERROR(EINVAL);
    return position_ = offset;
}

} // namespace panoveer
