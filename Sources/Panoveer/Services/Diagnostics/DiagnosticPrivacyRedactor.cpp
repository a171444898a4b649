#include "Panoveer/Services/Diagnostics/DiagnosticPrivacyRedactor.h"

#include "Platform/Core/StandardFolders.h"
#include "Platform/Core/Text.h"
#include "Platform/Core/TextPattern.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <vector>

namespace panoveer {

namespace {

using JSON = nlohmann::json;

constexpr std::string_view redactedPath = "<REDACTED_PATH>";

#define PANOVEER_MEDIA_EXTENSIONS                                                                                      \
    R"re(\.(?:mov|mp4|m4v|mkv|webm|avi|mxf|mts|m2ts|insv|mp3|wav|aac|flac|png|jpe?g|tiff?|exr)\b)re"
#define PANOVEER_COMMON_ROOTS R"re((?:file://)?/(?:Volumes|Users|private|tmp|var|Library|Applications|Network))re"
// Folders hang anywhere below "/": an absolute path is one of at least two names, with no word, slash or dot in front,
// which keeps fractions (30/1) and web addresses out.
#define PANOVEER_ANY_ROOT R"re((?:file://|(?<![\p{L}\p{N}_.>/]))/[^\s/,;\]\)}\"']+)re"
#define PANOVEER_LABEL R"re((\b(?:file|source|destination|output)=))re"

struct Rule {
    std::string_view expression;
    std::string_view replacement;
};

constexpr std::array rulesOfPeople = {
    Rule{R"re([A-Z0-9._%+-]+@[A-Z0-9.-]+\.[A-Z]{2,})re", "<EMAIL>"},
    Rule{R"re(bearer\s+[A-Z0-9._~-]+)re", "Bearer <REDACTED>"},
};

// A path with blanks ends at a key with an equals sign, at punctuation or with the line; one without, at a blank. In
// the second pair a colon before a blank ends it too: "PATH: No such file or directory".
constexpr std::array absolutePathPatterns = {
    Rule{PANOVEER_COMMON_ROOTS R"re((?:/[^\r\n,;\]\)}\"']+?)+(?=\s+[A-Z_][A-Z0-9_.-]*=|[,;\]\)}\"']|$))re",
         redactedPath},
    Rule{PANOVEER_COMMON_ROOTS R"re((?:/[^\s,;\]\)}\"']+)+)re", redactedPath},
    Rule{PANOVEER_ANY_ROOT R"re((?:/[^\r\n,;\]\)}\"']+?)+(?=\s+[A-Z_][A-Z0-9_.-]*=|:\s|[,;\]\)}\"']|$))re",
         redactedPath},
    Rule{PANOVEER_ANY_ROOT R"re((?:/[^\s,;\]\)}\"']+)+)re", redactedPath},
};

constexpr std::array rulesOfFileNames = {
    Rule{PANOVEER_LABEL R"re([^,;\r\n]+?)re" PANOVEER_MEDIA_EXTENSIONS R"re((?=\s+[A-Z_][A-Z0-9_.-]*=|[,;\r\n]|$))re",
         "$1<REDACTED_FILE>"},
    Rule{PANOVEER_LABEL R"re([^\s,;\r\n]+?)re" PANOVEER_MEDIA_EXTENSIONS, "$1<REDACTED_FILE>"},
    // The program's own lines that name a movie after the word.
    Rule{R"re((\bfor\s+)[^:\r\n]+?)re" PANOVEER_MEDIA_EXTENSIONS, "$1<REDACTED_FILE>"},
    // The last net, for a bare name.
    Rule{R"re([\p{L}\p{N}_().°-]+)re" PANOVEER_MEDIA_EXTENSIONS, "<REDACTED_FILE>"},
};

struct CompiledRule {
    TextPattern pattern;
    std::string_view replacement;
};

// In the order of the lists: paths go before file names, so that no path is left with only its tail gone.
const std::vector<CompiledRule>& textRules() {
    static const auto rules = [] {
        std::vector<CompiledRule> compiled;
        const auto add = [&](const auto& list) {
            for (const auto& [expression, replacement] : list)
                if (auto pattern = TextPattern::ignoringCase(expression))
                    compiled.emplace_back(*pattern, replacement);
        };
        add(rulesOfPeople);
        add(absolutePathPatterns);
        add(rulesOfFileNames);
        return compiled;
    }();
    return rules;
}

// A text as an expression that matches just that.
std::string literalExpression(std::string_view text) {
    std::string result;
    for (const char c : text) {
        if (std::string_view("\\^$.|?*+()[]{}-").contains(c))
            result += '\\';
        result += c;
    }
    return result;
}

std::string withoutHomeFolder(std::string text) {
    auto home = homeFolder().string();
    while (home.ends_with('/'))
        home.pop_back();
    if (home.empty())
        return text;
    // Not the beginning of a longer name: /home/ann is no part of /home/anna.
    const auto pattern = TextPattern::ignoringCase(literalExpression(home) + R"re((?![\p{L}\p{N}_.-]))re");
    return pattern ? pattern->replacingMatches(text, "<HOME>").value_or(std::string(redactedPath)) : text;
}

} // namespace

std::string DiagnosticPrivacyRedactor::redact(std::string_view text) {
    auto result = redactJSONLines(withoutHomeFolder(std::string(text)));
    for (const auto& [pattern, replacement] : textRules())
        // What cannot be searched may hold anything.
        result = pattern.replacingMatches(result, replacement).value_or(std::string(redactedPath));
    return result;
}

std::string DiagnosticPrivacyRedactor::redactJSONLines(std::string_view text) {
    std::string result;
    for (std::size_t begin = 0;;) {
        const auto end = std::min(text.find('\n', begin), text.size());
        const auto line = text.substr(begin, end - begin);
        const auto value = JSON::parse(line, nullptr, false);
        if (value.is_object() || value.is_array())
            result += redactJSONObject(value).dump(-1, ' ', false, JSON::error_handler_t::replace);
        else
            result += line;
        if (end == text.size())
            return result;
        result += '\n';
        begin = end + 1;
    }
}

JSON DiagnosticPrivacyRedactor::redactJSONObject(const JSON& value, std::string_view key) {
    if (isSensitiveKey(key))
        return redactedShape(value);
    if (value.is_object()) {
        auto result = JSON::object();
        for (const auto& [name, each] : value.items())
            result[name] = redactJSONObject(each, name);
        return result;
    }
    if (value.is_array()) {
        auto result = JSON::array();
        for (const auto& each : value)
            result.push_back(redactJSONObject(each));
        return result;
    }
    return value.is_string() ? JSON(redact(value.get<std::string>())) : value;
}

JSON DiagnosticPrivacyRedactor::redactedShape(const JSON& value) {
    if (value.is_array() && std::ranges::all_of(value, [](const JSON& each) { return each.is_string(); }))
        return JSON(value.size(), std::string(redactedPath));
    return std::string(redactedPath);
}

bool DiagnosticPrivacyRedactor::isSensitiveKey(std::string_view key) {
    constexpr std::array<std::string_view, 6> names = {"source", "destination", "output",
                                                       "file",   "filename",    "source_files"};
    constexpr std::array<std::string_view, 4> endings = {"_path", "_url", "_file", "_files"};
    const auto lower = lowercased(key);
    return std::ranges::contains(names, lower) ||
           std::ranges::any_of(endings, [&](auto ending) { return lower.ends_with(ending); });
}

} // namespace panoveer
