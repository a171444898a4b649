#include "Platform/Core/Localization.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>

namespace panoveer {
namespace {

namespace fs = std::filesystem;

using Texts = std::map<std::string, std::string>;

std::string contentsOf(const fs::path& path) {
    std::ostringstream contents;
    contents << std::ifstream(path, std::ios::binary).rdbuf();
    return contents.str();
}

fs::path tablePath(std::string_view language) {
    return fs::path("Sources/Panoveer/Resources/Localization") / (std::string(language) + ".json");
}

Texts textsOf(std::string_view language) { return nlohmann::json::parse(contentsOf(tablePath(language))).get<Texts>(); }

// The numbers of the arguments that a text places: {0}, {1, number}, …
std::set<std::string> argumentsOf(const std::string& text) {
    static const std::regex argument(R"(\{\s*(\d+)\s*[,}])");
    std::set<std::string> numbers;
    for (std::sregex_iterator match(text.begin(), text.end(), argument), end; match != end; ++match)
        numbers.insert((*match)[1]);
    return numbers;
}

std::string withoutComments(std::string source) {
    static const std::regex comment(R"((^|[\s;{}])//[^\n]*)");
    return std::regex_replace(source, comment, "$1");
}

class LanguageRestored : public testing::Test {
protected:
    void TearDown() override { setLanguage("system"); }
};

using Localization = LanguageRestored;

TEST_F(Localization, EveryTextStandsInEveryLanguageWithTheSameArguments) {
    const auto english = textsOf("en");
    ASSERT_FALSE(english.empty());
    for (const auto language : supportedLanguages()) {
        const auto texts = textsOf(language);
        for (const auto& [key, text] : english) {
            const auto found = texts.find(key);
            if (found == texts.end()) {
                ADD_FAILURE() << language << " lacks " << key;
                continue;
            }
            EXPECT_FALSE(found->second.empty()) << language << " " << key;
            EXPECT_EQ(argumentsOf(found->second), argumentsOf(text)) << language << " " << key;
        }
        for (const auto& [key, text] : texts)
            EXPECT_TRUE(english.contains(key)) << language << " has " << key << ", which English lacks";
    }
}

TEST_F(Localization, EveryTextCanBeFormatted) {
    const std::vector<LocalizedArgument> values(10, LocalizedArgument(std::int64_t(2)));
    const std::span<const LocalizedArgument> arguments(values);
    for (const auto language : supportedLanguages()) {
        setLanguage(language);
        for (const auto& [key, text] : textsOf(language))
            EXPECT_THAT(localized(key, arguments), testing::Not(testing::HasSubstr("{"))) << language << " " << key;
    }
}

// Sorted keys keep the tables alike and their changes easy to join; a key that stands twice would win at random.
TEST_F(Localization, KeysAreSortedAndStandOnce) {
    for (const auto language : supportedLanguages()) {
        std::string previous;
        using Event = nlohmann::json::parse_event_t;
        std::ignore =
            nlohmann::json::parse(contentsOf(tablePath(language)), [&](int, Event event, const nlohmann::json& value) {
                if (event == Event::key) {
                    EXPECT_LT(previous, value.get<std::string>()) << language;
                    previous = value.get<std::string>();
                }
                return true;
            });
    }
}

// A literal of the sources is taken for a key when it looks like one and begins as one of the keys of the tables does.
TEST_F(Localization, EveryKeyThatTheSourcesNameHasAText) {
    const auto english = textsOf("en");
    std::set<std::string> beginnings;
    for (const auto& [key, text] : english)
        beginnings.insert(key.substr(0, key.find('.')));

    static const std::regex call(R"re(\blocalized\(\s*"([^"]+)")re");
    static const std::regex keyLike(R"re("([a-z][a-z0-9_]*)(\.[a-z0-9_]+)+")re");
    int keysSeen = 0;
    for (const auto& entry : fs::recursive_directory_iterator("Sources")) {
        const auto extension = entry.path().extension();
        if (extension != ".h" && extension != ".cpp")
            continue;
        const auto source = withoutComments(contentsOf(entry.path()));
        const auto expectText = [&](const std::string& key) {
            ++keysSeen;
            EXPECT_TRUE(english.contains(key)) << entry.path().string() << " names " << key;
        };
        for (std::sregex_iterator match(source.begin(), source.end(), call), end; match != end; ++match)
            expectText((*match)[1]);
        for (std::sregex_iterator match(source.begin(), source.end(), keyLike), end; match != end; ++match)
            if (const auto literal = match->str(); beginnings.contains((*match)[1]))
                expectText(literal.substr(1, literal.size() - 2));
    }
    EXPECT_GT(keysSeen, 0);
}

TEST_F(Localization, TextsComeInTheLanguageInForceAndKeysWithoutTextAsThemselves) {
    setLanguage("de"); // not spoken: English
    const auto english = localized("export.frame_rate.source");
    EXPECT_EQ(english, textsOf("en").at("export.frame_rate.source"));
    setLanguage("fr");
    EXPECT_EQ(localized("export.frame_rate.source"), textsOf("fr").at("export.frame_rate.source"));
    EXPECT_NE(localized("export.frame_rate.source"), english);
    EXPECT_THAT(localized("mirror_dome.warp_mesh.standard_named", "16:9"), testing::EndsWith("16:9"));
    EXPECT_EQ(localized("no.such_key"), "no.such_key");
}

} // namespace
} // namespace panoveer
