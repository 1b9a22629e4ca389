#include <gtest/gtest.h>

#include <sstream>

#include "tests/stage/small_show.h"

namespace {

using test_support::ProgramResult;
using test_support::RunProgram;
using test_support::RunStage;
using test_support::WriteAll;

struct WrongInput {
    std::string typed;
    std::string answer;
};

/// "`` text ``" at the beginning of `rest`, which is moved on.
std::string TakeCode(std::string& rest) {
    const std::string mark = "`` ";
    const std::size_t begin = rest.find(mark);
    if (begin == std::string::npos) return "";
    const std::size_t end = rest.find(" ``", begin + mark.size());
    const std::string code = rest.substr(begin + mark.size(), end - begin - mark.size());
    rest.erase(0, end + 3);
    return code;
}

/// The rows of the table that users read.
std::vector<WrongInput> ReadTable() {
    std::vector<WrongInput> rows;
    std::istringstream page(test_support::ReadAll(SOURCE_DIR "/docs/wrong-input.md"));
    for (std::string line; std::getline(page, line);) {
        if (!line.starts_with("| `")) continue;
        const std::string typed = TakeCode(line);
        rows.push_back({typed, TakeCode(line)});
    }
    return rows;
}

/// The folder that the page describes.
class WrongInputs : public testing::Test {
protected:
    WrongInputs() {
        std::filesystem::create_directory(directory_ / "midi");
        for (const char* const number : {"1", "2", "3"})
            WriteAll(directory_ / "midi/0" + number + ".mid", test_support::MakeSmf(std::string("Song ") + number, 12));
        Do("stage import midi -o myshow --title Evening");
        Do("stage edit myshow add vamp --song 1 --from 5 --to 8");
        Do("stage edit myshow add cut --song 1 --from 10 --to 11");
        Do("stage edit myshow add caesura --song 1 --at 9");
        Do("stage render myshow --song 1 --out none --trace song1.trace");
        WriteAll(directory_ / "myshow/notes.txt", "not a score\n");
        WriteAll(directory_ / "broken.mid", "not a MIDI file");
        WriteAll(directory_ / "wrong.edits", "add vamp --song 2 --from 1 --to 2\nadd vampp --song 2\n");
        WriteAll(directory_ / "wrong.script", "+1s play\n+1s exti\n");
        WriteAll(directory_ / "place.script", "at 99 exit\n");
        WriteAll(directory_ / "wrong.txt", "number 1\npart Piano program 1\n| h4 |\n");
        std::filesystem::create_directory(directory_ / "empty");
        std::filesystem::copy(directory_ / "myshow", directory_ / "badsettings");
        WriteAll(directory_ / "badsettings/settings.json", "{\"volums\": {}}");
        std::filesystem::copy(directory_ / "myshow", directory_ / "badlog");
        WriteAll(directory_ / "badlog/myshow-1.9.logdata", "{");
    }

    void Do(const std::string& line) const {
        const ProgramResult result = Type(line);
        if (result.exitCode != 0) ADD_FAILURE() << line << '\n' << result.err;
    }

    /// Types the line into a shell in the folder.
    [[nodiscard]] ProgramResult Type(const std::string& line) const {
        const std::string binary = STAGE_BINARY;
        const std::string folder = binary.substr(0, binary.rfind('/'));
        return RunProgram(
            {"/bin/sh", "-c", "cd '" + (directory_ / "") + "' && PATH=\"" + folder + ":$PATH\" && " + line});
    }

    [[nodiscard]] std::string AsOneText() const {
        std::string text;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(directory_ / "myshow"))
            if (entry.is_regular_file())
                text += entry.path().filename().string() + '\n' + test_support::ReadAll(entry.path());
        return text;
    }

    test_support::TemporaryDirectory directory_;
};

TEST_F(WrongInputs, EveryRowOfTheTable_GetsItsAnswerAndChangesNothing) {
    const std::vector<WrongInput> rows = ReadTable();
    EXPECT_GE(rows.size(), 60U);
    const std::string before = AsOneText();
    for (const WrongInput& row : rows) {
        const ProgramResult result = Type(row.typed);
        const std::string sentence = result.err.substr(0, result.err.rfind('\n'));
        EXPECT_EQ(row.answer, sentence.substr(sentence.rfind('\n') + 1)) << row.typed;
        EXPECT_TRUE(result.exitCode == 1 || result.exitCode == 2) << row.typed << " ended with " << result.exitCode;
        EXPECT_EQ(before, AsOneText()) << row.typed;
    }
}

}  // namespace
