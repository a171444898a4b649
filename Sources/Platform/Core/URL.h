#pragma once

#include <compare>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace panoveer {

// Where something lies: a file on this machine (kept as its path) or any other absolute URL (kept as text).
// A value; nothing is read from the disk.
class URL {
public:
    URL() = default;

    // A relative path is taken from the current directory, as the program starts with it.
    static URL fromFilePath(const std::filesystem::path& path);
    // An absolute URL string; "file:" URLs are unescaped into their path. No value when it does not parse.
    static std::optional<URL> fromString(std::string_view text);

    bool isFileURL() const { return isFile_; }
    // The file path; empty for other URLs.
    std::filesystem::path path() const { return isFile_ ? std::filesystem::path(value_) : std::filesystem::path(); }
    // The percent-escaped absolute form, as JSON documents hold it.
    std::string absoluteString() const;

    // The part behind the last slash, a trailing slash ignored: "film.mov".
    std::string lastPathComponent() const;
    // Behind the last dot of the last component, without the dot: "mov"; empty when there is none.
    std::string pathExtension() const;
    // lastPathComponent() without its extension: "film".
    std::string baseName() const;

    URL deletingLastPathComponent() const;
    URL deletingPathExtension() const;
    URL appendingPathComponent(std::string_view component) const;
    URL appendingPathExtension(std::string_view extension) const;
    // "." and ".." resolved in the text; symbolic links are left alone.
    URL standardized() const;

    bool empty() const { return value_.empty(); }

    friend bool operator==(const URL&, const URL&) = default;
    friend auto operator<=>(const URL&, const URL&) = default;

private:
    URL(std::string value, bool isFile) : value_(std::move(value)), isFile_(isFile) {}

    std::string value_; // a file's absolute path, or the text of any other URL
    bool isFile_ = false;

    friend struct std::hash<URL>;
};

} // namespace panoveer

template<>
struct std::hash<panoveer::URL> {
    std::size_t operator()(const panoveer::URL& url) const noexcept { return std::hash<std::string>{}(url.value_); }
};
