#include <fmt/format.h>

#include <chrono>
#include <ctime>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>

#include "kit/path.h"
#include "stage/cli/commands.h"
#include "stage/cli/edit_table.h"
#include "stage/cli/text_table.h"
#include "stage/session/edited_show.h"
#include "stage/show/edit_list.h"
#include "stage/show/log_versions.h"
#include "stage/show/show_hold.h"
#include "stage/show/show_journals.h"
#include "stage/show/song_json.h"
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
    std::string comment;
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

std::tm AsCalendar(std::chrono::system_clock::time_point moment, bool isLocal) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(moment);
    std::tm calendar{};
    if (isLocal) {
        localtime_r(&seconds, &calendar);
    } else {
        gmtime_r(&seconds, &calendar);
    }
    return calendar;
}

std::string DescribeMoment(std::chrono::system_clock::time_point moment, const char* format, bool isLocal) {
    const std::tm calendar = AsCalendar(moment, isLocal);
    char text[64];
    return {text, std::strftime(text, sizeof text, format, &calendar)};
}

std::string DescribeState(const stage::LogVersion& entry) {
    std::string state = entry.isInUse ? "in use" : "";
    const auto add = [&](const std::string& words) { state += (state.empty() ? "" : ", ") + words; };
    if (entry.unsavedChanges > 0)
        add(fmt::format("{} unsaved change{} in its journal{}", entry.unsavedChanges,
                        entry.unsavedChanges == 1 ? "" : "s", entry.isEditedNow ? ", edited now" : ""));
    if (!entry.problem.empty()) add(entry.problem);
    if (!entry.journalProblem.empty()) add(entry.journalProblem);
    return state;
}

void List(const LogWords& words) {
    const stage::ShowDirectory directory = stage::ScanShowDirectory(words.showPath);
    for (const std::string& sentence : stage::DescribeJournals(directory))
        std::cerr << "note: " << MakePrintable(sentence) << '\n';
    const std::vector<stage::LogVersion> versions = stage::ListVersions(directory);
    if (words.json) {
        Json list = Json::array();
        for (const stage::LogVersion& entry : versions)
            list.push_back({{"version", entry.version.GetAsString()},
                            {"file", entry.name},
                            {"written", DescribeMoment(entry.writtenAt, "%Y-%m-%dT%H:%M:%SZ", false)},
                            {"by", entry.by},
                            {"comment", entry.comment},
                            {"edits", entry.editCount},
                            {"inUse", entry.isInUse},
                            {"unsavedChanges", entry.unsavedChanges},
                            {"problem", entry.problem},
                            {"journalProblem", entry.journalProblem}});
        PrintJson(list);
        return;
    }
    TextTable table({{"version"},
                     {"written"},
                     {"edits", TextTable::Align::Right},
                     {"by"},
                     {"file"},
                     {"comment"},
                     {"state", TextTable::Align::Left, true}});
    for (const stage::LogVersion& entry : versions)
        table.AddRow({entry.version.GetAsString(), DescribeMoment(entry.writtenAt, "%Y-%m-%d %H:%M", true),
                      entry.problem.empty() ? fmt::format("{}", entry.editCount) : "?", entry.by, entry.name,
                      entry.comment, DescribeState(entry)});
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
            songs.push_back(
                {{"number", number}, {"attacca", attacca}, {"edits", stage::MakeEditJson(songLog, positions)}});
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
    stage::EditedShow show(words.showPath, stage::EditedShow::Access::Change, isReadable ? "" : words.version);
    show.RollBackTo(earlier);
    if (isReadable && show.GetChanges().empty()) {
        std::cout << fmt::format("version {}, which is in use, has the same edits; no version is saved\n",
                                 show.GetLog()->GetVersion().GetAsString());
        return;
    }
    PrintChanges(show);
    show.SetComment(words.comment.empty() ? "as version " + earlier.GetVersion().GetAsString() : words.comment);
    TellSaved(show, isReadable ? show.Save(false) : show.SaveAsHighest());
}

void Copy(const LogWords& words) {
    stage::EditedShow show(words.showPath);
    show.SetComment(words.comment);
    TellSaved(show, show.SaveCopy());
}

void Use(const LogWords& words) {
    static_cast<void>(stage::ScanShowDirectory(words.showPath));
    const stage::ShowHold hold(words.showPath, "an edit");
    const stage::ShowDirectory directory = stage::ScanShowDirectory(words.showPath);
    const std::string newest = directory.logNames.rbegin()->second;
    const std::string name = words.version == Newest ? newest : stage::FindLogName(directory, words.version);
    // One that cannot be read is refused now, not on the evening.
    const CL::ChangeLog log = CL::ChangeLog::Load(directory.PathOf(name));
    stage::ChooseChangeLog(directory.SettingsPath(), name == newest ? "" : name);
    std::cout << fmt::format("version {} opens from now on{}\n", log.GetVersion().GetAsString(),
                             name == newest ? ", and every newer one" : "");
}

std::string DescribeNothing(const LogWords& words) {
    return words.version.empty() ? "no version has unsaved edits"
                                 : fmt::format("version {} has no unsaved edits", words.version);
}

void RequireVersion(const std::string& text) {
    cmn::TAVOVersion version;
    if (!text.empty()) version.SetWithString(text);
}

void Recover(const LogWords& words) {
    RequireVersion(words.version);
    stage::EditedShow show(words.showPath);
    const stage::EditedShow::Recovery recovery = show.Recover(words.version);
    if (recovery.versions.empty()) {
        std::cout << DescribeNothing(words) << '\n';
        return;
    }
    PrintChanges(show);
    for (const std::string& refusal : recovery.refusals)
        std::cout << "not made again: " << MakePrintable(refusal) << '\n';
    std::cout.flush();
    const std::string inUse = show.GetLog()->GetVersion().GetAsString();
    if (show.GetChanges().empty()) {
        show.EndRecovered();
        std::cout << fmt::format("version {} has {} already; no version is saved\n", inUse,
                                 recovery.refusals.empty() ? "all of them" : "the others");
    } else {
        TellSaved(show, show.Save(false));
    }
    for (const std::string& version : recovery.versions) {
        if (!recovery.refusals.empty())
            std::cerr << fmt::format(
                "note: `stage log SHOW forget {}` removes the journal with what was not made again\n", version);
    }
}

/// Shows what of a journal is lost with it, and removes it.
void ForgetJournal(const OpenedShow& show, const stage::ShowJournal& journal) {
    if (!journal.problem.empty()) std::cout << MakePrintable(journal.problem) << '\n';
    for (const CL::LogChange& change : journal.changes) {
        for (const std::string& line : CL::DescribeChange(change, show.music))
            std::cout << MakePrintable(line) << '\n';
    }
    std::cout.flush();
    CL::EditJournal(show.directory.PathOf(journal.logName)).Discard();
    std::cout << fmt::format("the journal of version {} is removed\n", journal.version.GetAsString());
}

void Forget(const LogWords& words) {
    RequireVersion(words.version);
    static_cast<void>(stage::ScanShowDirectory(words.showPath));
    const stage::ShowHold hold(words.showPath, "an edit");
    const OpenedShow show(words.showPath);
    std::string version = words.version;
    if (version.empty()) {
        cmn::TAVOVersion inUse;
        inUse.SetWithFileName(kit::path::basename(show.directory.LogPathInUse()));
        version = inUse.GetAsString();
    }
    bool isFound = false;
    for (const stage::ShowJournal& journal : stage::FindJournals(show.directory)) {
        if (journal.version.GetAsString() != version) continue;
        ForgetJournal(show, journal);
        isFound = true;
    }
    if (!isFound) std::cout << fmt::format("version {} has no unsaved edits\n", version);
}

/// `example` is what stands after the show.
CLI::App* AddOperation(CLI::App& log, const char* purpose, const std::string& example,
                       const std::shared_ptr<LogWords>& words, void (*work)(const LogWords&)) {
    CLI::App* operation = log.add_subcommand(example.substr(0, example.find(' ')), purpose);
    operation->footer("Example:\n  stage log myshow " + example);
    operation->callback([words, work] { work(*words); });
    return operation;
}

void AddJsonFlag(CLI::App& operation, LogWords& words) {
    operation.add_flag("--json", words.json, "Print it as JSON for other programs");
}

void AddCommentOption(CLI::App& operation, LogWords& words) {
    operation.add_option("--comment", words.comment, "What the list of versions says about the one that is saved")
        ->type_name("TEXT");
}

}  // namespace

void AddLogCommand(CLI::App& app, int&) {
    auto words = std::make_shared<LogWords>();
    CLI::App* log = app.add_subcommand("log", "Lists, compares and restores versions of the edits");
    log->add_option("SHOW", words->showPath, "The show directory")->required();
    log->require_subcommand(1);

    AddJsonFlag(*AddOperation(*log, "Lists the versions", "list", words, List), *words);
    CLI::App* show = AddOperation(*log, "Shows the edits of a version", "show 1.3", words, Show);
    show->add_option("VERSION", words->version, "Which one, 1.4; the one in use without");
    AddJsonFlag(*show, *words);
    CLI::App* diff = AddOperation(*log, "Shows what changed from one version to another", "diff 1.3 1.5", words, Diff);
    diff->add_option("FROM", words->version, "The earlier one")->required();
    diff->add_option("TO", words->otherVersion, "The later one")->required();
    AddJsonFlag(*diff, *words);
    CLI::App* rollback =
        AddOperation(*log, "Saves the edits of an earlier version as a new one", "rollback 1.3", words, RollBack);
    rollback->add_option("VERSION", words->version, "Which one")->required();
    AddCommentOption(*rollback, *words);
    AddCommentOption(*AddOperation(*log, "Saves the edits in use as the next major version", "copy", words, Copy),
                     *words);
    AddOperation(*log, "Chooses the version that opens", "use newest", words, Use)
        ->add_option("VERSION", words->version, "Which one; newest: always the highest version")
        ->required();
    AddOperation(*log, "Saves edits that a session made and did not save, after a crash", "recover", words, Recover)
        ->add_option("VERSION", words->version, "The version that was edited; all of them without");
    AddOperation(*log, "Shows and removes edits that a session made and did not save", "forget 1.3", words, Forget)
        ->add_option("VERSION", words->version, "The version that was edited; the one in use without");
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
