#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <regex>
#include <sstream>

#include "tests/support/run_program.h"

namespace {

const std::filesystem::path Sources = SOURCE_DIR;

using test_support::ProgramResult;
using test_support::ReadAll;
using test_support::WriteAll;

struct Documented {
    std::string place;  ///< "README.md:31"
    std::string command;
};

std::string CutBlanks(std::string text) {
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
}

/// A line of a block, without what is said about it.
std::string CutRemark(const std::string& line) {
    static const std::regex remark(" # .*| {4,}[a-z].*");
    return CutBlanks(std::regex_replace(line, remark, ""));
}

/// Every command of a document that has words: lines of blocks, and those in the text.
std::vector<Documented> ReadCommands(const std::filesystem::path& path, bool inText) {
    std::vector<Documented> commands;
    std::istringstream lines(ReadAll(path));
    int number = 0;
    static const std::regex code("`stage ([^`]+)`");
    for (std::string line; std::getline(lines, line);) {
        ++number;
        const std::string place = path.filename().string() + ":" + std::to_string(number);
        if (!inText && line.starts_with("    stage ")) commands.push_back({place, CutRemark(line.substr(4))});
        if (!inText || line.starts_with("|")) continue;
        for (std::sregex_iterator found(line.begin(), line.end(), code), end; found != end; ++found)
            commands.push_back({place, "stage " + (*found)[1].str()});
    }
    return commands;
}

void ReplaceWord(std::string& command, const std::string& word, const std::string& by) {
    command = std::regex_replace(command, std::regex("(^| )" + word + "(?= |$)"), "$01" + by);
}

/// The command as somebody would type it who follows the document: with a show, a take and files of their own.
std::string FillIn(std::string command, const std::string& take) {
    // In this order: later ones take what earlier ones have made.
    static const std::vector<std::pair<const char*, const char*>> meanings{
        {"SHOW", "myshow"},
        {"N", "3"},
        {"DIR", "made"},
        {"FILES", "songs.txt"},
        {"FILE", "secret.txt"},
        {"PAGES\\.\\.\\.", "page1.svg"},
        {"normal\\|attacca\\|skip", "attacca"},
        {"KIND --song 3 \\.\\.\\.", "marker --song 3 --at 4 --text Here"},
        {"KIND", "vamp"},
        {"log myshow use", "log myshow use 1.0"},
        {"PORT", "pedal:out"},
    };
    ReplaceWord(command, "TAKE", take);
    for (const auto& [word, meaning] : meanings)
        ReplaceWord(command, word, meaning);
    for (const char* group : {"edit myshow", "log myshow"})
        if (command.ends_with(group)) command += " list";
    // A command that is only named explains itself.
    if (std::count(command.begin(), command.end(), ' ') == 1 && command != "stage devices") return command + " --help";
    if (command == "stage play --locked") command = "stage play myshow --locked";
    if (command.starts_with("stage passcode ")) command += " <secret.txt";
    // Other computers are served only with a passcode, and the port may be taken.
    const std::size_t address = command.find("0.0.0.0:7480");
    if (address != std::string::npos) {
        command.replace(address, 12, "0.0.0.0:0");
        command = "{ stage passcode myshow operate <secret.txt >set; " + command + "; }";
    }
    // The sound goes nowhere, and the performance ends when its input does.
    if (command.find("stage play") != std::string::npos && command.find("--output") == std::string::npos)
        command.insert(command.ends_with(" }") ? command.size() - 3 : command.size(), " --output null");
    return command;
}

/// Whether the command asks for something that this machine may lack: then one sentence says so.
bool NeedsDevice(const std::string& command) {
    return command.find("pedal:out") != std::string::npos || command.find("desk:in") != std::string::npos ||
           command.find("--output jack") != std::string::npos;
}

class DocumentedCommands : public testing::Test {
protected:
    ProgramResult Run(const std::string& command) const {
        const std::string bin = std::filesystem::path(STAGE_BINARY).parent_path();
        return test_support::RunProgram({"/bin/sh", "-c",
                                         "cd '" + std::string(directory_ / "") + "' && PATH='" + bin + "':$PATH && " +
                                             "export TERM=dumb && printf 'quit\\n' | " + command});
    }

    void ExpectToWork(const Documented& documented, const std::string& command) const {
        SCOPED_TRACE(documented.place + ": " + documented.command + "\nas " + command);
        const ProgramResult result = Run(command);
        if (NeedsDevice(command)) {
            EXPECT_TRUE(result.exitCode == 0 || result.exitCode == 1) << result.exitCode << result.err;
            EXPECT_TRUE(result.exitCode == 0 || result.err.starts_with("stage: ")) << result.err;
        } else {
            EXPECT_EQ(0, result.exitCode) << result.err;
        }
    }

    test_support::TemporaryDirectory directory_;
};

TEST_F(DocumentedCommands, FirstShowOfTheReadme_WorksLineByLine) {
    std::filesystem::create_directory_symlink(Sources / "examples", directory_ / "examples");
    const std::vector<Documented> commands = ReadCommands(Sources / "README.md", false);
    ASSERT_GE(commands.size(), 9U);
    for (const Documented& documented : commands)
        ExpectToWork(documented, FillIn(documented.command, ""));
}

TEST_F(DocumentedCommands, EveryOtherOfTheReadmeAndTheDocuments_Works) {
    const std::string made = directory_ / "made-show";
    ASSERT_EQ(0, test_support::RunProgram({Sources / "examples/demo/build", STAGE_BINARY, made}).exitCode);
    std::filesystem::copy(Sources / "examples/first-score", directory_ / "songs");
    std::filesystem::copy(Sources / "examples/demo/01-harbour-lights.score.txt", directory_ / "songs.txt");
    WriteAll(directory_ / "evening.txt", "at 5 volume 80%\n+8s exit\n");
    WriteAll(directory_ / "rehearsal-2.edits", "add marker --song 1 --at 2 --text Here\n");
    WriteAll(directory_ / "secret.txt", "a long enough passphrase\n");
    WriteAll(directory_ / "page1.svg", "<svg xmlns=\"http://www.w3.org/2000/svg\"/>");
    const ProgramResult certificate =
        Run("openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -subj /CN=pit -keyout pit.key "
            "-out pit.pem");
    ASSERT_EQ(0, certificate.exitCode) << certificate.err;
    // What a performance of the evening before has left.
    ASSERT_EQ(0, Run("stage play made-show --headless --output null").exitCode);
    const auto takes = std::filesystem::directory_iterator(std::filesystem::path(made) / "takes");
    const std::string take = "myshow/takes/" + takes->path().filename().string();
    const ProgramResult pack = Run("stage score pack made-show page1.svg --passphrase-file secret.txt");
    ASSERT_EQ(0, pack.exitCode) << pack.err;

    std::vector<Documented> commands = ReadCommands(Sources / "README.md", true);
    for (const auto& entry : std::filesystem::directory_iterator(Sources / "docs")) {
        // That one is about what does not work, and has a test of its own.
        if (entry.path().extension() != ".md" || entry.path().filename() == "wrong-input.md") continue;
        for (const bool inText : {false, true})
            for (const Documented& documented : ReadCommands(entry.path(), inText))
                commands.push_back(documented);
    }
    std::size_t count = 0;
    for (const Documented& documented : commands) {
        std::string command = FillIn(documented.command, take);
        if (command.starts_with("stage score ") && !command.ends_with("--help") &&
            command.find("--passphrase-file") == std::string::npos)
            command += " --passphrase-file secret.txt";
        if (command.find(" 12 -o ") != std::string::npos) command.replace(command.find(" 12 "), 4, " 1 ");
        // Each has a show of its own, as it was.
        std::filesystem::remove_all(directory_ / "myshow");
        if (command.find("import") == std::string::npos)
            std::filesystem::copy(made, directory_ / "myshow", std::filesystem::copy_options::recursive);
        if (command.find("score pack") != std::string::npos)
            std::filesystem::remove(directory_ / "myshow/made-show.score");
        ExpectToWork(documented, command);
        ++count;
    }
    EXPECT_GE(count, 50U);
}

}  // namespace
