#include "player_core/interface.h"

#include "kit/errors.h"
#include "kit/path.h"
#include "kit/thread_exception_log.h"
#include "kit/thread_names.h"
#include "tavo_core/active_change_log.h"
#include "tavo_core/callback_dispatcher.h"
#include "tavo_core/directories.h"
#include "tavo_core/editor.h"

Interface::Interface(const std::string& showDirectory, const std::string& settingsDirectory, bool flag,
                     const std::string& changeLogName)
    : flag_(flag),
      midiCommands_(midiMessageDispatcher_, kit::path::Join({settingsDirectory, "midiCommandSettings"})),
      midiTimeCodeController_(kit::path::Join({settingsDirectory, "midiTimeCodeSettings"})) {
    kit::threadNames.SetNameOfCurrentThread("Parent");
    Directories::SetShowDirectory(showDirectory);
    Directories::SetSettingsDirectory(settingsDirectory);
    kit::SetThreadExceptionLogPath(kit::path::Join(settingsDirectory, "tavo.threaderr"));
    ScanShowDirectory_(showDirectory);
    ChooseChangeLog_(changeLogName);
    CreateChangeLog(kit::path::Join(showDirectory, changeLogFileName_));
    RegisterMidiCommands_();
}

Interface::~Interface() {
    notify::callbackDispatcher.RemoveCallbacksForTarget(this);
}

void Interface::ScanShowDirectory_(const std::string& showDirectory) {
    for (const std::string& name : kit::listdir(showDirectory)) {
        const std::string extension = kit::path::extension(name);
        if (extension == ".logdata") {
            cmn::TAVOVersion version;
            version.SetWithFileName(name);
            logFilesByVersion_[version] = name;
        } else if (extension == ".showdata") {
            showDataFileName_ = name;
        } else if (extension == ".score") {
            scoreFileName_ = name;
        }
    }
    if (showDataFileName_.empty()) throw NoShowData("Cannot locate showdata file");
    if (logFilesByVersion_.empty()) throw NoChangeLog("Cannot locate change log file.");
}

void Interface::ChooseChangeLog_(const std::string& name) {
    changeLogFileName_ = logFilesByVersion_.rbegin()->second;
    if (name.empty()) return;
    for (const auto& [version, known] : logFilesByVersion_) {
        if (known != name) continue;
        changeLogFileName_ = name;
        return;
    }
    throw NoChangeLog("Cannot locate change log file \"" + name + "\".");
}

void Interface::RegisterMidiCommands_() {
    namespace names = notify::names;
    const auto add = [this](const std::string& name, void (Interface::*operation)()) {
        notify::callbackDispatcher.AddCallback(this, name, [this, operation](void*) { (this->*operation)(); });
    };
    try {
        add(names::midiCommandPlay, &Interface::Play);
        notify::callbackDispatcher.AddCallback(this, names::midiCommandPause, [this](void*) { Pause(false); });
        add(names::midiCommandStop, &Interface::Stop);
        add(names::midiCommandNextSong, &Interface::NextSong);
        add(names::midiCommandPreviousSong, &Interface::PrevSong);
        add(names::midiCommandNextMarker, &Interface::SeekRight);
        add(names::midiCommandPreviousMarker, &Interface::SeekLeft);
        add(names::midiCommandContinue, &Interface::Continue);
    } catch (...) {
        // The destructor of an object that was never whole does not run.
        notify::callbackDispatcher.RemoveCallbacksForTarget(this);
        throw;
    }
}

// Loading.

void Interface::Initialize() {
    LoadShowData();
    invertedLoopEventCount_ = CL::FixInvertedPairedEvents(*showData_, &invertedLoopEventDescription_);
    LoadChangeLogEditor();
    LoadPageNumbers();
}

void Interface::LoadShowData() {
    showData_ =
        std::make_unique<tavo_midi::ShowData>(kit::path::Join(Directories::GetShowDirectory(), showDataFileName_));
}

void Interface::LoadChangeLogEditor() {
    auto editor = std::make_unique<CL::Editor>(*showData_);
    editor->SetCurrentSong([this] { return GetCurrentSongNumber(); });
    changeLogEditor_ = std::move(editor);
}

void Interface::LoadPageNumbers() {
    for (const tavo_midi::SongData& song : showData_->GetSongs()) {
        for (const TL::PageNum& page : song.GetTimeline().GetPageNums())
            pageNumbers_[page.page_number()] = {song.GetSongNumber(), page.abs_time()};
    }
}

// The show's files.

tavo_sec::CipherStream* Interface::GetScoreTar() {
    throw kit::NotImplementedError("The base class Interface does not load the score file.");
}

std::string Interface::GetShowDirectory() {
    return Directories::GetShowDirectory();
}

std::string Interface::GetChangelogFilename() {
    return kit::path::Join(Directories::GetShowDirectory(), changeLogFileName_);
}

std::string Interface::GetSettingsFilename() {
    // A show's settings travel with the show. Only what belongs to the machine lies in the settings directory.
    return kit::path::Join(Directories::GetShowDirectory(), "settings.json");
}
