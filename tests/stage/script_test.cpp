#include "stage/control/script.h"

#include <gtest/gtest.h>

#include "tests/support/show_builder.h"

namespace {

using stage::ScriptLine;
using stage::Verb;

class ShowScript : public testing::Test {
protected:
    ShowScript() { show.Song("1", 4).Song("12a", 20); }

    std::vector<ScriptLine> Parse(const std::string& text) {
        return stage::ParseShowScript(text, "evening.txt", show.GetShowData(), "1");
    }
    std::string Refuse(const std::string& text) {
        try {
            Parse(text);
        } catch (const std::runtime_error& problem) {
            return problem.what();
        }
        return "taken";
    }

    test_support::TestShow show;
};

TEST_F(ShowScript, ReadsPlacesTimesAndSongs) {
    const auto lines = Parse(
        "# the evening\n\n"
        "at 2:3 exit   # in time\n"
        "at tick 960@2 pause\r\n"
        "+2.5s continue\n"
        "song 12a at 17 seek 12\n"
        "at 18 stop\n");
    ASSERT_EQ(5U, lines.size());
    EXPECT_EQ(3U, lines[0].lineNumber);
    EXPECT_EQ(1920U + 960, lines[0].tick);
    EXPECT_EQ(Verb::Exit, lines[0].command.verb);
    EXPECT_EQ("at 2:3 exit", lines[0].text);
    EXPECT_EQ(960U, lines[1].tick);
    EXPECT_EQ(2U, lines[1].pass);
    EXPECT_FALSE(lines[2].tick.has_value());
    EXPECT_EQ(2.5, lines[2].seconds);
    EXPECT_EQ("12a", lines[3].song);
    EXPECT_EQ(11U * 1920, lines[3].command.GetTick());
    EXPECT_EQ("12a", lines[4].song);
}

TEST_F(ShowScript, LoadMakesTheSongThatOfTheLinesBehindIt) {
    EXPECT_EQ("12a", Parse("+1s load 12a\nat 17 exit")[1].song);
}

TEST_F(ShowScript, ReadsArguments) {
    EXPECT_EQ(0.9, Parse("+0s tempo 90%")[0].command.GetNumber());
    EXPECT_EQ(-2, Parse("+0s transpose -2")[0].command.GetNumber());
    EXPECT_EQ(3, Parse("+0s transpose +3")[0].command.GetNumber());
    EXPECT_EQ(0.25, Parse("+0s volume 25%")[0].command.GetNumber());
    EXPECT_EQ(1.5, Parse("+0s fade 1.5")[0].command.GetNumber());
    EXPECT_EQ(1, Parse("+0s attacca on")[0].command.GetNumber());
}

TEST_F(ShowScript, BadLines_AreRefusedWithFileAndLine) {
    const std::pair<const char*, const char*> table[] = {
        {"\nat 2 jump", "the script \"evening.txt\", line 2: an operator cannot \"jump\""},
        {"at 2", "the script \"evening.txt\", line 1: what the operator does is missing"},
        {"at", "the script \"evening.txt\", line 1: the place is missing"},
        {"2 exit",
         "the script \"evening.txt\", line 1: a line begins with \"at PLACE\" or a waiting time such as +2.5s, not "
         "with "
         "\"2\""},
        {"+xs exit", "the script \"evening.txt\", line 1: the waiting time must be a number from 0 to 86400"},
        {"+-1s exit", "the script \"evening.txt\", line 1: the waiting time must be a number from 0 to 86400"},
        {"at 2@0 exit", "the script \"evening.txt\", line 1: the pass must be a number from 1 to 10000"},
        {"at 2 exit now", "the script \"evening.txt\", line 1: \"now\" is one word too many"},
        {"at 2 tempo 90", "the script \"evening.txt\", line 1: the tempo must be a percentage such as 90%"},
        {"at 2 tempo 30%", "the script \"evening.txt\", line 1: the tempo must be a number from 50 to 200"},
        {"at 2 attacca maybe", "the script \"evening.txt\", line 1: attacca is \"on\" or \"off\""},
    };
    for (const auto& [text, sentence] : table)
        EXPECT_EQ(sentence, Refuse(text)) << text;
}

TEST_F(ShowScript, UnknownSongOrPlace_IsRefused) {
    EXPECT_NE(std::string::npos, Refuse("song 9 at 1 exit").find("line 1"));
    EXPECT_NE(std::string::npos, Refuse("at 99 exit").find("in song 1"));
}

}  // namespace
