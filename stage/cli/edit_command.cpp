#include <fmt/format.h>
#include <unistd.h>

#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>

#include "kit/file.h"
#include "kit/path.h"
#include "stage/cli/commands.h"
#include "stage/cli/text_table.h"
#include "stage/session/edited_show.h"
#include "stage/show/edit_list.h"
#include "stage/show/song_json.h"
#include "stage/show/version_history.h"
#include "stage/words/edit_grammar.h"
#include "stage/words/usage_problem.h"
#include "tavo_core/edit_text.h"

namespace {

constexpr std::uintmax_t LongestEditFile = 4U << 20U;

/// What one call of `stage edit` works on; the show is opened by the first operation that needs it.
class EditWork {
public:
    std::string showPath;
    std::string listedSong;
    std::string editFile;
    std::string comment;
    bool newMajor = false;
    bool isList = false;
    bool asJson = false;

    stage::EditedShow& Open(stage::EditedShow::Access access = stage::EditedShow::Access::Change) {
        if (show) return *show;
        show.emplace(showPath, access);
        // The operations go on without such changes: whoever made them decides what becomes of them.
        for (const std::string& sentence : stage::DescribeJournals(show->GetDirectory()))
            std::cerr << "note: " << MakePrintable(sentence) << '\n';
        for (const std::string& sentence : show->GetRepairs())
            std::cerr << "note: " << MakePrintable(sentence) << '\n';
        return *show;
    }

private:
    std::optional<stage::EditedShow> show;
};

void ListSong(stage::EditedShow& show, const tavo_midi::SongData& song) {
    const std::string& number = song.GetSongNumber();
    const auto log = show.GetLog();
    const auto& songLogs = log->GetSongLogs();
    const auto found = songLogs.find(number);
    if (found == songLogs.end()) {
        std::cout << fmt::format("song {}: {}, not in the change log\n", number, MakePrintable(song.GetTitle()));
        return;
    }
    std::cout << fmt::format("song {}: {}, {}\n", number, MakePrintable(song.GetTitle()),
                             stage::DescribeAttacca(found->second.GetAttacca()));
    TextTable table({{"  id", TextTable::Align::Right}, {"kind"}, {"place"}, {"value"}});
    const auto edits = stage::ListEdits(found->second);
    const std::vector<std::size_t> ids = show.GetIds(number);
    for (const stage::ListedEdit& listed : edits)
        table.AddRow({fmt::format("{}", ids.at(listed.id - 1)), CL::DescribeKind(*listed.edit),
                      CL::DescribePlace(*listed.edit, show.GetPositions(number)), CL::DescribeValue(*listed.edit)});
    if (!edits.empty()) std::cout << table.AsText();
}

nlohmann::ordered_json MakeSongJson(stage::EditedShow& show, const tavo_midi::SongData& song) {
    static const CL::SongLog none;
    const std::string& number = song.GetSongNumber();
    const auto log = show.GetLog();
    const auto found = log->GetSongLogs().find(number);
    const CL::SongLog& songLog = found == log->GetSongLogs().end() ? none : found->second;
    nlohmann::ordered_json edits = stage::MakeEditJson(songLog, show.GetPositions(number));
    const std::vector<std::size_t> ids = show.GetIds(number);
    for (std::size_t i = 0; i < edits.size(); ++i)
        edits[i]["id"] = ids.at(i);
    return {{"number", number},
            {"title", song.GetTitle()},
            {"attacca", stage::DescribeAttacca(songLog.GetAttacca())},
            {"edits", edits}};
}

void ListAsJson(EditWork& work) {
    stage::EditedShow& show = work.Open(stage::EditedShow::Access::Read);
    nlohmann::ordered_json songs = nlohmann::ordered_json::array();
    if (!work.listedSong.empty()) {
        songs.push_back(MakeSongJson(show, show.GetMusic().GetSongData(work.listedSong)));
    } else {
        for (const tavo_midi::SongData& song : show.GetMusic().GetSongs())
            songs.push_back(MakeSongJson(show, song));
    }
    const nlohmann::ordered_json all{{"version", show.GetLog()->GetVersion().GetAsString()}, {"songs", songs}};
    std::cout << all.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) << '\n';
}

/// Makes the edits those of another version again.
void StepTo(EditWork& work, std::string (*findVersion)(const stage::ShowDirectory&, const std::string&)) {
    stage::EditedShow& show = work.Open();
    const std::string name = findVersion(show.GetDirectory(), kit::path::basename(show.GetLogPath()));
    show.RollBackTo(CL::ChangeLog::Load(show.GetDirectory().PathOf(name)));
}

void List(EditWork& work) {
    if (work.asJson) return ListAsJson(work);
    stage::EditedShow& show = work.Open(stage::EditedShow::Access::Read);
    std::cout << fmt::format("version {}\n", show.GetLog()->GetVersion().GetAsString());
    if (!work.listedSong.empty()) {
        ListSong(show, show.GetMusic().GetSongData(work.listedSong));
        return;
    }
    for (const tavo_midi::SongData& song : show.GetMusic().GetSongs())
        ListSong(show, song);
}

void SaveChanges(EditWork& work) {
    stage::EditedShow& show = work.Open();
    if (show.GetChanges().empty()) {
        std::cout << "nothing was changed, no version is saved\n";
        return;
    }
    for (const std::string& warning : show.GetWarnings())
        std::cerr << "note: " << MakePrintable(warning) << '\n';
    show.SetComment(work.comment);
    const std::string path = show.Save(work.newMajor);
    for (const std::string& change : show.GetChanges())
        std::cout << MakePrintable(change) << '\n';
    const std::string version = show.GetLog()->GetVersion().GetAsString();
    std::cout << fmt::format("saved version {} as {}\n", version, path);
    if (!std::cout.flush())
        throw std::runtime_error(fmt::format("version {} is saved, but the output could not be written", version));
}

/// Without an operation the lines of the standard input are done, as one version.
void DoLinesOfInput(EditWork& work, const CLI::App& edit) {
    stage::RequireShowFirst(edit);
    if (::isatty(STDIN_FILENO) == 1)
        std::cerr
            << "One edit a line, such as: add vamp --song 3 --from 12 --to 15. Ctrl-D saves them as one version.\n";
    // Read to the end before the show is opened, which nobody else could change meanwhile.
    std::stringstream lines;
    lines << std::cin.rdbuf();
    stage::DoEditLines(lines, "standard input", work.Open());
}

}  // namespace

void AddEditCommand(CLI::App& app, int&) {
    auto work = std::make_shared<EditWork>();
    CLI::App* edit = app.add_subcommand("edit", "Lists and changes the production's edits");
    edit->add_option("SHOW", work->showPath, "The show directory")->required();
    edit->add_flag("--major", work->newMajor, "Save the next major version instead of the next minor one");
    edit->add_option("--comment", work->comment, "What `stage log SHOW list` says about the version that is saved")
        ->type_name("TEXT");
    edit->require_subcommand(0, 1);
    const stage::EditTargetProvider target = [work]() -> stage::EditTarget& { return work->Open(); };
    stage::AddEditOperations(*edit, target, true);

    CLI::App* apply = edit->add_subcommand("apply", "Does what the lines of a file say and saves one version");
    apply->add_option("FILE", work->editFile, "One operation a line; lines that begin with # are passed over")
        ->required();
    apply->footer(
        "\nA line is an operation as it is written after SHOW:\n"
        "  add vamp --song 3 --from 12 --to 15\n"
        "  attacca --song 3 attacca\n"
        "\nExample:\n  stage edit myshow apply rehearsal-2.edits");
    apply->callback([work] {
        std::istringstream lines(kit::ReadFile(work->editFile, LongestEditFile));
        stage::DoEditLines(lines, work->editFile, work->Open());
    });

    CLI::App* list = edit->add_subcommand("list", "Lists the edits of the version in use with their ids");
    list->add_option("--song", work->listedSong, "Only this song")->type_name("N");
    list->add_flag("--json", work->asJson, "Print it as JSON for other programs");
    list->footer("\nExample:\n  stage edit myshow list --song 3");
    list->callback([work] {
        work->isList = true;
        List(*work);
    });

    CLI::App* undo = edit->add_subcommand("undo", "Takes the last version's edits back, as a new version");
    undo->footer("Example:\n  stage edit myshow undo");
    undo->callback([work] { StepTo(*work, stage::FindVersionBefore); });
    CLI::App* redo = edit->add_subcommand("redo", "Makes again what undo took back");
    redo->footer("Example:\n  stage edit myshow redo");
    redo->callback([work] { StepTo(*work, stage::FindVersionAfter); });

    edit->callback([work, edit] {
        if (edit->get_subcommands().empty()) DoLinesOfInput(*work, *edit);
        if (!work->isList) SaveChanges(*work);
    });
    edit->footer(
        "\nEvery change is saved as a new version in a file of its own; the versions before it stay as they are. "
        "Without a command the lines of the standard input are done, one edit a line, and saved as one version.\n"
        "`stage edit SHOW add --help` lists the kinds of edits, `stage edit SHOW add vamp --help` explains one.\n"
        "\nExamples:\n"
        "  stage edit myshow add vamp --song 3 --from 12 --to 15\n"
        "  stage edit myshow add caesura --song 3 --at 17:3 --text \"wait for the door\"\n"
        "  stage edit myshow attacca --song 3 attacca\n"
        "  stage edit myshow list --song 3\n"
        "  stage edit myshow remove --song 3 2\n"
        "  stage edit myshow --major apply rehearsal-2.edits");
}
