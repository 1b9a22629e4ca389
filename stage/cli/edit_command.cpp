#include <fmt/format.h>

#include <iostream>
#include <memory>
#include <optional>

#include "kit/path.h"
#include "stage/cli/commands.h"
#include "stage/cli/edit_grammar.h"
#include "stage/cli/text_table.h"
#include "stage/show/edit_list.h"
#include "tavo_core/edit_text.h"

namespace {

/// What one call of `stage edit` works on; the show is opened by the first operation that needs it.
class EditWork {
public:
    std::string showPath;
    std::string listedSong;
    std::string editFile;
    bool newMajor = false;
    bool isList = false;

    stage::EditedShow& Open() {
        if (show) return *show;
        show.emplace(showPath);
        TellUnsaved(show->GetUnsavedEdits());
        for (const std::string& sentence : show->GetRepairs())
            std::cerr << "note: " << MakePrintable(sentence) << '\n';
        return *show;
    }

private:
    // The operations go on without such changes: whoever made them decides what becomes of them.
    void TellUnsaved(const stage::UnsavedEdits& unsaved) const {
        const std::size_t count = unsaved.changes.size();
        if (count > 0)
            std::cerr << fmt::format(
                "note: a session that ended early left {} unsaved change{} to version {}; stage log recover saves {}\n",
                count, count == 1 ? "" : "s", show->GetLog()->GetVersion().GetAsString(), count == 1 ? "it" : "them");
        for (const std::string& sentence : unsaved.problems)
            std::cerr << "note: " << MakePrintable(sentence) << '\n';
    }

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
    for (const stage::ListedEdit& listed : edits)
        table.AddRow({fmt::format("{}", listed.id), CL::DescribeKind(*listed.edit),
                      CL::DescribePlace(*listed.edit, show.GetPositions(number)), CL::DescribeValue(*listed.edit)});
    if (!edits.empty()) std::cout << table.AsText();
}

void List(EditWork& work) {
    stage::EditedShow& show = work.Open();
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
    const std::string path = show.Save(work.newMajor);
    for (const std::string& change : show.GetChanges())
        std::cout << MakePrintable(change) << '\n';
    std::cout << fmt::format("saved version {} as {}\n", show.GetLog()->GetVersion().GetAsString(), path);
}

}  // namespace

void AddEditCommand(CLI::App& app, int&) {
    auto work = std::make_shared<EditWork>();
    CLI::App* edit = app.add_subcommand("edit", "Lists and changes the production's edits");
    edit->add_option("SHOW", work->showPath, "The show directory")->required();
    edit->add_flag("--major", work->newMajor, "Save the next major version instead of the next minor one");
    edit->require_subcommand(1);
    const SessionProvider session = [work]() -> stage::EditedShow& { return work->Open(); };
    AddEditOperations(*edit, session);

    CLI::App* apply = edit->add_subcommand("apply", "Does what the lines of a file say and saves one version");
    apply->add_option("FILE", work->editFile, "One operation a line; lines that begin with # are passed over")
        ->required();
    apply->footer(
        "\nA line is an operation as it is written after SHOW:\n"
        "  add vamp --song 3 --from 12 --to 15\n"
        "  attacca --song 3 attacca\n"
        "\nExample:\n  stage edit SHOW apply rehearsal-2.edits");
    apply->callback([=] { ApplyEditFile(work->editFile, session); });

    CLI::App* list = edit->add_subcommand("list", "Lists the edits of the version in use with their ids");
    list->add_option("--song", work->listedSong, "Only this song")->type_name("N");
    list->footer("\nExample:\n  stage edit SHOW list --song 3");
    list->callback([work] {
        work->isList = true;
        List(*work);
    });

    edit->callback([work] {
        if (!work->isList) SaveChanges(*work);
    });
    edit->footer(
        "\nEvery change is saved as a new version in a file of its own; the versions before it stay as they are.\n"
        "`stage edit SHOW add --help` lists the kinds of edits, `stage edit SHOW add vamp --help` explains one.\n"
        "\nExamples:\n"
        "  stage edit myshow add vamp --song 3 --from 12 --to 15\n"
        "  stage edit myshow add caesura --song 3 --at 17:3 --text \"wait for the door\"\n"
        "  stage edit myshow attacca --song 3 attacca\n"
        "  stage edit myshow list --song 3\n"
        "  stage edit myshow remove --song 3 2\n"
        "  stage edit myshow --major apply rehearsal-2.edits");
}
