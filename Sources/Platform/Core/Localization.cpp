#include "Platform/Core/Localization.h"

#include "Platform/Core/Log.h"
#include "Platform/Core/Resources.h"

#include <nlohmann/json.hpp>
#include <unicode/msgfmt.h>
#include <unicode/unistr.h>

#include <array>
#include <cstdlib>
#include <fstream>
#include <map>
#include <mutex>
#include <vector>

namespace panoveer {

namespace {

constexpr std::array<std::string_view, 6> languages = {"en", "it", "es", "fr", "pt-BR", "zh-Hans"};
constexpr Logger logger("Localization");

using Table = std::map<std::string, std::string, std::less<>>;

Table loadTable(std::string_view language) {
    const auto path = resourceURL(language, "json", "Localization");
    if (!path) {
        logger.error("no texts for language {}", language);
        return {};
    }
    try {
        std::ifstream file(*path);
        return nlohmann::json::parse(file).get<Table>();
    } catch (const nlohmann::json::exception& failure) {
        logger.error("{}: {}", path->string(), failure.what());
        return {};
    }
}

std::string_view languageOfEnvironment() {
    for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* value = std::getenv(name);
        if (!value || !*value)
            continue;
        const std::string_view locale(value);
        for (auto language : languages)
            if (locale.starts_with(language.substr(0, 2)))
                return language;
        break;
    }
    return "en";
}

class Localizer {
public:
    void setLanguage(std::string_view language) {
        std::lock_guard lock(mutex_);
        const auto wanted = language == "system" ? languageOfEnvironment() : language;
        language_ =
            std::find(languages.begin(), languages.end(), wanted) != languages.end() ? std::string(wanted) : "en";
    }

    std::string text(std::string_view key) {
        std::lock_guard lock(mutex_);
        for (const auto& language : {language_, std::string("en")}) {
            const auto& table = tableWhileLocked(language);
            if (const auto found = table.find(key); found != table.end())
                return found->second;
        }
        return std::string(key);
    }

    std::string language() {
        std::lock_guard lock(mutex_);
        return language_;
    }

private:
    const Table& tableWhileLocked(const std::string& language) {
        auto found = tables_.find(language);
        if (found == tables_.end())
            found = tables_.emplace(language, loadTable(language)).first;
        return found->second;
    }

    std::mutex mutex_;
    std::string language_{languageOfEnvironment()}; // guarded by mutex_
    std::map<std::string, Table> tables_;           // guarded by mutex_
};

Localizer& localizer() {
    static Localizer instance;
    return instance;
}

icu::Formattable formattable(const LocalizedArgument& argument) {
    if (const auto* integer = std::get_if<std::int64_t>(&argument))
        return icu::Formattable(*integer);
    if (const auto* number = std::get_if<double>(&argument))
        return icu::Formattable(*number);
    return icu::Formattable(icu::UnicodeString::fromUTF8(std::get<std::string>(argument)));
}

} // namespace

std::span<const std::string_view> supportedLanguages() { return languages; }

void setLanguage(std::string_view language) { localizer().setLanguage(language); }

std::string localized(std::string_view key, std::span<const LocalizedArgument> arguments) {
    const auto pattern = localizer().text(key);
    UErrorCode status = U_ZERO_ERROR;
    const icu::MessageFormat format(icu::UnicodeString::fromUTF8(pattern),
                                    icu::Locale::createCanonical(localizer().language().c_str()), status);
    if (U_FAILURE(status))
        return pattern;
    std::vector<icu::Formattable> values;
    for (const auto& argument : arguments)
        values.push_back(formattable(argument));
    icu::UnicodeString result;
    icu::FieldPosition position;
    format.format(values.data(), int32_t(values.size()), result, position, status);
    std::string text;
    result.toUTF8String(text);
    return U_FAILURE(status) ? pattern : text;
}

} // namespace panoveer
