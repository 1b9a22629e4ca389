#include "tests/saving/evening.h"

#include <map>
#include <memory>
#include <optional>
#include <stdexcept>

#include "kit/path.h"
#include "tavo_core/active_change_log.h"
#include "tavo_core/edit_journal.h"
#include "tavo_core/editor.h"

namespace test_support {

namespace {

std::string NewestLog(const std::string& directory) {
    std::map<cmn::TAVOVersion, std::string> logs;
    for (const std::string& name : kit::listdir(directory)) {
        if (kit::path::extension(name) != ".logdata") continue;
        cmn::TAVOVersion version;
        version.SetWithFileName(name);
        logs[version] = name;
    }
    if (logs.empty()) throw std::runtime_error("the show has no log any more");
    return kit::path::Join(directory, logs.rbegin()->second);
}

/// The edits as text, whatever the version.
std::string EditsOf(const CL::ChangeLog& log) {
    CL::ChangeLog copy = log;
    copy.GetVersion() = {1, 0};
    return copy.AsText();
}

std::string ActiveEdits() {
    const ActiveChangeLogShared active;
    return EditsOf(*active);
}

void Save(CL::Editor& editor) {
    std::string path;
    {
        const ActiveChangeLogExclusive active;
        ++active->GetVersion().minor_number;
        path = active->Save("");
    }
    editor.NoteSaved(path);
}

using Step = std::function<void(CL::Editor&)>;

const std::vector<Step>& Steps() {
    static const std::vector<Step> steps{
        [](CL::Editor& editor) { editor.Add("1", CL::Vamp(Bar(2), Bar(4))); },
        [](CL::Editor& editor) {
            editor.Add("1", CL::Osc(Bar(3), "", "/go", {0.1F, std::string("line\n\"x\"")}));
        },
        [](CL::Editor& editor) { editor.SetAttacca("2", CL::AttaccaNext); },
        Save,
        [](CL::Editor& editor) { editor.Add("2", CL::Cut(Bar(5), Bar(6))); },
        [](CL::Editor& editor) { editor.Undo(); },
        [](CL::Editor& editor) { editor.Change("1", CL::Vamp(Bar(2), Bar(4)), CL::Vamp(Bar(2), Bar(5), 3)); },
        Save,
        [](CL::Editor& editor) { editor.Add("2", CL::Marker(Bar(9), "Coda")); },
        [](CL::Editor& editor) { editor.Add("1", CL::Marker(Bar(10), "Playout")); },
    };
    return steps;
}

CL::ChangeLog FirstLog(const std::string& directory) {
    CL::ChangeLog log;
    log.SetShowName("evening");
    log.SetDirectory(directory);
    log.GetSongLogs()["1"].GetMarkers().Add(CL::Marker(0, "Top"));
    log.GetSongLogs()["2"];
    return log;
}

}  // namespace

const TestTimelines& EveningSongs() {
    static const TestTimelines songs = TestTimelines().Song("1", 20).Song("2", 20);
    return songs;
}

std::string BeginShow(const std::string& directory) {
    return FirstLog(directory).Save("");
}

std::size_t CountSteps() {
    return Steps().size();
}

void SpendEvening(const std::string& directory, const std::function<void(char)>& say) {
    std::optional<CL::Editor> editor;
    try {
        const std::string path = NewestLog(directory);
        CreateChangeLog(path);
        editor.emplace(EveningSongs()).KeepJournal(path);
    } catch (const std::runtime_error&) {
        return;
    }
    for (const Step& step : Steps()) {
        char word = 'a';
        try {
            step(*editor);
        } catch (const std::exception&) {
            word = 'r';
        }
        say(word);
    }
}

std::string EditsAfter(const std::string& done) {
    SetActiveChangeLog(std::make_shared<CL::ChangeLog>(FirstLog("")));
    CL::Editor editor(EveningSongs());
    for (std::size_t i = 0; i < done.size(); ++i) {
        // What is refused changes nothing, and a save no edit.
        const bool isSave = i == 3 || i == 7;
        if (done[i] == 'a' && !isSave) Steps()[i](editor);
    }
    return ActiveEdits();
}

std::string Reopen(const std::string& directory) {
    const std::string path = NewestLog(directory);
    CreateChangeLog(path);
    std::string found;
    {
        CL::Editor editor(EveningSongs());
        editor.ApplyRecovered(CL::EditJournal::Read(path).changes);
        editor.KeepJournal(path);
        found = ActiveEdits();
        editor.Add("2", CL::Marker(Bar(12), "found again"));
        Save(editor);
    }
    for (const std::string& name : kit::listdir(directory)) {
        if (kit::path::extension(name) != ".logdata") continue;
        const std::string log = kit::path::Join(directory, name);
        const auto old = CL::EditJournal::Read(log);
        // Of the evening's last log itself the next one has the changes and one more.
        if (log != path && !old.changes.empty()) throw std::runtime_error("saved changes are offered again by " + name);
    }
    const CL::ChangeLog saved = CL::ChangeLog::Load(NewestLog(directory));
    if (saved.GetSongLog("2").GetMarkers()[saved.GetSongLog("2").GetMarkers().size() - 1].value() != "found again")
        throw std::runtime_error("the edit made after reopening was not saved");
    return found;
}

}  // namespace test_support
