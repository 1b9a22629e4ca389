#include <fmt/format.h>

#include <chrono>
#include <ctime>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>

#include "stage/cli/commands.h"
#include "stage/cli/edit_table.h"
#include "stage/cli/text_table.h"
#include "stage/session/edited_show.h"
#include "stage/show/edit_list.h"
#include "stage/show/log_versions.h"
#include "tavo_core/edit_journal.h"
#include "tavo_core/log_change.h"
#include "tavo_midi/show_data.h"

namespace {

using Json = nlohmann::ordered_json;

constexpr const char* Newest = "newest";

struct LogWords {
    std::string showPath;
    std::string version;
    std::string otherVersion;
    bool json = false;
};

/// A show with its music, so that places can be given in bars.
struct OpenedShow {
    explicit OpenedShow(const std::string& path)
        : directory(stage::ScanShowDirectory(path)), music(directory.ShowDataPath()) {}

    /// The file of a version; without a text that of the version in use.
    [[nodiscard]] std::string PathOf(const std::string& version) const {
        return version.empty() ? directory.LogPathInUse() : directory.PathOf(stage::FindLogName(directory, version));
    }
    [[nodiscard]] CL::ChangeLog Load(const std::string& version) const { return CL::ChangeLog::Load(PathOf(version)); }

    const stage::ShowDirectory directory;
    const tavo_midi::ShowData music;
};

void PrintJson(const Json& json) {
    std::cout << json.dump(-1, ' ', false, Json::error_handler_t::replace) << '\n';
}

std::tm AsCalendar(std::filesystem::file_time_type moment, bool isLocal) {
    const auto system = std::chrono::file_clock::to_sys(moment);
    const std::time_t seconds =
        std::chrono::system_clock::to_time_t(std::chrono::time_point_cast<std::chrono::system_clock::duration>(system));
    std::tm calendar{};
    if (isLocal) {
        localtime_r(&seconds, &calendar);
    } else {
        gmtime_r(&seconds, &calendar);
    }
    return calendar;
}

std::string DescribeMoment(std::filesystem::file_time_type moment, const char* format, bool isLocal) {
    const std::tm calendar = AsCalendar(moment, isLocal);
    char text[64];
    return {text, std::strftime(text, sizeof text, format, &calendar)};
}

std::string DescribeState(const stage::LogVersion& entry) {
    std::string state = entry.isInUse ? "in use" : "";
    const auto add = [&](const std::string& words) { state += (state.empty() ? "" : ", ") + words; };
    if (entry.unsavedChanges > 0)
        add(fmt::format("{} unsaved change{} in its journal", entry.unsavedChanges,
                        entry.unsavedChanges == 1 ? "" : "s"));
    if (!entry.problem.empty()) add(entry.problem);
    if (!entry.journalProblem.empty()) add(entry.journalProblem);
    return state;
}

void List(const LogWords& words) {
    const stage::ShowDirectory directory = stage::ScanShowDirectory(words.showPath);
    const std::vector<stage::LogVersion> versions = stage::ListVersions(directory);
    if (words.json) {
        Json list = Json::array();
        for (const stage::LogVersion& entry : versions)
            list.push_back({{"version", entry.version.GetAsString()},
                            {"file", entry.name},
                            {"written", DescribeMoment(entry.writtenAt, "%Y-%m-%dT%H:%M:%SZ", false)},
                            {"edits", entry.editCount},
                            {"inUse", entry.isInUse},
                            {"unsavedChanges", entry.unsavedChanges},
                            {"problem", entry.problem},
                            {"journalProblem", entry.journalProblem}});
        PrintJson(list);
        return;
    }
    TextTable table({{"version"}, {"written"}, {"edits", TextTable::Align::Right}, {"file"}, {"state"}});
    for (const stage::LogVersion& entry : versions)
        table.AddRow({entry.version.GetAsString(), DescribeMoment(entry.writtenAt, "%Y-%m-%d %H:%M", true),
                      entry.problem.empty() ? fmt::format("{}", entry.editCount) : "?", entry.name,
                      DescribeState(entry)});
    std::cout << table.AsText();
}

void Show(const LogWords& words) {
    const OpenedShow show(words.showPath);
    const CL::ChangeLog log = show.Load(words.version);
    Json songs = Json::array();
    if (!words.json) std::cout << fmt::format("version {}\n", log.GetVersion().GetAsString());
    for (const auto& [number, songLog] : log.GetSongLogs()) {
        const auto& known = show.music.GetSongs();
        const auto song = std::find_if(known.begin(), known.end(),
                                       [&name = number](const auto& each) { return each.GetSongNumber() == name; });
        // A song that is not in the music is given in ticks.
        const TL::BarPositions positions(song == known.end() ? TL::Timeline() : song->GetTimeline());
        const std::string attacca = stage::DescribeAttacca(songLog.GetAttacca());
        if (words.json) {
            songs.push_back({{"number", number}, {"attacca", attacca}, {"edits", MakeEditJson(songLog, positions)}});
        } else {
            std::cout << fmt::format("song {}: {}, {}\n", number,
                                     song == known.end() ? "not in the show" : MakePrintable(song->GetTitle()), attacca)
                      << MakeEditTable(songLog, positions);
        }
    }
    if (words.json) PrintJson({{"version", log.GetVersion().GetAsString()}, {"songs", songs}});
}

void Diff(const LogWords& words) {
    const OpenedShow show(words.showPath);
    const CL::LogChange change = CL::Compare(show.Load(words.version), show.Load(words.otherVersion));
    Json changes = Json::array();
    for (const CL::SongChange& song : change.songs) {
        for (const std::string& line : CL::DescribeChange({{song}}, show.music)) {
            if (words.json) {
                changes.push_back({{"song", song.songNumber}, {"text", line}});
            } else {
                std::cout << MakePrintable(line) << '\n';
            }
        }
    }
    if (words.json) {
        PrintJson({{"from", words.version}, {"to", words.otherVersion}, {"changes", changes}});
    } else if (change.IsEmpty()) {
        std::cout << "no difference\n";
    }
}

void TellSaved(const stage::EditedShow& show, const std::string& path) {
    std::cout << fmt::format("saved version {} as {}\n", show.GetLog()->GetVersion().GetAsString(), path);
}

void PrintChanges(const stage::EditedShow& show) {
    for (const std::string& line : show.GetChanges())
        std::cout << MakePrintable(line) << '\n';
}

/// Whether the version in use can be read; a sentence where it cannot, which is a reason to roll back.
bool CanReadLogInUse(const OpenedShow& show) {
    try {
        static_cast<void>(show.Load(""));
        return true;
    } catch (const std::runtime_error& problem) {
        std::cerr << "stage: " << problem.what() << '\n';
        return false;
    }
}

void RollBack(const LogWords& words) {
    const OpenedShow opened(words.showPath);
    const CL::ChangeLog earlier = opened.Load(words.version);
    const bool isReadable = CanReadLogInUse(opened);
    stage::EditedShow show(words.showPath, isReadable ? "" : words.version);
    show.RollBackTo(earlier);
    if (isReadable && show.GetChanges().empty()) {
        std::cout << fmt::format("version {}, which is in use, has the same edits; no version is saved\n",
                                 show.GetLog()->GetVersion().GetAsString());
        return;
    }
    PrintChanges(show);
    TellSaved(show, isReadable ? show.Save(false) : show.SaveAsHighest());
}

void Copy(const LogWords& words) {
    stage::EditedShow show(words.showPath);
    TellSaved(show, show.SaveCopy());
}

void Use(const LogWords& words) {
    const stage::ShowDirectory directory = stage::ScanShowDirectory(words.showPath);
    const std::string newest = directory.logNames.rbegin()->second;
    const std::string name = words.version == Newest ? newest : stage::FindLogName(directory, words.version);
    // One that cannot be read is refused now, not on the evening.
    const CL::ChangeLog log = CL::ChangeLog::Load(directory.PathOf(name));
    stage::ChooseChangeLog(directory.SettingsPath(), name == newest ? "" : name);
    std::cout << fmt::format("version {} opens from now on{}\n", log.GetVersion().GetAsString(),
                             name == newest ? ", and every newer one" : "");
}

struct OpenedJournal {
    OpenedJournal(const OpenedShow& show, const std::string& version)
        : log(show.Load(version)), journal(show.PathOf(version)) {}

    CL::ChangeLog log;
    CL::EditJournal journal;
};

/// Prints the edits of the journal; false, and a line that says so, where it has none.
bool PrintUnsaved(const OpenedShow& show, const OpenedJournal& opened) {
    for (const CL::LogChange& change : opened.journal.GetChangesAtOpening()) {
        for (const std::string& line : CL::DescribeChange(change, show.music))
            std::cout << MakePrintable(line) << '\n';
    }
    if (!opened.journal.GetChangesAtOpening().empty()) return true;
    std::cout << fmt::format("version {} has no unsaved edits\n", opened.log.GetVersion().GetAsString());
    return false;
}

void Recover(const LogWords& words) {
    stage::EditedShow show(words.showPath, words.version);
    if (!show.Recover()) {
        std::cout << fmt::format("version {} has no unsaved edits\n", show.GetLog()->GetVersion().GetAsString());
        return;
    }
    PrintChanges(show);
    TellSaved(show, show.Save(false));
}

void Forget(const LogWords& words) {
    const OpenedShow show(words.showPath);
    OpenedJournal opened(show, words.version);
    if (opened.journal.GetRefusal().empty() && !PrintUnsaved(show, opened)) return;
    opened.journal.Discard();
    std::cout << fmt::format("the journal of version {} is removed\n", opened.log.GetVersion().GetAsString());
}

CLI::App* AddOperation(CLI::App& log, const char* name, const char* purpose, const std::shared_ptr<LogWords>& words,
                       void (*work)(const LogWords&)) {
    CLI::App* operation = log.add_subcommand(name, purpose);
    operation->callback([words, work] { work(*words); });
    return operation;
}

void AddJsonFlag(CLI::App& operation, LogWords& words) {
    operation.add_flag("--json", words.json, "Print it as JSON for other programs");
}

}  // namespace

void AddLogCommand(CLI::App& app, int&) {
    auto words = std::make_shared<LogWords>();
    CLI::App* log = app.add_subcommand("log", "Lists, compares and restores versions of the edits");
    log->add_option("SHOW", words->showPath, "The show directory")->required();
    log->require_subcommand(1);

    AddJsonFlag(*AddOperation(*log, "list", "Lists the versions", words, List), *words);
    CLI::App* show = AddOperation(*log, "show", "Shows the edits of a version", words, Show);
    show->add_option("VERSION", words->version, "Which one, 1.4; the one in use without")->type_name("A");
    AddJsonFlag(*show, *words);
    CLI::App* diff = AddOperation(*log, "diff", "Shows what changed from one version to another", words, Diff);
    diff->add_option("FROM", words->version, "The earlier one")->required()->type_name("A");
    diff->add_option("TO", words->otherVersion, "The later one")->required()->type_name("B");
    AddJsonFlag(*diff, *words);
    AddOperation(*log, "rollback", "Saves the edits of an earlier version as a new one", words, RollBack)
        ->add_option("VERSION", words->version, "Which one")
        ->required()
        ->type_name("A");
    AddOperation(*log, "copy", "Saves the edits in use as the next major version", words, Copy);
    AddOperation(*log, "use", "Chooses the version that opens", words, Use)
        ->add_option("VERSION", words->version, "Which one; newest: always the highest version")
        ->required()
        ->type_name("A");
    AddOperation(*log, "recover", "Saves edits that a session made and did not save, after a crash", words, Recover)
        ->add_option("VERSION", words->version, "The version that was edited; the one in use without")
        ->type_name("A");
    AddOperation(*log, "forget", "Shows and removes edits that a session made and did not save", words, Forget)
        ->add_option("VERSION", words->version, "The version that was edited; the one in use without")
        ->type_name("A");
    log->footer(
        "\nNo version is ever overwritten or removed. The highest version opens, unless use chooses another one.\n"
        "\nExamples:\n"
        "  stage log myshow list\n"
        "  stage log myshow diff 1.3 1.5\n"
        "  stage log myshow rollback 1.3\n"
        "  stage log myshow use 1.3\n"
        "  stage log myshow use newest\n"
        "  stage log myshow recover");
}
