#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <variant>

namespace panoveer {

// One argument of a user-visible text, placed where the text says {0}, {1}, …
using LocalizedArgument = std::variant<std::int64_t, double, std::string>;

// The languages that the program speaks, in the order in which settings list them.
std::span<const std::string_view> supportedLanguages();

// Chooses the language of every later text: one of supportedLanguages(), or "system" for the one that the
// environment (LC_ALL, LC_MESSAGES, LANG) asks for. An unknown language counts as "en". Any thread.
void setLanguage(std::string_view language);

// The text of a key in the language in force, with its arguments formatted (ICU message syntax). A key without a
// text in that language falls back to English, and a key without any text to the key itself.
std::string localized(std::string_view key, std::span<const LocalizedArgument> arguments = {});

template<class... Arguments>
    requires(sizeof...(Arguments) > 0)
std::string localized(std::string_view key, const Arguments&... arguments) {
    const auto wrap = [](const auto& value) -> LocalizedArgument {
        using Value = std::decay_t<decltype(value)>;
        if constexpr (std::is_integral_v<Value>)
            return std::int64_t(value);
        else if constexpr (std::is_floating_point_v<Value>)
            return double(value);
        else
            return std::string(value);
    };
    const LocalizedArgument list[] = {wrap(arguments)...};
    return localized(key, std::span<const LocalizedArgument>(list));
}

} // namespace panoveer
