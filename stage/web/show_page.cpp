#include "stage/web/show_page.h"

#include <fmt/format.h>
#include <sodium.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <exception>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "kit/path.h"
#include "kit/words.h"
#include "stage/show/log_versions.h"
#include "stage/show/show_directory.h"
#include "stage/web/page_settings.h"
#include "tavo_core/active_change_log.h"
#include "tavo_core/log_change.h"
#include "tavo_core/log_change_text.h"

namespace stage {

namespace {

using PageJson = nlohmann::ordered_json;

/// Told by the playhead, or of no use to a screen.
constexpr std::array<std::string_view, 6> NotOfChange{"tick",           "bar",  "beat", "elapsedSeconds",
                                                      "longestBlockMs", "event"};

constexpr std::chrono::milliseconds ShortestInterval{10};
/// It is no verb of the desk: it becomes an edit.
constexpr std::string_view RollBackWord = "rollback";
/// Nor is this one, which changes a setting.
constexpr std::string_view SetWord = "set";
/// It comes behind that one and is kept by nobody.
constexpr std::string_view TestToneWord = "test-tone";

std::string WriteLine(const PageJson& json) {
    return json.dump(-1, ' ', false, PageJson::error_handler_t::replace);
}

/// The object's text with more members at its front.
std::string PutFirst(const std::string& members, const std::string& object) {
    return "{" + members + (object == "{}" ? "" : ",") + object.substr(1);
}

std::string MakeRunName() {
    std::uint64_t number = 0;
    randombytes_buf(&number, sizeof number);
    return fmt::format("{:016x}", number);
}

unsigned int FindStatus(CommandRecord::Outcome outcome) {
    if (outcome == CommandRecord::Outcome::Taken) return 200;
    return outcome == CommandRecord::Outcome::Refused ? 409 : 422;
}

void EraseMeter(PageJson& of) {
    of.erase("peak");
    of.erase("rms");
}

/// The finest that a meter shows, 80 dB below full scale.
constexpr double MeterStep = 1e-4;

PageJson MakeMeter(const SoundLevel& level) {
    const auto round = [](double value) { return std::round(value / MeterStep) * MeterStep; };
    return {{"peak", round(level.peak)}, {"rms", round(level.rms)}};
}

PageJson MakeMeters(const LiveStatus& status) {
    PageJson groups = PageJson::object();
    for (const LiveStatus::Group& group : status.groups)
        groups[group.name] = MakeMeter(group.level);
    return {{"main", MakeMeter(status.mainLevel)}, {"groups", std::move(groups)}};
}

void RequireOneLine(const std::string& line) {
    if (std::ranges::any_of(line, [](char c) { return static_cast<unsigned char>(c) < 0x20; }))
        throw std::invalid_argument("a press is one line of text");
}

bool IsSetting(const WebPress& press) {
    return !press.isEdit && press.line.starts_with(SetWord) && press.line.substr(SetWord.size()).starts_with(' ');
}

/// Whether a song is being played, at a fermata as well.
bool Sounds(const LiveStatus& status) {
    using Motion = LiveStatus::Motion;
    return status.motion == Motion::Playing || status.motion == Motion::Fading || status.motion == Motion::Holding;
}

bool IsMoving(const LiveStatus& status) {
    const bool goes = status.motion == LiveStatus::Motion::Playing || status.motion == LiveStatus::Motion::Fading;
    return goes && status.output.isPlaying && status.ticksPerSecond > 0;
}

}  // namespace

ShowPage::ShowPage(LiveShow& show, const Options& options, std::unique_ptr<PagePackage> pageImages)
    : show_(show),
      options_(options),
      files_(options.pageDirectory.empty() ? PageFiles() : PageFiles(options.pageDirectory)),
      hasEngraver_(!options.engraverDirectory.empty() && files_.AddFolder("engraver", options.engraverDirectory)),
      run_(MakeRunName()),
      json_(show.GetSession().GetShow(), show.GetSession().GetOptions().framesPerSecond),
      answers_(show.GetSession().GetShow(), show.GetSession().GetShowDirectory(), show.IsLocked(),
               show.GetSession().GetSettings(), std::move(pageImages)),
      access_(options.passcodes, IsLoopback(options.server.address),
              options.server.certificate.IsEmpty() ? WebAccess::Scheme::Http : WebAccess::Scheme::Https),
      server_(options.server, *this, access_, files_) {
    show_.AddListener(*this);
    LookAtState_();
}

ShowPage::~ShowPage() {
    show_.RemoveListener(*this);
}

// The server's thread.

void ShowPage::OnJoin(std::uint64_t client, WebRole role, const std::string& /*address*/) {
    {
        const std::lock_guard lock(mutex_);
        joins_.push_back({client, role});
    }
    show_.GetWakeUp().Ring();
}

void ShowPage::OnPress(const WebPress& press) {
    {
        const std::lock_guard lock(mutex_);
        presses_.push_back(press);
    }
    show_.GetWakeUp().Ring();
}

WebPress ShowPage::ReadPress(const std::string& word, const std::vector<std::string>& arguments) {
    WebPress press;
    press.isEdit = word == "edit";
    if (press.isEdit && arguments.empty()) throw std::invalid_argument("\"arguments\" does not say what to edit");
    if (!press.isEdit && word != RollBackWord && word != SetWord && FindVerbRow(word) == nullptr)
        throw std::out_of_range(fmt::format("an operator cannot {}", kit::Quote(word)));
    press.line = fmt::format("{}", fmt::join(arguments, " "));
    if (!press.isEdit) press.line = arguments.empty() ? word : word + " " + press.line;
    return press;
}

// What clients press.

void ShowPage::Do_(const WebPress& press) {
    try {
        // Whoever may not do it is not told what would come of it.
        if (std::string refusal = FindRefusal_(press); !refusal.empty()) return Fail_(press, 403, refusal);
        if (IsSetting(press)) return Set_(press);
        Command command = MakeCommand_(press);
        command.source = {Door::Page, press.address};
        command.moment = press.moment;
        command.tag = press.tag;
        lines_[press.tag] = press.isEdit ? "edit " + press.line : press.line;
        show_.Press(std::move(command));
    } catch (const std::exception& problem) {
        lines_.erase(press.tag);
        Fail_(press, 400, problem.what());
    }
}

void ShowPage::Set_(const WebPress& press) {
    RequireOneLine(press.line);
    const std::string_view words = std::string_view(press.line).substr(SetWord.size() + 1);
    if (words == TestToneWord) {
        PlayTestTone_();
    } else {
        if (StartsLearning(words)) {
            // In a performance a pedal is for what it gives.
            if (Sounds(show_.PeekStatus())) throw std::invalid_argument("a pedal is taught while the music stands");
            learnsUntil_ = std::chrono::steady_clock::now() + options_.longestLearning;
        }
        ChangeSetting(show_.GetSession(), words);
    }
    // Whoever asks for the state after the answer finds it in it.
    LookAtState_();
    const Json answer{{"type", "answer"}, {"press", press.line}, {"outcome", "taken"}, {"sentence", ""}};
    server_.Publish({WebEntry::Kind::Answer, press.tag, WriteLine(answer), "", 200});
}

void ShowPage::PlayTestTone_() {
    const LiveStatus status = show_.PeekStatus();
    if (Sounds(status)) throw std::invalid_argument("the tone is played while the music stands");
    if (!status.output.isPlaying) throw std::invalid_argument("no device takes the sound");
    show_.GetRenderer().PlayTestTone();
}

Command ShowPage::MakeCommand_(const WebPress& press) {
    RequireOneLine(press.line);
    const std::vector<std::string_view> words = SplitWords(press.line);
    if (words.empty()) throw std::invalid_argument("the line is empty");
    if (press.isEdit) {
        Command command{Verb::Edit, {press.line}, {}, 0, {}};
        if (!press.song.empty()) {
            const auto& song = show_.GetSession().GetShow().GetSongData(press.song);
            command.arguments = {fmt::format("{} --song {}", press.line, song.GetSongNumber())};
        }
        return command;
    }
    if (words.size() == 2 && words.front() == RollBackWord) return MakeRollBack_(std::string(words[1]));
    return show_.Read(press.line, {});
}

// Like any other edit it is in the journal and can be taken back.
Command ShowPage::MakeRollBack_(const std::string& version) {
    const ShowDirectory directory = ScanShowDirectory(show_.GetSession().GetShowDirectory());
    const CL::ChangeLog earlier = CL::ChangeLog::Load(directory.PathOf(FindLogName(directory, version)));
    const CL::LogChange change = CL::Compare(*ActiveChangeLogShared().Share(), earlier);
    if (change.IsEmpty()) throw std::invalid_argument(fmt::format("version {} has the same edits", version));
    return {Verb::Edit, {CL::WriteLogChange(change)}, {}, 0, {}};
}

std::string ShowPage::FindRefusal_(const WebPress& press) const {
    if (press.role < WebRole::Operate) return "whoever only views cannot press: log in as operator";
    const std::vector<std::string_view> words = SplitWords(press.line);
    const VerbRow* const row = words.empty() ? nullptr : FindVerbRow(words.front());
    if (IsSetting(press)) {
        if (press.role < WebRole::Edit) return "whoever operates cannot set up: log in with the passcode for editing";
        return show_.IsLocked() ? "the show is locked: it is set up as it was opened" : "";
    }
    const bool edits =
        press.isEdit || (row != nullptr && row->edits) || (row == nullptr && press.line.starts_with(RollBackWord));
    if (edits && press.role < WebRole::Edit)
        return "whoever operates cannot edit: log in with the passcode for editing";
    if (!press.isEdit && row != nullptr && row->verb == Verb::Quit && show_.IsLocked())
        return "the show is locked: end it where it was started";
    return "";
}

void ShowPage::Fail_(const WebPress& press, unsigned int status, const std::string& sentence) {
    const Json answer{{"type", "answer"}, {"outcome", "failed"}, {"sentence", sentence}};
    server_.Publish({WebEntry::Kind::Answer, press.tag, WriteLine(answer), "", status});
}

// What clients are told.

void ShowPage::Publish_(WebEntry::Kind kind, const Json& message) {
    server_.Publish({kind, 0, WriteLine(message), "", 200});
}

// When what is heard now, or was heard, reached the loudspeaker.
double ShowPage::FindMoment_(std::int64_t frame) const {
    const double now = WebServer::Now();
    const std::int64_t heard = show_.GetRenderer().FindHeardFrame();
    if (heard < frame) return now;
    return now - static_cast<double>(heard - frame) * 1000 / show_.GetSession().GetOptions().framesPerSecond;
}

void ShowPage::OnLiveEvent(const LiveEvent& event) {
    const std::string text = json_.Write(event);
    if (text.empty()) return;
    server_.Publish({WebEntry::Kind::Notice, 0,
                     PutFirst(fmt::format(R"("type":"event","at":{:.3f})", FindMoment_(event.frame)), text), "", 200});
    isChanged_ = true;
    isPlayheadDue_ = true;
}

void ShowPage::OnRecord(const CommandRecord& record) {
    const Command& command = record.command;
    // What an edit changed for the player; the edit itself has a record of its own.
    if (command.verb == Verb::Edit && command.source.door == Door::Automatic) return;
    Json message{{"type", "record"}, {"at", WebServer::Now()}};
    std::string press = AsText(command);
    std::uint64_t tag = 0;
    if (command.source.door == Door::Page && command.tag != 0) {
        tag = command.tag;
        if (const auto line = lines_.extract(tag); !line.empty()) press = line.mapped();
    }
    // Whoever asks for the song after this record finds the edit in it.
    if (GetVerbRow(command.verb).edits)
        answers_.SetLog(ActiveChangeLogShared().Share(),
                        kit::path::basename(show_.GetSession().GetChangelogFilename()));
    message["press"] = press;
    message["verb"] = GetVerbRow(command.verb).name;
    message["door"] = GetDoorName(command.source.door);
    message["source"] = command.source.name;
    message["outcome"] = NameOf(record.outcome);
    message["sentence"] = record.sentence;
    message["song"] = record.place.song;
    message["tick"] = record.place.tick;
    server_.Publish({WebEntry::Kind::Record, tag, WriteLine(message), "", FindStatus(record.outcome)});
    isChanged_ = true;
}

void ShowPage::OnNotification(const notify::GuiNotification& notification) {
    using Type = notify::GuiNotificationType;
    // Flow control sets the same status many times a second.
    const std::string text = json_.Write(notification);
    if (text.empty()) return;
    if (notification.type == Type::StatusFlowControl) {
        Publish_(WebEntry::Kind::Notice, {{"type", "status"},
                                          {"at", WebServer::Now()},
                                          {"status", notification.text},
                                          {"count", notification.number}});
    } else {
        server_.Publish({WebEntry::Kind::Notice, 0,
                         PutFirst(fmt::format(R"("type":"display","at":{:.3f})", WebServer::Now()), text), "", 200});
    }
    isChanged_ = true;
}

void ShowPage::OnMessage(const std::string& sentence) {
    Publish_(WebEntry::Kind::Notice, {{"type", "message"}, {"sentence", sentence}});
}

void ShowPage::OnDelivered() {
    std::vector<Join> joins;
    std::vector<WebPress> presses;
    {
        const std::lock_guard lock(mutex_);
        joins = std::exchange(joins_, {});
        presses = std::exchange(presses_, {});
    }
    for (const WebPress& press : presses)
        Do_(press);
    const auto now = std::chrono::steady_clock::now();
    // Changes come in bursts: one look tells all of a burst.
    const auto interval = isChanged_ || isPlayheadDue_ ? ShortestInterval : options_.interval;
    if (!joins.empty() || now - lookedAt_ >= interval) LookAtState_();
    for (const Join& join : joins)
        Welcome_(join);
}

void ShowPage::Welcome_(const Join& join) {
    const Json hello{{"type", "hello"},
                     {"version", options_.version},
                     {"run", run_},
                     {"role", GetRoleName(join.role)},
                     {"locked", show_.IsLocked()},
                     {"engraver", hasEngraver_},
                     {"now", WebServer::Now()},
                     {"show", Json::parse(answers_.GetShow())}};
    server_.Publish({WebEntry::Kind::Welcome, join.client, WriteLine(hello),
                     WriteLine({{"type", "state"}, {"at", playhead_["at"]}, {"state", MakeWholeState_()}}), 200});
}

// With the place, which clients are told by the playhead from then on.
PageJson ShowPage::MakeWholeState_() const {
    Json state = state_;
    for (const auto& [name, value] : playhead_.items())
        if (name != "type") state[name] = value;
    return state;
}

std::optional<PageJson> ShowPage::FollowEdits_() {
    std::shared_ptr<const CL::ChangeLog> log = ActiveChangeLogShared().Share();
    ShowSession& session = show_.GetSession();
    std::string logName = kit::path::basename(session.GetChangelogFilename());
    const bool isUnsaved = session.GetChangeLogEditor()->HasUnsavedChanges();
    if (log == log_ && logName == logName_ && isUnsaved == isUnsaved_) return std::nullopt;
    Json songs = Json::array();
    if (log_ != nullptr && log != log_) {
        for (const CL::SongChange& change : CL::Compare(*log_, *log).songs)
            songs.push_back(change.songNumber);
    }
    const bool isFirst = log_ == nullptr;
    log_ = std::move(log);
    logName_ = std::move(logName);
    isUnsaved_ = isUnsaved;
    answers_.SetLog(log_, logName_);
    if (isFirst) return std::nullopt;
    return Json{{"type", "edits"},
                {"version", log_->GetVersion().GetAsString()},
                {"unsaved", isUnsaved_},
                {"songs", std::move(songs)}};
}

PageJson ShowPage::MakeState_(const LiveStatus& status) const {
    Json state = LiveJson::MakeStatus(status);
    for (const std::string_view name : NotOfChange)
        state.erase(std::string(name));
    // The playhead has the meters: they move at every look, and what is old of them nobody needs.
    EraseMeter(state["main"]);
    for (Json& group : state["groups"])
        EraseMeter(group);
    if (!state.contains("leavesInBeats")) state["leavesInBeats"] = nullptr;
    state["pedals"] = MakePedals(show_.GetSession().GetMidiCommands());
    state["locked"] = show_.IsLocked();
    state["take"] = show_.GetTakePath();
    state["takeProblem"] = status.takeProblem;
    state["version"] = log_->GetVersion().GetAsString();
    state["unsaved"] = isUnsaved_;
    return state;
}

// What somebody forgot to press is not taken from a pedal that is needed.
void ShowPage::EndForgottenLearning_(const LiveStatus& status) {
    if (!learnsUntil_ || (!Sounds(status) && lookedAt_ < *learnsUntil_)) return;
    learnsUntil_.reset();
    show_.GetSession().GetMidiCommands().CancelLearning();
}

void ShowPage::LookAtState_() {
    lookedAt_ = std::chrono::steady_clock::now();
    isChanged_ = false;
    const std::optional<Json> edits = FollowEdits_();
    const LiveStatus status = show_.PeekStatus();
    EndForgottenLearning_(status);
    Json state = MakeState_(status);
    Json changed = Json::object();
    for (const auto& [name, value] : state.items())
        if (!state_.contains(name) || state_[name] != value) changed[name] = value;
    state_ = std::move(state);
    const bool isPlayheadNew = FollowPlayhead_(status);
    // Whoever asks for the state because of what is told finds it in it.
    answers_.SetState(std::make_shared<const std::string>(WriteLine(MakeWholeState_())));
    if (edits) Publish_(WebEntry::Kind::Notice, *edits);
    if (!changed.empty())
        Publish_(WebEntry::Kind::Notice, {{"type", "change"}, {"at", WebServer::Now()}, {"state", std::move(changed)}});
    if (isPlayheadNew) Publish_(WebEntry::Kind::Playhead, playhead_);
}

// Whether it has to be told.
bool ShowPage::FollowPlayhead_(const LiveStatus& status) {
    const bool isMoving = IsMoving(status);
    Json meters = MakeMeters(status);
    const bool isElsewhere = playhead_.empty() || playhead_["tick"] != status.tick ||
                             playhead_["song"] != status.song || playhead_["moving"] != isMoving ||
                             playhead_["meters"] != meters;
    // Between two of them a client knows where it is.
    const bool isFollowed = isMoving && lookedAt_ - toldPlayhead_ < options_.interval &&
                            playhead_["moving"] == isMoving && playhead_["ticksPerSecond"] == status.ticksPerSecond;
    if (!isPlayheadDue_ && (!isElsewhere || isFollowed)) return false;
    isPlayheadDue_ = false;
    toldPlayhead_ = lookedAt_;
    playhead_ = {{"type", "playhead"},
                 {"at", WebServer::Now()},
                 {"song", status.song},
                 {"tick", status.tick},
                 {"bar", status.bar},
                 {"beat", status.beat},
                 {"moving", isMoving},
                 {"ticksPerSecond", isMoving ? status.ticksPerSecond : 0},
                 {"elapsed", status.elapsedSeconds},
                 {"remaining", FindRemaining_(status)},
                 {"meters", std::move(meters)}};
    return true;
}

// As it is written, at the operator's tempo.
double ShowPage::FindRemaining_(const LiveStatus& status) {
    if (status.song.empty()) return 0;
    const tavo_midi::SongData& song = show_.GetSession().GetShow().GetSongData(status.song);
    if (remainingOf_ != status.song) {
        tempos_.emplace(song.GetTimeline().GetTempos(), song.GetTicksPerQuarter());
        remainingOf_ = status.song;
    }
    const double left = tempos_->GetSeconds(song.GetMusicEndTickIndex()) - tempos_->GetSeconds(status.tick);
    return std::max(0.0, left) / std::max(status.tempoScale, 0.01);
}

}  // namespace stage
