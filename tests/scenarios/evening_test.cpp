// evening.txt, from inside: the trace, and the bars that were struck.

#include <gtest/gtest.h>

#include <cctype>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/show_builder.h"

namespace {

struct Scenario {
    std::string name;
    std::vector<unsigned int> bars;  // of each song
    std::string edits;
    std::string script;
    std::vector<int> plays;
    std::string trace;
    std::set<std::string> events;
};

void PrintTo(const Scenario& scenario, std::ostream* stream) {
    *stream << scenario.name;
}

template <class Number>
std::vector<Number> ReadNumbers(const std::string& text) {
    std::istringstream words(text);
    std::vector<Number> numbers;
    for (Number number{}; words >> number;)
        numbers.push_back(number);
    return numbers;
}

void ReadLine(Scenario& scenario, const std::string& line) {
    const std::size_t colon = line.find(": ");
    const std::string what = line.substr(0, colon);
    const std::string text = colon == std::string::npos ? "" : line.substr(colon + 2);
    if (what == "bars") {
        scenario.bars = ReadNumbers<unsigned int>(text);
    } else if (what == "plays") {
        scenario.plays = ReadNumbers<int>(text);
    } else if (what == "edit") {
        scenario.edits += text + "\n";
    } else if (what == "press") {
        scenario.script += text + "\n";
    } else {
        std::istringstream words(line);
        double seconds = -1;
        std::string event;
        if (!(words >> seconds >> event))
            throw std::runtime_error("evening.txt: \"" + line + "\" is no line of a trace");
        scenario.events.insert(event);
        scenario.trace += line + "\n";
    }
}

std::vector<Scenario> ReadScenarios() {
    std::ifstream file(std::filesystem::path(SOURCE_DIR) / "tests/scenarios/evening.txt");
    std::vector<Scenario> scenarios;
    for (std::string line; std::getline(file, line);) {
        if (line.empty() || line.starts_with('#')) continue;
        if (line.starts_with('['))
            scenarios.push_back({line.substr(1, line.size() - 2), {}, {}, {}, {}, {}, {}});
        else
            ReadLine(scenarios.at(scenarios.size() - 1), line);
    }
    if (scenarios.empty()) throw std::runtime_error("evening.txt has no scenarios");
    return scenarios;
}

std::string NameTest(const testing::TestParamInfo<Scenario>& info) {
    std::string name;
    for (const char c : info.param.name)
        name += std::isalnum(static_cast<unsigned char>(c)) != 0 ? c : '_';
    return name;
}

class Evening : public testing::TestWithParam<Scenario> {};

TEST_P(Evening, IsPlayedAsWritten) {
    const Scenario& scenario = GetParam();
    ASSERT_FALSE(scenario.bars.empty() || scenario.plays.empty() || scenario.trace.empty());
    test_support::TestShow show;
    show.Song("1", scenario.bars.front()).Edits(scenario.edits);
    for (std::size_t song = 1; song < scenario.bars.size(); ++song)
        show.Song(std::to_string(song + 1), scenario.bars[song]);
    const test_support::Performance played = show.Perform(scenario.script.c_str());
    EXPECT_EQ(scenario.trace, played.Only(scenario.events));
    EXPECT_EQ(scenario.plays, played.Bars());
    EXPECT_TRUE(played.result.remarks.empty());
}

INSTANTIATE_TEST_SUITE_P(Scenarios, Evening, testing::ValuesIn(ReadScenarios()), &NameTest);

}  // namespace
