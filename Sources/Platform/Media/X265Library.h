#pragma once

#include <string>

struct x265_api;

namespace panoveer {

// The x265 that encodes several layers, which Linux distributions leave out of theirs. It is opened when it is first
// asked for, from $PANOVEER_X265_LIBRARY or by its own name where the loader searches, and stays open; its symbols are
// kept apart from the x265 that libavcodec uses. Any thread. Never fails: what is missing is told. Not for other
// layers, which ask the EncoderCatalog.
class X265Library {
public:
    static const X265Library& shared();

    // The encoder of 8 or 10 bits; null where the library or that part of it is missing.
    const x265_api* api(int bitDepth) const { return bitDepth == 10 ? tenBit_ : bitDepth == 8 ? eightBit_ : nullptr; }
    // The file that was, or was to be, opened.
    const std::string& path() const { return path_; }
    // Why there is no encoder of 8 bits, in one line that says what to do; empty when there is.
    const std::string& absence() const { return absence_; }

private:
    X265Library();

    std::string path_;
    std::string absence_;
    const x265_api* eightBit_ = nullptr;
    const x265_api* tenBit_ = nullptr;
};

} // namespace panoveer
