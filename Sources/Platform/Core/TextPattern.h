#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace panoveer {

// A regular expression of ICU's dialect over UTF-8 text, with `^` and `$` at every line. Immutable; any thread.
class TextPattern {
public:
    // No value when the expression does not compile.
    static std::optional<TextPattern> ignoringCase(std::string_view expression);

    // The text with every match replaced; "$1" in the replacement stands for the first group. Bytes that are no UTF-8
    // become U+FFFD. No value when matching takes more memory than is allowed for it.
    std::optional<std::string> replacingMatches(std::string_view text, std::string_view replacement) const;

private:
    struct Compiled;
    explicit TextPattern(std::shared_ptr<const Compiled> compiled) : compiled_(std::move(compiled)) {}

    std::shared_ptr<const Compiled> compiled_;
};

} // namespace panoveer
