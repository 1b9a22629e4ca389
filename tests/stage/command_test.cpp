#include "stage/control/command.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <limits>
#include <set>
#include <sstream>

#include "kit/file.h"
#include "tests/support/show_builder.h"

namespace {

using stage::Command;
using stage::Verb;
using std::chrono::nanoseconds;

class Commands : public testing::Test {
protected:
    Commands() { show.Song("1", 4).Song("12a", 20); }

    Command Parse(const std::string& text) {
        std::string song = "1";
        return stage::ParseCommand(stage::SplitWords(text), show.GetShowData(), song);
    }
    std::string Refuse(const std::string& text) {
        try {
            Parse(text);
        } catch (const std::invalid_argument& problem) {
            return problem.what();
        }
        return "taken";
    }
    std::string Check(const Command& command) { return stage::CheckCommand(command, show.GetShowData()); }

    test_support::TestShow show;
};

TEST_F(Commands, EveryVerbHasOneRowWithItsNameHelpAndDeed) {
    std::set<std::string_view> names;
    for (int number = 0; number <= static_cast<int>(Verb::Quit); ++number) {
        const stage::VerbRow& row = stage::GetVerbRow(static_cast<Verb>(number));
        EXPECT_EQ(number, static_cast<int>(row.verb));
        EXPECT_EQ(&row, stage::FindVerbRow(row.name));
        EXPECT_TRUE(names.insert(row.name).second) << row.name;
        EXPECT_FALSE(row.help.empty()) << row.name;
        EXPECT_NE(nullptr, row.perform) << row.name;
        EXPECT_EQ(std::string_view::npos, row.name.find_first_not_of("abcdefghijklmnopqrstuvwxyz-")) << row.name;
    }
    EXPECT_EQ(names.size(), stage::GetVerbRows().size());
}

TEST_F(Commands, OnlyWhatGoesOnIsGuarded) {
    std::set<std::string_view> guarded;
    for (const stage::VerbRow& row : stage::GetVerbRows())
        if (row.goesOn) guarded.insert(row.name);
    EXPECT_EQ((std::set<std::string_view>{"go", "play", "continue", "exit", "next", "previous"}), guarded);
}

TEST_F(Commands, AreReadWithTheirArguments) {
    EXPECT_EQ(Verb::Go, Parse("go").verb);
    EXPECT_EQ(1920U + 960, Parse("seek 2:3").GetTick());
    EXPECT_EQ(960U, Parse("seek tick 960").GetTick());
    EXPECT_EQ("12a", Parse("load 12a").GetSong());
    EXPECT_EQ(0.9, Parse("tempo 90%").GetNumber());
    EXPECT_EQ(-2, Parse("transpose -2").GetNumber());
    EXPECT_EQ(0.25, Parse("volume 25%").GetNumber());
    EXPECT_EQ("click", std::get<std::string>(Parse("volume 25% click").arguments.at(1)));
    EXPECT_EQ(1, Parse("attacca on").GetNumber());
    EXPECT_EQ(nanoseconds(62'500'000'000), Parse("locate 62.5s").GetTime());
}

TEST_F(Commands, TextIsReadAgainAsTheSameCommand) {
    for (const char* text :
         {"go", "seek tick 960", "load 12a", "tempo 90%", "tempo 73.125%", "volume 33.3%", "volume 5% ambience",
          "transpose -24", "fade 2.75", "attacca off", "locate 3723.000000001s", "next-measure"}) {
        const Command command = Parse(text);
        EXPECT_EQ(text, stage::AsText(command).substr(0, std::string(text).size()));
        EXPECT_EQ(command, Parse(stage::AsText(command))) << text;
    }
    // Whatever a slider gives is repeated exactly.
    for (int i = 1; i < 10000; ++i) {
        Command command{Verb::Volume, {i / 9999.0}, {}, 0, {}};
        ASSERT_NEAR(command.GetNumber(), Parse(stage::AsText(command)).GetNumber(), 1e-15) << stage::AsText(command);
    }
}

TEST_F(Commands, BadText_IsRefusedInOneSentence) {
    const std::pair<const char*, const char*> table[] = {
        {"", "what the operator does is missing"},
        {"jump", "an operator cannot \"jump\""},
        {"exit now", "\"now\" is one word too many"},
        {"seek", "the place is missing"},
        {"load", "the song's number is missing"},
        {"tempo 90", "the tempo must be a percentage such as 90%"},
        {"tempo 30%", "the tempo must be a number from 50 to 200"},
        {"volume nan%", "the volume must be a number from 0 to 100"},
        {"volume 20% music now", "\"now\" is one word too many"},
        {"mute", "the group is missing"},
        {"attacca", "\"on\" or \"off\" is missing"},
        {"attacca maybe", "attacca is \"on\" or \"off\""},
        {"locate 5", "the time must be in seconds such as 62.5s"},
        {"locate 90000s", "the time must be a number from 0 to 86400"},
    };
    for (const auto& [text, sentence] : table)
        EXPECT_EQ(sentence, Refuse(text)) << text;
    EXPECT_NE(std::string::npos, Refuse("load 9").find('9'));
    EXPECT_NE(std::string::npos, Refuse("seek 99").find("in song 1"));
}

TEST_F(Commands, ValuesMadeWithoutText_AreCheckedAgainstTheSameTable) {
    EXPECT_EQ("", Check({Verb::Tempo, {0.9}, {}, 0, {}}));
    EXPECT_EQ("the tempo must be a number from 50 to 200", Check({Verb::Tempo, {2.1}, {}, 0, {}}));
    EXPECT_EQ("the tempo is not of the type that it must have", Check({Verb::Tempo, {std::string("90%")}, {}, 0, {}}));
    EXPECT_EQ("the volume must be a number from 0 to 100",
              Check({Verb::Volume, {std::numeric_limits<double>::quiet_NaN()}, {}, 0, {}}));
    EXPECT_EQ("", Check({Verb::Volume, {0.5, std::string("music")}, {}, 0, {}}));
    EXPECT_EQ("what the volume is of is not of the type that it must have",
              Check({Verb::Volume, {0.5, 0.5}, {}, 0, {}}));
    EXPECT_EQ("\"tempo\" takes 1 argument, not 0", Check({Verb::Tempo, {}, {}, 0, {}}));
    EXPECT_EQ("\"exit\" takes 0 arguments, not 1", Check({Verb::Exit, {1.0}, {}, 0, {}}));
    EXPECT_EQ("", Check({Verb::Seek, {std::uint32_t{5}}, {}, 0, {}}));
    EXPECT_EQ("", Check({Verb::Load, {std::string("12a")}, {}, 0, {}}));
    EXPECT_NE("", Check({Verb::Load, {std::string("9")}, {}, 0, {}}));
    EXPECT_NE("", Check({Verb::Locate, {nanoseconds(-1)}, {}, 0, {}}));
}

/// TAVO_WRITE_DOCS=1 writes the table into the document.
TEST_F(Commands, DocumentHoldsTheTableOfVerbs) {
    const std::string path = std::string(SOURCE_DIR) + "/docs/render.md";
    std::string text = kit::ReadFile(path, 1 << 20);
    const std::string mark = "from the table of verbs -->\n";
    const std::size_t begin = text.find(mark) + mark.size();
    const std::size_t end = text.find("<!-- end of verbs -->");
    ASSERT_TRUE(begin <= end && end != std::string::npos);
    if (std::getenv("TAVO_WRITE_DOCS") != nullptr)
        std::ofstream(path) << text.substr(0, begin) + stage::MakeVerbTable() + text.substr(end);
    EXPECT_EQ(stage::MakeVerbTable(), kit::ReadFile(path, 1 << 20).substr(begin, end - begin));
}

TEST_F(Commands, HelpFitsATerminal) {
    std::istringstream lines(stage::MakeVerbHelp());
    std::size_t count = 0;
    for (std::string line; std::getline(lines, line); ++count)
        EXPECT_LE(line.size(), 80U) << line;
    EXPECT_EQ(stage::GetVerbRows().size(), count);
}

}  // namespace
