#include "stage/osc/osc_command.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

#include "kit/file.h"
#include "stage/osc/osc_display.h"
#include "tests/support/show_builder.h"

namespace {

using stage::OscValue;
using stage::Verb;
using Values = std::vector<OscValue>;

class OscCommands : public testing::Test {
protected:
    OscCommands() { show.Song("1", 20).Song("12a", 20); }

    stage::OscPress Read(const std::string& address, const Values& values = {}) {
        return stage::ReadOscPress({address, values}, show.GetShowData(), "1");
    }
    /// The press as a script would have it, or the sentence that refuses it.
    std::string Say(const std::string& address, const Values& values = {}) {
        try {
            const stage::OscPress press = Read(address, values);
            return (press.isRelease ? "release " : "") + AsText(press.command);
        } catch (const std::invalid_argument& problem) {
            return problem.what();
        }
    }

    test_support::TestShow show;
};

constexpr std::int64_t Whole(std::int64_t number) {
    return number;
}

TEST_F(OscCommands, EveryVerbHasItsAddress) {
    for (const stage::VerbRow& row : stage::GetVerbRows()) {
        const std::string said = Say("/tavo/" + std::string(row.name));
        if (row.arguments.empty()) {
            EXPECT_EQ(row.name, said);
        } else {
            EXPECT_NE(std::string::npos, said.find(" takes ")) << said;
        }
    }
    for (const char* name : {"go", "stop", "panic", "pause", "next", "previous"})
        EXPECT_EQ(name, Say(std::string("/") + name));
    EXPECT_EQ("\"/quit\" is not an address of this show: did you mean /tavo/quit?", Say("/quit"));
}

TEST_F(OscCommands, ArgumentsOfEveryFittingType_MeanTheSame) {
    EXPECT_EQ("seek tick 1920", Say("/tavo/seek", {Whole(2)}));
    EXPECT_EQ("seek tick 1920", Say("/tavo/seek", {2.0}));
    EXPECT_EQ("seek tick 2880", Say("/tavo/seek", {std::string("2:3")}));
    EXPECT_EQ("seek tick 960", Say("/tavo/seek", {std::string("tick 960")}));
    EXPECT_EQ("load 12a", Say("/tavo/load", {std::string("12a")}));
    EXPECT_EQ("load 1", Say("/tavo/load", {Whole(1)}));
    EXPECT_EQ("tempo 90%", Say("/tavo/tempo", {0.9}));
    EXPECT_EQ("tempo 90%", Say("/tavo/tempo", {std::string("90%")}));
    EXPECT_EQ("tempo 100%", Say("/tavo/tempo", {Whole(1)}));
    EXPECT_EQ("volume 50%", Say("/tavo/volume", {0.5}));
    EXPECT_EQ("volume 50% click", Say("/tavo/volume", {0.5, std::string("click")}));
    EXPECT_EQ("transpose -2", Say("/tavo/transpose", {-2.0}));
    EXPECT_EQ("transpose -2", Say("/tavo/transpose", {std::string("-2")}));
    EXPECT_EQ("fade 3", Say("/tavo/fade", {Whole(3)}));
    EXPECT_EQ("attacca on", Say("/tavo/attacca", {true}));
    EXPECT_EQ("attacca on", Say("/tavo/attacca", {Whole(1)}));
    EXPECT_EQ("attacca off", Say("/tavo/attacca", {std::string("off")}));
    EXPECT_EQ("locate 62.500000000s", Say("/tavo/locate", {62.5}));
    EXPECT_EQ("edit add vamp 12 15", Say("/tavo/edit", {std::string("add vamp 12 15")}));
}

TEST_F(OscCommands, Button_PressesAndReleases) {
    EXPECT_EQ("go", Say("/go", {1.0}));
    EXPECT_EQ("release go", Say("/go", {0.0}));
    EXPECT_EQ("release exit", Say("/tavo/exit", {Whole(0)}));
    EXPECT_EQ("release go", Say("/go", {false}));
    EXPECT_EQ("\"/go\" takes nothing, or one number as a button sends it: 0 when it is released",
              Say("/go", {std::string("now")}));
    EXPECT_EQ("\"/go\" takes nothing, or one number as a button sends it: 0 when it is released",
              Say("/go", {1.0, 1.0}));
}

TEST_F(OscCommands, WrongArguments_AreRefusedInASentence) {
    EXPECT_EQ("\"/tavo/tempo\" takes 1 argument, not 0", Say("/tavo/tempo"));
    EXPECT_EQ("\"/tavo/volume\" takes 1 or 2 arguments, not 3", Say("/tavo/volume", {1.0, 1.0, 1.0}));
    EXPECT_EQ("the tempo must be a number from 0.5 to 2, or a text such as \"90%\"", Say("/tavo/tempo", {Whole(90)}));
    EXPECT_EQ("the tempo must be a number from 0.5 to 2, or a text such as \"90%\"",
              Say("/tavo/tempo", {std::nan("")}));
    EXPECT_EQ("the tempo must be a percentage such as 90%", Say("/tavo/tempo", {std::string("fast")}));
    EXPECT_EQ("the tempo must be a number from 0.5 to 2, or a text such as \"90%\"",
              Say("/tavo/tempo", {stage::OscOther{'b'}}));
    EXPECT_EQ("the place must be a whole number or a text, not 2.5", Say("/tavo/seek", {2.5}));
    EXPECT_EQ("the place must be a text or a whole number", Say("/tavo/seek", {true}));
    EXPECT_NE(std::string::npos, Say("/tavo/seek", {Whole(99)}).find("in song 1, "));
    EXPECT_NE(std::string::npos, Say("/tavo/seek", {std::string()}).find("the place is missing"));
    EXPECT_EQ("the change must be a text", Say("/tavo/edit", {Whole(1)}));
    EXPECT_EQ("the change must be one line of UTF-8", Say("/tavo/edit", {std::string("add vamp 1 2\nquit")}));
    EXPECT_EQ("the change must be one line of UTF-8", Say("/tavo/edit", {std::string("\xFF")}));
    EXPECT_NE(std::string::npos, Say("/tavo/load", {std::string("99")}).find("99"));
    EXPECT_EQ("attacca must be 1, 0, true, false, \"on\" or \"off\"", Say("/tavo/attacca", {2.0}));
    // Which output groups there are the desk knows.
    EXPECT_EQ("volume 100% horns", Say("/tavo/volume", {1.0, std::string("horns")}));
    EXPECT_EQ("\"/tavo/stpo\" is not an address of this show: did you mean /tavo/stop?", Say("/tavo/stpo"));
    EXPECT_EQ("\"/tavo/*\" is a pattern: name one command", Say("/tavo/*"));
}

TEST_F(OscCommands, PlaceBeforeASongIsLoaded_IsRefused) {
    try {
        static_cast<void>(stage::ReadOscPress({"/tavo/seek", {Whole(2)}}, show.GetShowData(), ""));
        FAIL();
    } catch (const std::invalid_argument& problem) {
        EXPECT_STREQ("a place means nothing before a song is loaded", problem.what());
    }
}

TEST_F(OscCommands, DocumentHoldsTheTableOfVerbs) {
    const std::string path = std::string(SOURCE_DIR) + "/docs/osc.md";
    const std::string text = kit::ReadFile(path, 1 << 20);
    const std::string mark = "from the table of verbs -->\n";
    const std::size_t begin = text.find(mark) + mark.size();
    const std::size_t end = text.find("<!-- end of verbs -->");
    ASSERT_TRUE(begin <= end && end != std::string::npos);
    if (std::getenv("TAVO_WRITE_DOCS") != nullptr)
        std::ofstream(path) << text.substr(0, begin) + stage::MakeOscVerbTable() + text.substr(end);
    EXPECT_EQ(stage::MakeOscVerbTable(), kit::ReadFile(path, 1 << 20).substr(begin, end - begin));
}

TEST_F(OscCommands, DocumentListsEveryDisplayValueWithItsTypes) {
    const std::string text = kit::ReadFile(std::string(SOURCE_DIR) + "/docs/osc.md", 1 << 20);
    stage::LiveStatus status;
    status.loops.emplace_back();
    status.volumes = {{"master", 1}};
    std::vector<stage::OscMessage> messages = stage::MakeDisplayValues(status);
    using Type = notify::GuiNotificationType;
    for (const Type type : {Type::StatusFlowControl, Type::VampOn, Type::NoNextSong})
        messages.push_back(stage::MakeDisplayEvent({type, 0, 0, ""}));
    messages.push_back(stage::MakePressEvent({}));
    for (const stage::OscMessage& message : messages) {
        std::string types;
        for (const OscValue& value : message.arguments)
            types += std::string(types.empty() ? "" : " ") + "ifsTb"[value.index()];
        const std::string row = "| `" + message.address + "` | " + (types.empty() ? "" : "`" + types + "`");
        EXPECT_NE(std::string::npos, text.find(row)) << row;
    }
}

}  // namespace
