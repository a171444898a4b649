#pragma once

#include "Panoveer/Services/Export/BigEndian.h"
#include "Panoveer/Services/Export/ByteStreams.h"
#include "Panoveer/Services/Export/MP4Parser.h"

#include <cstdint>
#include <initializer_list>
#include <string_view>
#include <vector>

// Boxes made by hand, sound or not, and a movie small enough to see through.
namespace panoveer::test {

using Bytes = std::vector<std::uint8_t>;

inline Bytes joined(std::initializer_list<Bytes> parts) {
    Bytes result;
    for (const auto& part : parts)
        result.insert(result.end(), part.begin(), part.end());
    return result;
}

inline Bytes header(std::string_view type, std::uint32_t size) {
    Bytes bytes;
    appendBigEndian(bytes, size);
    appendText(bytes, type);
    return bytes;
}

inline Bytes wideHeader(std::string_view type, std::uint64_t size) {
    auto bytes = header(type, 1);
    appendBigEndian(bytes, size);
    return bytes;
}

inline Bytes box(std::string_view type, std::initializer_list<Bytes> content = {}) {
    const auto body = joined(content);
    return joined({header(type, std::uint32_t(8 + body.size())), body});
}

inline Bytes zeros(std::size_t count) { return Bytes(count); }

inline Bytes handler(std::string_view type) {
    Bytes content(8);
    appendText(content, type);
    content.resize(24);
    return box("hdlr", {content});
}

// "stco" or "co64". `declaredCount` lies about the number of entries.
inline Bytes offsetTable(std::string_view type, const std::vector<std::uint64_t>& offsets, int declaredCount = -1) {
    Bytes content(4);
    appendBigEndian(content, std::uint32_t(declaredCount < 0 ? int(offsets.size()) : declaredCount));
    for (auto offset : offsets)
        type == "stco" ? appendBigEndian(content, std::uint32_t(offset)) : appendBigEndian(content, offset);
    return box(type, {content});
}

inline Bytes track(std::string_view handlerType, const Bytes& sampleEntry, const Bytes& offsets) {
    return box("trak", {box("mdia", {handler(handlerType),
                                     box("minf", {box("stbl", {box("stsd", {zeros(8), sampleEntry}), offsets})})})});
}

// A sound sample entry of a version with its fields numbered, and one box behind them.
inline Bytes audioEntry(std::string_view type, std::uint16_t version) {
    Bytes fields;
    const std::size_t sizes[] = {28, 44, 64};
    for (std::size_t index = 0; index < (version < 3 ? sizes[version] : 64); ++index)
        fields.push_back(std::uint8_t(index));
    storeBigEndian(fields, 8, version);
    return box(type, {fields, box("wave", {{1, 2, 3}})});
}

class MemoryByteSink final : public ByteSink {
public:
    void write(std::span<const std::uint8_t> written) override {
        bytes.insert(bytes.end(), written.begin(), written.end());
    }
    std::uint64_t position() const override { return bytes.size(); }

    Bytes bytes;
};

} // namespace panoveer::test
