#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "stage/import/text_song.h"
#include "tavo_midi/smf_writer.h"
#include "tests/support/run_program.h"

namespace test_support {

/// The bytes of a MIDI file with `bars` bars of four quarter notes.
inline std::string MakeSmf(const std::string& title, int bars, const std::string& more = "") {
    std::string text = "number 1\ntitle " + title + "\n" + more + "part Piano program 1\n";
    for (int bar = 0; bar < bars; ++bar)
        text += "| c4/4 d4 e4 f4 |\n";
    return tavo_midi::WriteSmf(stage::ParseTextSong(text, title).smf);
}

/// A show of two songs in 4/4, 480 ticks a quarter note: song 1 with 20 bars, song 2 with 8.
class SmallShow : public testing::Test {
protected:
    SmallShow() {
        std::filesystem::create_directory(directory_ / "midi");
        WriteAll(directory_ / "midi/01_First.mid", MakeSmf("First", 20, "at 5 marker Verse\n"));
        WriteAll(directory_ / "midi/02_Second.mid", MakeSmf("Second", 8));
        const ProgramResult import = RunStage({"import", directory_ / "midi", "-o", Show(), "--title", "Evening"});
        EXPECT_EQ(0, import.exitCode) << import.err;
    }

    [[nodiscard]] std::string Show() const { return directory_ / "show"; }
    /// `stage edit SHOW` and the words of `line`, which are separated by blanks.
    [[nodiscard]] ProgramResult Edit(const std::string& line) const {
        std::vector<std::string> words{"edit", Show()};
        std::istringstream stream(line);
        for (std::string word; stream >> word;)
            words.push_back(word);
        return RunStage(words);
    }

    TemporaryDirectory directory_;
};

}  // namespace test_support
