// docs/settings.md says of every key what the program does.

#include <gtest/gtest.h>

#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>

#include "stage/show/settings.h"
#include "tests/support/run_program.h"

namespace {

using Json = nlohmann::ordered_json;

struct DocumentedKey {
    std::string value;
    std::string defaultText;
};

std::string ReadSettingsPage() {
    return test_support::ReadAll(SOURCE_DIR "/docs/settings.md");
}

/// The rows of the table: | `key` | value | default |.
std::map<std::string, DocumentedKey> ReadSettingsTable() {
    std::map<std::string, DocumentedKey> keys;
    std::istringstream page(ReadSettingsPage());
    static const std::regex row(R"(^\| `([A-Za-z]+)` \| (.*) \| ([^|]*) \|$)");
    for (std::string line; std::getline(page, line);) {
        std::smatch found;
        if (std::regex_match(line, found, row)) keys[found[1]] = {found[2], found[3]};
    }
    return keys;
}

/// Why the settings are refused; empty where they are not.
std::string FindSettingsProblem(const std::string& text) {
    try {
        static_cast<void>(stage::ParseSettings(text, "settings.json"));
        return "";
    } catch (const std::runtime_error& problem) {
        return problem.what();
    }
}
std::string FindSettingsProblem(const std::string& key, const Json& value) {
    return FindSettingsProblem(Json{{key, value}}.dump());
}

Json GetDefaultSettings() {
    return Json::parse(stage::AsText(stage::Settings()));
}

TEST(SettingsDocument, Table_HasTheKeysThatTheProgramReads) {
    const std::map<std::string, DocumentedKey> keys = ReadSettingsTable();
    const Json defaults = GetDefaultSettings();
    for (const auto& [key, value] : defaults.items())
        EXPECT_TRUE(keys.contains(key)) << key << " is not in the table";
    for (const auto& [key, row] : keys) {
        const std::string problem = FindSettingsProblem(key, Json::array({Json::array()}));
        EXPECT_TRUE(problem.starts_with("settings.json: " + key)) << problem;
        EXPECT_EQ(std::string::npos, problem.find("not a known key")) << problem;
    }
}

TEST(SettingsDocument, Defaults_AreThoseOfTheTable) {
    const Json defaults = GetDefaultSettings();
    for (const auto& [key, row] : ReadSettingsTable()) {
        if (!defaults.contains(key)) {
            EXPECT_EQ("none", row.defaultText) << key << " is written only where it is set";
            continue;
        }
        const Json& value = defaults[key];
        std::string text = value.dump();
        if (value == Json::array()) text = "none";
        if (key == "outputs") {
            EXPECT_EQ(Json::array({{{"name", "main"}, {"backend", "auto"}, {"device", ""}}}), value);
            text = "one, `main`, `auto`";
        }
        if (key == "volumes") {
            for (const auto& [of, volume] : value.items())
                EXPECT_EQ(1.0, volume.get<double>()) << of;
            text = "all 1";
        }
        if (key == "reverb") text = value["roomSize"].dump() + ", " + value["damping"].dump();
        if (key == "osc") text = "`" + value["listen"].dump() + "`, `" + value["passcode"].dump() + "`";
        if (value.is_string()) text = "`" + text + "`";
        EXPECT_EQ(text, row.defaultText) << key;
    }
}

TEST(SettingsDocument, Ranges_AreThoseOfTheTable) {
    const std::map<std::string, DocumentedKey> keys = ReadSettingsTable();
    static const std::regex range("(-?[0-9]+) to ([0-9]+)");
    const auto lowestAndHighest = [&](const std::string& key) {
        std::smatch found;
        const std::string& value = keys.at(key).value;
        EXPECT_TRUE(std::regex_search(value, found, range)) << key;
        return std::pair(std::stoi(found[1]), std::stoi(found[2]));
    };
    const auto expectJust = [](std::pair<int, int> bounds, const auto& makeText) {
        EXPECT_EQ("", FindSettingsProblem(makeText(bounds.first)));
        EXPECT_EQ("", FindSettingsProblem(makeText(bounds.second)));
        EXPECT_NE("", FindSettingsProblem(makeText(bounds.first - 1)));
        EXPECT_NE("", FindSettingsProblem(makeText(bounds.second + 1)));
    };
    for (const std::string key : {"countIn", "pressGuardMs"})
        expectJust(lowestAndHighest(key), [&](int value) { return Json{{key, value}}.dump(); });
    expectJust(lowestAndHighest("sounds"),
               [](int trim) { return R"({"sounds": [{"name": "a.wav", "trim": )" + std::to_string(trim) + "}]}"; });
    for (const char* const of : {"master", "synth", "click", "effects", "ambience"}) {
        EXPECT_NE(std::string::npos, keys.at("volumes").value.find('"' + std::string(of) + '"'));
        expectJust(lowestAndHighest("volumes"), [&](int value) { return Json{{"volumes", {{of, value}}}}.dump(); });
    }
    for (const char* const of : {"roomSize", "damping"})
        expectJust(lowestAndHighest("reverb"), [&](int value) { return Json{{"reverb", {{of, value}}}}.dump(); });
    const auto makeGroups = [](int count) {
        Json groups = Json::array();
        for (int i = 0; i < count; ++i)
            groups.push_back({{"name", "g" + std::to_string(i)}, {"parts", {"P" + std::to_string(i)}}});
        return Json{{"groups", groups}}.dump();
    };
    EXPECT_NE(std::string::npos, keys.at("groups").value.find("at most 32"));
    EXPECT_EQ("", FindSettingsProblem(makeGroups(32)));
    EXPECT_NE("", FindSettingsProblem(makeGroups(33)));
    EXPECT_EQ("", FindSettingsProblem(R"({"groups": [{"name": "a", "parts": ["x"], "trimDb": 12, "volume": 1}]})"));
    EXPECT_NE("", FindSettingsProblem(R"({"groups": [{"name": "a", "parts": ["x"], "trimDb": 12.1}]})"));
    EXPECT_NE("", FindSettingsProblem(R"({"groups": [{"name": "a", "parts": ["x"], "volume": 1.1}]})"));
    EXPECT_NE("", FindSettingsProblem(R"({"groups": [{"name": "a b", "parts": ["x"]}]})"));
    const auto makeTargets = [](int count) {
        Json targets = Json::array();
        for (int i = 0; i < count; ++i)
            targets.push_back({{"name", "t" + std::to_string(i)}, {"port", 9000}, {"transport", "udp"}});
        return Json{{"oscTargets", targets}}.dump();
    };
    EXPECT_EQ("", FindSettingsProblem(makeTargets(1000)));
    EXPECT_NE("", FindSettingsProblem(makeTargets(1001)));
}

TEST(SettingsDocument, SampleAndSentence_AreWhatTheProgramReadsAndSays) {
    const std::string page = ReadSettingsPage();
    const std::size_t begin = page.rfind("\n    {\n") + 1;
    const stage::Settings sample = stage::ParseSettings(page.substr(begin), "settings.json");
    EXPECT_EQ(2U, sample.groups.size());
    EXPECT_EQ("lights", sample.oscTargets.at(0).name);
    const std::string problem =
        FindSettingsProblem(R"({"oscTargets": [{"name": "a", "port": "8000", "transport": "udp"}]})");
    EXPECT_NE(std::string::npos, page.find("    " + problem + "\n")) << problem;
    EXPECT_NE("", FindSettingsProblem(R"({"pressGuardMs": 1, "pressGuardMs": 2})"));
    EXPECT_NE("", FindSettingsProblem(R"({"pressGard": 1})"));
    EXPECT_NE("", FindSettingsProblem(R"({"oscTargets": [{"name": "a", "port": 1, "transport": "udp"},
                                                {"name": "a", "port": 2, "transport": "udp"}]})"));
    for (const char* const backend : {"auto", "jack", "rtaudio", "none"})
        EXPECT_EQ("", FindSettingsProblem("outputs", Json::array({{{"name", "main"}, {"backend", backend}}})));
    for (const char* const listen : {"off", "8000", "192.168.1.5:8000"})
        EXPECT_EQ("", FindSettingsProblem("osc", {{"listen", listen}}));
    EXPECT_EQ("", FindSettingsProblem("oscTargets",
                                      Json::array({{{"name", "a"}, {"transport", "midi"}, {"midiPort", "x"}}})));
    EXPECT_EQ("127.0.0.1", stage::ParseSettings(R"({"oscTargets": [{"name": "a", "port": 1, "transport": "tcp"}]})", "")
                               .oscTargets.at(0)
                               .host);
}

}  // namespace
