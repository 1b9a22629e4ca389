#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <sstream>

#include "kit/utf8.h"
#include "stage/cli/commands.h"
#include "stage/words/help_text.h"
#include "tests/support/run_program.h"

namespace {

using test_support::ProgramResult;
using testing::HasSubstr;
using testing::StartsWith;

/// Every command of the program, groups included.
class Help : public testing::Test {
protected:
    Help() {
        AddAllCommands(app_, exitCode_);
        Collect(app_);
    }

    void Collect(const CLI::App& command) {
        commands_.push_back(&command);
        for (const CLI::App* sub : command.get_subcommands([](const CLI::App*) { return true; }))
            Collect(*sub);
    }

    static bool IsGroup(const CLI::App& command) { return command.get_require_subcommand_min() > 0; }

    CLI::App app_{"Plays the music of a show", "stage"};
    int exitCode_ = 0;
    std::vector<const CLI::App*> commands_;
};

std::vector<std::string> SplitLines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

std::vector<std::string> SplitAtBlanks(const std::string& text) {
    std::istringstream stream(text);
    return {std::istream_iterator<std::string>(stream), std::istream_iterator<std::string>()};
}

TEST_F(Help, OfEveryCommand_HasNoLineOverEightyColumnsAndNoOptionWithoutAName) {
    for (const CLI::App* command : commands_) {
        for (const std::string& line : SplitLines(stage::HelpFormatter().make_help(command, "", {}))) {
            EXPECT_LE(kit::CountColumns(line), 80U) << stage::DescribePathTo(*command) << ": " << line;
            const bool isUnnamed = line.size() > 3 && line.starts_with("   ") && line[3] != ' ';
            EXPECT_FALSE(isUnnamed || line.find("INT in") != std::string::npos) << line;
        }
    }
    EXPECT_GT(commands_.size(), 40U);
}

TEST_F(Help, OfEveryCommand_EndsWithAnExampleOfItsOwn) {
    for (const CLI::App* command : commands_) {
        const std::vector<std::string> lines = SplitLines(stage::HelpFormatter().make_help(command, "", {}));
        ASSERT_FALSE(lines.empty());
        EXPECT_THAT(lines.back(), StartsWith("  stage "));
        // The words of the path without SHOW and the like, in this order.
        std::size_t at = 0;
        for (const std::string& word : SplitAtBlanks(stage::DescribePathTo(*command))) {
            if (word == "SHOW") continue;
            const std::size_t found = lines.back().find(word, at);
            EXPECT_NE(std::string::npos, found) << stage::DescribePathTo(*command) << ": " << lines.back();
            if (found != std::string::npos) at = found + word.size();
        }
    }
}

// What the sentence after a wrong line advises must lead to that command's help and not to that of the one above.
TEST_F(Help, AsTheHintAdvises_IsThatOfTheCommand) {
    for (const CLI::App* command : commands_) {
        std::vector<std::string> words = SplitAtBlanks(stage::DescribePathTo(*command) + " --help");
        words.erase(words.begin());
        const ProgramResult help = test_support::RunStage(words);
        EXPECT_EQ(0, help.exitCode);
        const std::string usage = SplitLines(help.out).at(1);
        EXPECT_THAT(usage, HasSubstr("Usage: " + stage::DescribePathTo(*command)));
    }
}

/// A word in the place of one in capitals.
std::string Fill(const std::string& word) {
    static const std::map<std::string, std::string> samples{
        {"N", "1"},         {"PLACE", "1"},     {"TIMES", "2"},   {"PERCENT", "90"}, {"SEMITONES", "1"},
        {"LENGTH", "1/4"},  {"ADDRESS", "/x"},  {"TEXT", "x"},    {"STATE", "skip"}, {"FROM", "1.0"},
        {"TO", "1.0"},      {"VERSION", "1.0"}, {"ID", "1"},      {"ID...", "1"},    {"PAGE", "1"},
        {"BYTES...", "90"}, {"KIND", "vamp"},   {"SHELL", "bash"}};
    const auto sample = samples.find(word);
    if (sample != samples.end()) return sample->second;
    return word == "SHOW" || word.find_first_of("abcdefghijklmnopqrstuvwxyz-") == std::string::npos ? "nothing-here"
                                                                                                    : word;
}

// The show is not there, so that all of them fail, but none because of its words.
TEST_F(Help, UsageLineOfEveryCommand_CanBeTypedAsItStands) {
    for (const CLI::App* command : commands_) {
        if (IsGroup(*command)) continue;
        std::vector<std::string> words;
        for (const std::string& word : SplitAtBlanks(stage::DescribeUsage(*command))) {
            if (!word.starts_with('[') && word != "...]") words.push_back(Fill(word));
        }
        const std::string name = command->get_name();
        if (name == "devices" || name == "play" || command->get_parent()->get_name() == "midi") continue;
        words.erase(words.begin());
        const test_support::TemporaryDirectory directory;
        for (std::string& word : words) {
            if (word == "nothing-here") word = directory / "nothing-here";
        }
        const ProgramResult result = test_support::RunStage(words);
        EXPECT_NE(2, result.exitCode) << stage::DescribeUsage(*command) << '\n' << result.err;
    }
}

TEST(HelpText, Paragraphs_AreWrapped_AndIndentedLinesAreKept) {
    const std::string words(70, 'x');
    EXPECT_EQ(words + "\nabcdefghijk lmn\n", stage::WrapParagraphs(words + " abcdefghijk\nlmn"));
    EXPECT_EQ("Examples:\n  stage a\n  stage b\n", stage::WrapParagraphs("Examples:\n  stage a\n  stage b"));
    EXPECT_EQ("a\n\nb\n", stage::WrapParagraphs("a\n\nb"));
}

}  // namespace
