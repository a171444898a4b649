#include "Platform/Core/URL.h"

#include <glib.h>

#include <memory>

namespace panoveer {

namespace {

using GString = std::unique_ptr<char, decltype(&g_free)>;

std::string withoutTrailingSlashes(std::string text) {
    while (text.size() > 1 && text.back() == '/')
        text.pop_back();
    return text;
}

// The dot in front of the extension within a last path component; a leading dot makes a hidden name, not an extension.
std::size_t extensionDot(const std::string& component) {
    const auto dot = component.rfind('.');
    return dot == 0 || dot + 1 == component.size() ? std::string::npos : dot;
}

} // namespace

URL URL::fromFilePath(const std::filesystem::path& path) {
    if (path.empty())
        return {};
    return {withoutTrailingSlashes(std::filesystem::absolute(path).string()), true};
}

std::optional<URL> URL::fromString(std::string_view text) {
    const std::string owned(text);
    const GString scheme(g_uri_parse_scheme(owned.c_str()), g_free);
    if (!scheme)
        return std::nullopt;
    if (g_ascii_strcasecmp(scheme.get(), "file") != 0)
        return g_uri_is_valid(owned.c_str(), G_URI_FLAGS_NONE, nullptr) ? std::optional(URL(owned, false))
                                                                        : std::nullopt;
    const GString path(g_filename_from_uri(owned.c_str(), nullptr, nullptr), g_free);
    if (!path || !*path)
        return std::nullopt;
    return URL(withoutTrailingSlashes(path.get()), true);
}

std::string URL::absoluteString() const {
    if (!isFile_)
        return value_;
    const GString uri(g_filename_to_uri(value_.c_str(), nullptr, nullptr), g_free);
    return uri ? uri.get() : std::string();
}

std::string URL::lastPathComponent() const {
    const auto text = withoutTrailingSlashes(value_);
    const auto slash = text.rfind('/');
    return slash == std::string::npos || text.size() == 1 ? text : text.substr(slash + 1);
}

std::string URL::pathExtension() const {
    const auto component = lastPathComponent();
    const auto dot = extensionDot(component);
    return dot == std::string::npos ? std::string() : component.substr(dot + 1);
}

std::string URL::baseName() const {
    const auto component = lastPathComponent();
    return component.substr(0, extensionDot(component));
}

URL URL::deletingLastPathComponent() const {
    const auto text = withoutTrailingSlashes(value_);
    const auto slash = text.rfind('/');
    if (slash == std::string::npos)
        return *this;
    return {slash == 0 ? "/" : text.substr(0, slash), isFile_};
}

URL URL::deletingPathExtension() const {
    const auto extension = pathExtension();
    if (extension.empty())
        return *this;
    const auto text = withoutTrailingSlashes(value_);
    return {text.substr(0, text.size() - extension.size() - 1), isFile_};
}

URL URL::appendingPathComponent(std::string_view component) const {
    auto text = value_;
    if (text.empty() || text.back() != '/')
        text += '/';
    return {text.append(component), isFile_};
}

URL URL::appendingPathExtension(std::string_view extension) const {
    return {withoutTrailingSlashes(value_).append(".").append(extension), isFile_};
}

URL URL::standardized() const {
    if (!isFile_)
        return *this;
    return {withoutTrailingSlashes(std::filesystem::path(value_).lexically_normal().string()), true};
}

} // namespace panoveer
