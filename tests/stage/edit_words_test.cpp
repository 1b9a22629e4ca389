#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tests/stage/small_show.h"

namespace {

using test_support::ProgramResult;
using test_support::RunProgram;
using test_support::RunStage;
using test_support::WriteAll;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class EditWords : public test_support::SmallShow {
protected:
    void Do(const std::string& line) const {
        const ProgramResult result = Edit(line);
        EXPECT_EQ(0, result.exitCode) << line << '\n' << result.err;
    }
    /// "1 marker 5, 2 vamp bars 3 to 4": ids, kinds and places of a song in the order of the list.
    [[nodiscard]] std::string List(const std::string& song) const {
        const auto json =
            nlohmann::ordered_json::parse(RunStage({"edit", Show(), "list", "--song", song, "--json"}).out);
        std::string text;
        for (const auto& edit : json["songs"][0]["edits"])
            text += (text.empty() ? "" : ", ") + std::to_string(edit["id"].get<int>()) + ' ' +
                    edit["kind"].get<std::string>() + ' ' + edit["place"].get<std::string>();
        return text;
    }
};

TEST_F(EditWords, Ids_StayFromVersionToVersion) {
    Do("add vamp --song 2 --from 5 --to 6");
    Do("add marker --song 2 --at 2 --text A");
    Do("add cut --song 2 --from 8 --to 8");
    EXPECT_EQ("2 marker 2, 1 vamp bars 5 to 6, 3 cut bar 8", List("2"));
    Do("remove --song 2 2");
    EXPECT_EQ("1 vamp bars 5 to 6, 3 cut bar 8", List("2"));
    Do("add caesura --song 2 --at 4");
    EXPECT_EQ("4 caesura 4, 1 vamp bars 5 to 6, 3 cut bar 8", List("2"));
}

TEST_F(EditWords, Change_KeepsTheIdAndWhatItDoesNotName) {
    Do("add vamp --song 2 --from 5 --to 6 --max 4");
    const ProgramResult changed = Edit("change --song 2 1 --to 7");
    EXPECT_THAT(changed.out,
                StartsWith("song 2: changed vamp bars 5 to 6, at most 4 times to vamp bars 5 to 7, at most 4 "
                           "times\nsaved version 1.2"));
    EXPECT_EQ("1 vamp bars 5 to 7", List("2"));
    const ProgramResult refused = Edit("change --song 2 1 --times 3");
    EXPECT_EQ("stage: song 2: a vamp has no --times\n", refused.err);
    EXPECT_EQ("stage: nothing is to be changed: give the options that are to be others\n",
              Edit("change --song 2 1").err);
}

TEST_F(EditWords, Move_KeepsLengthAndId) {
    Do("add vamp --song 2 --from 3 --to 4");
    Do("add caesura --song 2 --at 2:3");
    Do("move --song 2 1 --to 6:2");
    Do("move --song 2 2 --to 8");
    EXPECT_EQ("1 vamp 6:2 up to 8:2, 2 caesura 8", List("2"));
    EXPECT_EQ(1, Edit("move --song 2 1 --to 8").exitCode);
}

TEST_F(EditWords, Copy_GoesToTheSameBarsOfOtherSongs_AllOrNone) {
    Do("add vamp --song 1 --from 3 --to 4");
    Do("add cut --song 1 --from 15 --to 16");
    Do("copy --song 1 2 --to-song 2");
    EXPECT_EQ("1 vamp bars 3 to 4", List("2"));
    const ProgramResult refused = Edit("copy --song 1 1 3 --to-song 2");
    EXPECT_EQ("stage: song 2: there is no bar 15, the song's bars are 1 to 8\n", refused.err);
    EXPECT_EQ("1 vamp bars 3 to 4", List("2"));
}

TEST_F(EditWords, SeveralSongs_TakeOneEdit_AllOrNone) {
    Do("add caesura --song 1,2 --at 3");
    EXPECT_THAT(List("1"), HasSubstr("caesura 3"));
    EXPECT_EQ("1 caesura 3", List("2"));
    Do("add caesura --song 1..2 --at 5");
    EXPECT_EQ("1 caesura 3, 2 caesura 5", List("2"));
    EXPECT_EQ(1, Edit("add caesura --song 1..2 --at 12").exitCode);
    EXPECT_THAT(List("1"), Not(HasSubstr("caesura 12")));
    EXPECT_EQ("stage: the show has no song \"9\"\n", Edit("add caesura --song 1,9 --at 6").err);
}

TEST_F(EditWords, LinesOfTheInput_AreOneVersion) {
    const std::string lines =
        "add vamp --song 2 --from 1 --to 2\n# a remark\nadd caesura --song 2 --at 3 --text \"the door\"\n";
    WriteAll(directory_ / "lines", lines);
    const ProgramResult result = RunProgram(
        {"/bin/sh", "-c", std::string(STAGE_BINARY) + " edit '" + Show() + "' < '" + (directory_ / "lines") + "'"});
    EXPECT_EQ(0, result.exitCode) << result.err;
    EXPECT_THAT(result.out, HasSubstr("saved version 1.1"));
    EXPECT_EQ("1 vamp bars 1 to 2, 2 caesura 3", List("2"));
    WriteAll(directory_ / "lines", "add vamp --song 2 --from 5 --to 6\nadd vampp 1 2\n");
    const ProgramResult refused = RunProgram(
        {"/bin/sh", "-c", std::string(STAGE_BINARY) + " edit '" + Show() + "' < '" + (directory_ / "lines") + "'"});
    EXPECT_EQ("stage: standard input, line 2: there is no edit \"vampp\"; did you mean vamp?\n", refused.err);
    EXPECT_EQ("1 vamp bars 1 to 2, 2 caesura 3", List("2"));
}

TEST_F(EditWords, UndoAndRedo_StepThroughVersions) {
    EXPECT_EQ("stage: there is nothing to undo: these are the edits of the first version\n", Edit("undo").err);
    Do("add vamp --song 2 --from 1 --to 2");
    Do("add cut --song 2 --from 4 --to 5");
    EXPECT_THAT(Edit("undo").out, HasSubstr("song 2: cut bars 4 to 5 removed\nsaved version 1.3"));
    Do("undo");
    EXPECT_EQ("", List("2"));
    EXPECT_EQ(1, Edit("undo").exitCode);
    Do("redo");
    EXPECT_EQ("1 vamp bars 1 to 2", List("2"));
    Do("redo");
    EXPECT_EQ("1 vamp bars 1 to 2, 2 cut bars 4 to 5", List("2"));
    EXPECT_EQ("stage: there is nothing to redo: no edits were undone since the last change\n", Edit("redo").err);
    Do("undo");
    Do("add caesura --song 2 --at 6");
    EXPECT_EQ(1, Edit("redo").exitCode);
    Do("undo");
    EXPECT_EQ("1 vamp bars 1 to 2", List("2"));
}

TEST_F(EditWords, CueThatNobodyWouldNotice_IsToldWhenItIsMadeAndRendered) {
    const ProgramResult added = Edit("add sfx --song 2 --at 3 --sound door.wav");
    EXPECT_EQ(0, added.exitCode);
    EXPECT_EQ("note: song 2: the sound \"door.wav\" at 3 is not there\n", added.err);
    EXPECT_EQ("note: song 2: the OSC target \"lights\" of the message at 4 is not in settings.json\n",
              Edit("add osc --song 2 --at 4 --address /go --target lights").err);
    const ProgramResult render = RunStage({"render", Show(), "--song", "2", "--out", "none", "--trace", "-"});
    EXPECT_THAT(render.err, HasSubstr("note: song 2: the sound \"door.wav\" at 3 is not there\n"));
    EXPECT_THAT(render.out, HasSubstr("\tcue-missing\tthe sound \"door.wav\" at 3 is not there\n"));
    EXPECT_THAT(render.out, Not(HasSubstr("\tcue\t")));
    WriteAll(Show() + "/door.wav", "sound");
    const ProgramResult heard = RunStage({"render", Show(), "--song", "2", "--out", "none", "--trace", "-"});
    EXPECT_THAT(heard.out, HasSubstr("\tcue\teffect door.wav\n"));
}

// As at a rehearsal: the song that plays need not be named, nor what its places are.
TEST_F(EditWords, WordsTypedWhileItPlays_AreEditsOfTheSongThatPlays) {
    WriteAll(directory_ / "script",
             "+0.1s play\n+0.3s edit add vamp 2 3\n+0.1s edit add marker 4 --text \"the door\"\n"
             "at 3@2 exit\n");
    const ProgramResult render =
        RunStage({"render", Show(), "--song", "2", "--script", directory_ / "script", "--out", "none", "--trace", "-"});
    EXPECT_EQ(0, render.exitCode) << render.err;
    EXPECT_THAT(render.out, HasSubstr("\tjump\t4 -> 2, vamp pass 2\n"));
    EXPECT_THAT(render.out, HasSubstr("the door"));
    WriteAll(directory_ / "script", "+0.1s play\n+0.3s edit add vampp 2 3\n");
    const ProgramResult refused =
        RunStage({"render", Show(), "--song", "2", "--script", directory_ / "script", "--out", "none"});
    EXPECT_THAT(refused.err, HasSubstr("there is no edit \"vampp\"; did you mean vamp?"));
}

TEST_F(EditWords, LongTitles_AreCutToTheTerminal_UnlessTablesAreWide) {
    const std::string title = "The very long title of a number that no terminal of eighty columns can show whole";
    WriteAll(directory_ / "midi/02_Second.mid", test_support::MakeSmf(title, 8));
    const std::string show = directory_ / "long";
    const ProgramResult import = RunStage({"import", directory_ / "midi", "-o", show});
    ASSERT_EQ(0, import.exitCode);
    // The sentence above the table is whole.
    for (const std::string& table : {RunStage({"info", show}).out, import.out.substr(import.out.find("\n\n"))}) {
        std::istringstream lines(table);
        bool isCut = false;
        for (std::string line; std::getline(lines, line);) {
            isCut = isCut || line.find("…") != std::string::npos;
            // The ellipsis has three bytes.
            EXPECT_LE(line.size(), 80U + 2) << line;
        }
        EXPECT_TRUE(isCut) << table;
    }
    std::istringstream notes(import.err);
    for (std::string line; std::getline(notes, line);)
        EXPECT_TRUE(line.starts_with("note: ")) << "progress where nobody looks: " << line;
    EXPECT_THAT(RunStage({"info", show, "--wide"}).out, HasSubstr(title));
    EXPECT_THAT(RunStage({"import", directory_ / "midi", "-o", show + "2", "--wide"}).out, HasSubstr(title));
}

TEST_F(EditWords, RenderThatIsKilled_LeavesNoFileThatLooksWhole) {
    Do("add vamp --song 2 --from 1 --to 8");
    // The processor time ends in the middle of a vamp that nobody leaves.
    WriteAll(directory_ / "script", "+0.1s play\n+36000s stop\n");
    const std::string out = directory_ / "song.wav";
    const ProgramResult killed =
        RunProgram({"/bin/sh", "-c",
                    "ulimit -t 1; exec " + std::string(STAGE_BINARY) + " render '" + Show() + "' --song 2 --script '" +
                        (directory_ / "script") + "' --out '" + out + "'"});
    EXPECT_GT(killed.exitCode, 128);
    EXPECT_FALSE(std::filesystem::exists(out));
    EXPECT_TRUE(std::filesystem::exists(out + ".unfinished"));
    ASSERT_EQ(0, RunStage({"render", Show(), "--song", "1", "--out", out}).exitCode);
    EXPECT_TRUE(std::filesystem::exists(out));
    EXPECT_FALSE(std::filesystem::exists(out + ".unfinished"));
}

TEST(MidiSend, WhatIsNoWholeMessage_IsRefused) {
    const auto send = [](std::vector<std::string> bytes) {
        bytes.insert(bytes.begin(), {"midi", "send", "--system", "none", "desk:in"});
        return RunStage(bytes).err;
    };
    EXPECT_EQ("stage: \"90 3C\" is not a whole message: 90 has 3 bytes in all, not 2\n", send({"90", "3C"}));
    EXPECT_EQ("stage: \"C0 01 02\" is not a whole message: C0 has 2 bytes in all, not 3\n", send({"C0", "01", "02"}));
    EXPECT_EQ("stage: \"3C 40\" is not a message: it begins with no status byte\n", send({"3C", "40"}));
    EXPECT_EQ("stage: \"F0 7F 01\" is not a whole message: it does not end with F7\n", send({"F0", "7F", "01"}));
    EXPECT_EQ("stage: \"90 3C 90\" is not one message: 90 is a status byte within it\n", send({"90", "3C", "90"}));
    EXPECT_EQ("stage: F7 does not begin a message\n", send({"F7"}));
    EXPECT_THAT(send({"90", "3C", "40"}), Not(HasSubstr("message:")));
}

TEST(Completion, InBash_OffersTheWordsOfTheCommand) {
    const auto complete = [](const std::string& words, int at) {
        return RunProgram({"/bin/bash", "-c",
                           "eval \"$(" + std::string(STAGE_BINARY) + " completion bash)\"; COMP_WORDS=(" + words +
                               "); COMP_CWORD=" + std::to_string(at) + "; _stage; echo \"${COMPREPLY[*]}\""})
            .out;
    };
    EXPECT_EQ("edit\n", complete("stage ed", 1));
    EXPECT_EQ("vamp\n", complete("stage edit myshow add va", 4));
    EXPECT_EQ("--song\n", complete("stage edit myshow add vamp --so", 5));
    EXPECT_EQ("diff\n", complete("stage log myshow di", 3));
    EXPECT_EQ("\n", complete("stage log myshow xyz", 3));
}

// A shell of its own, typed into: what its line editor makes of the tab key is what a person sees.
TEST(Completion, InZsh_CompletesTheWordThatIsTyped) {
    if (!std::filesystem::exists("/usr/bin/zsh")) GTEST_SKIP() << "zsh is not installed here.";
    const test_support::TemporaryDirectory home;
    const std::string bin = std::filesystem::path(STAGE_BINARY).parent_path();
    test_support::WriteAll(home / "type", R"(
        zmodload zsh/zpty
        zpty shell 'TERM=dumb zsh -f -i'
        all=
        read_until() {
            local piece tries=0
            while [[ $all != *$1* ]] && (( tries++ < 600 )); do
                if zpty -r -t shell piece; then all+=$piece; else sleep 0.1; fi
            done
        }
        zpty -w shell "PATH=)" + bin +
                                              R"(:\$PATH; source <(stage completion zsh); print READ''Y"
        read_until READY
        zpty -w -n shell $'stage edit myshow add caes\t'
        read_until 'add caesura'
        zpty -w -n shell $'--so\t'
        read_until '--song'
        print -r -- "$all"
    )");
    const ProgramResult typed =
        RunProgram({"/usr/bin/env", "HOME=" + home.Path(), "/usr/bin/zsh", "-f", home / "type"});
    EXPECT_THAT(typed.out, HasSubstr("add caesura"));
    EXPECT_THAT(typed.out, HasSubstr("--song"));
}

}  // namespace
