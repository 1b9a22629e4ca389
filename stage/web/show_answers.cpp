#include "stage/web/show_answers.h"

#include <fmt/format.h>

#include <charconv>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <utility>

#include "kit/words.h"
#include "stage/control/command.h"
#include "stage/import/source_scores.h"
#include "stage/picture/song_picture.h"
#include "stage/show/log_versions.h"
#include "stage/show/show_check.h"
#include "stage/show/show_directory.h"
#include "stage/show/song_json.h"
#include "stage/show/song_length.h"
#include "tavo_core/log_change.h"
#include "tavo_core/log_change_text.h"
#include "tavo_midi/midi_message_dispatcher.h"

namespace stage {

namespace {

using AnswerJson = nlohmann::ordered_json;

std::string AsBody(const AnswerJson& json) {
    return json.dump(-1, ' ', false, AnswerJson::error_handler_t::replace);
}

WebAnswer Refuse(unsigned int status, const std::string& words) {
    return {status, "application/json", AsBody({{"sentence", kit::AsSentence(words)}})};
}

std::string MakeVerbs() {
    AnswerJson verbs = AnswerJson::array();
    for (const VerbRow& row : GetVerbRows())
        verbs.push_back({{"name", row.name},
                         {"arguments", DescribeArguments(row)},
                         {"help", row.help},
                         {"goesOn", row.goesOn},
                         {"needsSong", row.needsSong},
                         {"edits", row.edits}});
    return AsBody({{"verbs", verbs}});
}

std::string MakeMidiInputs() {
    AnswerJson names = AnswerJson::array();
    for (const MidiEndPoint& input : GetNonTavoMidiSources())
        names.push_back(input.name);
    return AsBody({{"inputs", std::move(names)}});
}

}  // namespace

ShowAnswers::ShowAnswers(const tavo_midi::ShowData& show, std::string showPath, bool isLocked, Settings settings,
                         std::unique_ptr<PagePackage> pages)
    : show_(show),
      showPath_(std::move(showPath)),
      settings_(std::move(settings)),
      pages_(std::move(pages)),
      showJson_(MakeShow_(isLocked)) {}

void ShowAnswers::SetLog(std::shared_ptr<const CL::ChangeLog> log, std::string logName) {
    const std::lock_guard lock(mutex_);
    now_.log = std::move(log);
    now_.logName = std::move(logName);
}

void ShowAnswers::SetState(std::shared_ptr<const std::string> state) {
    const std::lock_guard lock(mutex_);
    now_.state = std::move(state);
}

ShowAnswers::Now ShowAnswers::GetNow_() const {
    const std::lock_guard lock(mutex_);
    return now_;
}

std::string ShowAnswers::MakeShow_(bool isLocked) const {
    AnswerJson songs = AnswerJson::array();
    for (const tavo_midi::SongData& song : show_.GetSongs())
        songs.push_back({{"number", song.GetSongNumber()},
                         {"title", song.GetTitle()},
                         {"bars", TL::BarPositions(song.GetTimeline()).GetBars().size()},
                         {"seconds", GetWrittenSeconds(song)},
                         {"pages", song.GetTimeline().GetPageNums().size()},
                         {"score", !FindSourceScore(showPath_, song.GetSongNumber()).empty()}});
    AnswerJson images = AnswerJson::array();
    if (pages_ != nullptr) {
        for (const ScorePage& page : pages_->GetPages())
            images.push_back(page.number);
    }
    const ShowDirectory directory = ScanShowDirectory(showPath_);
    return AsBody({{"title", show_.GetTitle()},
                   {"name", directory.showDataName},
                   {"locked", isLocked},
                   {"songs", songs},
                   {"pageImages", images}});
}

WebAnswer ShowAnswers::Answer(const WebRequest& request) {
    const std::vector<std::string>& parts = request.target.parts;
    const std::string word = parts.size() > 1 ? parts[1] : "";
    if (GetNow_().log == nullptr) return Refuse(503, "the show is being opened");
    try {
        if (parts.size() == 2 && word == "show") return {200, "application/json", showJson_};
        if (parts.size() == 2 && word == "verbs") return {200, "application/json", MakeVerbs()};
        if (parts.size() == 2 && word == "midi-inputs") return {200, "application/json", MakeMidiInputs()};
        if (parts.size() == 2 && word == "settings") return {200, "application/json", MakeSettings_()};
        if (parts.size() == 2 && word == "versions") return {200, "application/json", MakeVersions_()};
        if (parts.size() == 5 && word == "versions" && parts[3] == "to")
            return {200, "application/json", MakeDifference_(parts[2], parts[4])};
        if (parts.size() == 2 && word == "state") {
            const Now now = GetNow_();
            return {200, "application/json", now.state == nullptr ? "{}" : *now.state};
        }
        if (parts.size() >= 3 && word == "song") return AnswerSong_(parts);
        if (parts.size() == 3 && word == "page") return AnswerPage_(parts[2]);
    } catch (const std::out_of_range& unknown) {
        return Refuse(404, unknown.what());
    } catch (const std::invalid_argument& wrong) {
        return Refuse(400, wrong.what());
    }
    if (parts.size() == 2 && FindVerbRow(word) != nullptr) return Refuse(405, "a press is a POST");
    return Refuse(404, "there is nothing at this address");
}

WebAnswer ShowAnswers::AnswerSong_(const std::vector<std::string>& parts) {
    const tavo_midi::SongData& song = show_.GetSongData(parts[2]);
    if (parts.size() == 3) return {200, "application/json", MakeSong_(song)};
    if (parts.size() == 4 && parts[3] == "picture.svg")
        return {200, "image/svg+xml", MakeSongPicture(show_, *GetNow_().log, song)};
    if (parts.size() == 4 && parts[3] == "score.musicxml") {
        if (FindSourceScore(showPath_, song.GetSongNumber()).empty())
            return Refuse(404, fmt::format("song {} has no score", song.GetSongNumber()));
        return {200, "application/vnd.recordare.musicxml+xml", ReadSourceScore(showPath_, song.GetSongNumber())};
    }
    return Refuse(404, "there is nothing at this address");
}

WebAnswer ShowAnswers::AnswerPage_(const std::string& number) {
    std::uint32_t wanted = 0;
    const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), wanted);
    if (error != std::errc() || end != number.data() + number.size())
        return Refuse(400, fmt::format("{} is not the number of a page", kit::Quote(number)));
    if (pages_ == nullptr) return Refuse(404, "no images of the score's pages are shown");
    const ScorePage& page = pages_->GetPage(wanted);
    return {200, std::string(GetMediaType(page.type)), pages_->ReadPage(wanted)};
}

// The ids are those by which an edit that is typed now would find its edits.
std::string ShowAnswers::MakeSong_(const tavo_midi::SongData& song) {
    const Now now = GetNow_();
    const CL::SongLog& songLog = FindSongLog(*now.log, song.GetSongNumber());
    AnswerJson json = MakeSongJson(song, songLog);
    json["warnings"] = AnswerJson::array();
    for (std::string& problem : FindSongProblems(show_, song, songLog, showPath_, &settings_))
        json["warnings"].push_back(kit::AsSentence(std::move(problem)));
    if (idsOf_ != now.logName) {
        ids_ = EditIds::Read(ScanShowDirectory(showPath_), now.logName);
        idsOf_ = now.logName;
    }
    EditIds ids = ids_;
    ids.Follow(*now.log);
    const std::vector<std::size_t> numbers = ids.GetIds(song.GetSongNumber());
    for (std::size_t i = 0; i < json["edits"].size() && i < numbers.size(); ++i)
        json["edits"][i]["id"] = numbers[i];
    if (const std::vector<std::uint32_t> measures = ReadScoreMeasures(showPath_, song.GetSongNumber());
        measures.size() == json["bars"].size() && !measures.empty())
        json["measures"] = measures;
    return AsBody(json);
}

// As they are kept now, for the next time that the show is opened. The passcode of OSC is nobody's business.
std::string ShowAnswers::MakeSettings_() const {
    const AnswerJson kept = AnswerJson::parse(AsText(ReadSettings(ScanShowDirectory(showPath_).SettingsPath())));
    return AsBody(
        {{"outputs", kept.at("outputs")}, {"groups", kept.at("groups")}, {"oscTargets", kept.at("oscTargets")}});
}

std::string ShowAnswers::MakeVersions_() const {
    AnswerJson versions = AnswerJson::array();
    for (const LogVersion& version : ListVersions(ScanShowDirectory(showPath_)))
        versions.push_back(MakeVersionJson(version));
    return AsBody({{"versions", versions}});
}

CL::ChangeLog ShowAnswers::LoadVersion_(const std::string& version) const {
    if (version == "now") return *GetNow_().log;
    const ShowDirectory directory = ScanShowDirectory(showPath_);
    return CL::ChangeLog::Load(directory.PathOf(FindLogName(directory, version)));
}

std::string ShowAnswers::MakeDifference_(const std::string& from, const std::string& to) const {
    AnswerJson changes = AnswerJson::array();
    for (const CL::SongChange& song : CL::Compare(LoadVersion_(from), LoadVersion_(to)).songs) {
        for (const std::string& line : CL::DescribeChange({{song}}, show_))
            changes.push_back({{"song", song.songNumber}, {"text", line}});
    }
    return AsBody({{"from", from}, {"to", to}, {"changes", changes}});
}

}  // namespace stage
