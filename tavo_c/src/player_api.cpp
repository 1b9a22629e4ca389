// The functions of a tavo_player.

#include "guard.h"
#include "kit/numeric_string_compare.h"
#include "player_access.h"
#include "show_access.h"
#include "stage/offline/offline_show.h"

using namespace tavo_c;

namespace {

constexpr std::uint32_t DefaultFramesPerSecond = 48000;
constexpr std::uint32_t LowestFramesPerSecond = 8000;
constexpr std::uint32_t HighestFramesPerSecond = 96000;
constexpr std::uint32_t KnownFlags =
    TAVO_PLAYER_OFFLINE | TAVO_PLAYER_CLICK | TAVO_PLAYER_CLICK_EVERYWHERE | TAVO_PLAYER_DO_NOT_WAIT;

using Players = HandleTable<PlayerAccess>;

tavo_result RefuseHandle(const tavo_player* player) {
    return Fail(TAVO_BAD_HANDLE, player == nullptr ? "the player is a null handle"
                                                   : "the player is not open: it was closed, or is no handle");
}

/// Runs the body for an open player, without its turn.
template <class Body>
tavo_result WithOpenPlayer(tavo_player* player, Body&& body) noexcept {
    return Guard([&]() -> tavo_result {
        const Players::Use use(GetPlayers(), NumberOf(player));
        return use ? body(*use) : RefuseHandle(player);
    });
}

/// The same with its turn; what that made to report is reported afterwards.
template <class Body>
tavo_result WithPlayer(tavo_player* player, Body&& body) noexcept {
    return WithOpenPlayer(player, [&](PlayerAccess& open) {
        tavo_result result = TAVO_OK;
        {
            const std::lock_guard turn(open.GetTurn());
            result = Guard([&] { return body(open); });
        }
        open.GetEvents().Deliver();
        return result;
    });
}

tavo_result Render(PlayerAccess& open, std::span<const tavo_pair> pairs, std::uint32_t frames) {
    if (!open.Render(pairs, frames)) return Fail(TAVO_BUSY, "another thread is rendering");
    open.GetEvents().Deliver();
    return TAVO_OK;
}

std::uint32_t ReadRate(std::uint32_t framesPerSecond) {
    if (framesPerSecond == 0) return DefaultFramesPerSecond;
    if (framesPerSecond < LowestFramesPerSecond || framesPerSecond > HighestFramesPerSecond)
        throw Problem(TAVO_BAD_ARGUMENT, "the sample rate is " + std::to_string(framesPerSecond) +
                                             " and must be from 8000 to 96000 frames a second");
    return framesPerSecond;
}

void CheckFlags(std::uint32_t flags) {
    if ((flags & ~KnownFlags) != 0)
        throw Problem(TAVO_BAD_ARGUMENT, "the flags have bits that this library does not know");
}

/// The bare name of a version's log; empty for a null one.
std::string FindLog(const char* path, const char* version) {
    if (version == nullptr) return "";
    try {
        return stage::FindLogName(stage::ScanShowDirectory(path), version);
    } catch (const std::out_of_range& problem) {
        throw Problem(TAVO_NOT_FOUND, problem.what());
    } catch (const std::invalid_argument& problem) {
        throw Problem(TAVO_BAD_ARGUMENT, problem.what());
    }
}

stage::ShowSession::Options::Editing ReadEditing(std::uint32_t editing) {
    using Editing = stage::ShowSession::Options::Editing;
    switch (editing) {
        case TAVO_EDITS_IN_MEMORY:
            return Editing::InMemory;
        case TAVO_EDITS_KEPT:
            return Editing::Kept;
        case TAVO_EDITS_REFUSED:
            return Editing::Refused;
        default:
            throw Problem(TAVO_BAD_ARGUMENT, "the editing is none of TAVO_EDITS_...");
    }
}

PlayerAccess::Options MakeOptions(const char* path, const tavo_player_options& read) {
    CheckFlags(read.flags);
    const bool isOffline = (read.flags & TAVO_PLAYER_OFFLINE) != 0;
    PlayerAccess::Options options;
    options.session = stage::MakeOfflineSessionOptions(ReadRate(read.frames_per_second));
    if (!isOffline) {
        options.session.advanceFrames = stage::Engine::DefaultAdvanceFrames;
        options.session.waitsForSounds = false;
    }
    options.session.editing = ReadEditing(read.editing);
    options.session.soundFont = TextOrEmpty(read.sound_font);
    options.session.changeLog = FindLog(path, read.version);
    options.mixesClick = (read.flags & TAVO_PLAYER_CLICK) != 0;
    options.clicksEverywhere = (read.flags & TAVO_PLAYER_CLICK_EVERYWHERE) != 0;
    options.waitsForDisplay = (read.flags & TAVO_PLAYER_DO_NOT_WAIT) == 0;
    return options;
}

tavo_result ResultOf(const stage::CommandRecord& record) {
    if (record.IsTaken()) return TAVO_OK;
    const bool isRefused = record.outcome == stage::CommandRecord::Outcome::Refused;
    return Fail(isRefused ? TAVO_REFUSED : TAVO_FAILED, record.sentence.c_str());
}

tavo_result DoLine(tavo_player* player, const char* line, stage::Door door) {
    return WithPlayer(player, [&](PlayerAccess& open) {
        Require(line, "line");
        try {
            return ResultOf(open.Do(line, door));
        } catch (const std::invalid_argument& problem) {
            return Fail(TAVO_BAD_ARGUMENT, problem.what());
        }
    });
}

/// Both handles are closed or neither.
tavo_result CloseBoth(tavo_player* player) {
    const std::uintptr_t number = NumberOf(player);
    switch (GetPlayers().Close(number)) {
        case Players::Closing::Unknown:
            return RefuseHandle(player);
        case Players::Closing::InUse:
            return Fail(TAVO_BUSY, "another call uses the player: close it when that has returned");
        default:
            break;
    }
    const std::uintptr_t show = GetPlayers().Peek(number).showHandle;
    if (GetShows().Close(show) == HandleTable<ShowHandle>::Closing::InUse) {
        GetPlayers().Reopen(number);
        return Fail(TAVO_BUSY, "another call uses the player's show: close the player when that has returned");
    }
    GetShows().Take(show).reset();
    GetPlayers().Take(number).reset();
    return TAVO_OK;
}

}  // namespace

tavo_result tavo_player_open(const char* path, const tavo_player_options* options, tavo_player** player) {
    return Guard([&] {
        Require(path, "path");
        Require(player, "player");
        auto open = std::make_unique<PlayerAccess>(path, MakeOptions(path, ReadOptions(options)));
        auto show = std::make_unique<ShowHandle>(MakePlayedShow(open->GetSession(), open->GetTurn()));
        const std::uintptr_t showNumber = GetShows().Open(std::move(show));
        if (showNumber == 0) throw Problem(TAVO_NO_MEMORY, "too many shows are open: close some");
        open->showHandle = showNumber;
        // One session at a time: there is room for it.
        *player = reinterpret_cast<tavo_player*>(GetPlayers().Open(std::move(open)));
        return TAVO_OK;
    });
}

tavo_result tavo_player_close(tavo_player* player) {
    return Guard([&] { return CloseBoth(player); });
}

tavo_result tavo_player_show(tavo_player* player, tavo_show** show) {
    return WithOpenPlayer(player, [&](PlayerAccess& open) -> tavo_result {
        if (show == nullptr) return Fail(TAVO_BAD_ARGUMENT, "show is a null pointer");
        *show = AsShow(open.showHandle);
        return TAVO_OK;
    });
}

tavo_result tavo_player_command(tavo_player* player, const char* line) {
    return DoLine(player, line, stage::Door::Script);
}

tavo_result tavo_player_press(tavo_player* player, const char* line) {
    return DoLine(player, line, stage::Door::Terminal);
}

tavo_result tavo_player_render(tavo_player* player, float* left, float* right, uint32_t frames) {
    return WithOpenPlayer(player, [&](PlayerAccess& open) -> tavo_result {
        if (left == nullptr || right == nullptr)
            return Fail(TAVO_BAD_ARGUMENT, left == nullptr ? "left is a null pointer" : "right is a null pointer");
        const tavo_pair main{left, right};
        return Render(open, {&main, 1}, frames);
    });
}

tavo_result tavo_player_pair_count(tavo_player* player, uint32_t* count) {
    return WithOpenPlayer(player, [&](PlayerAccess& open) -> tavo_result {
        if (count == nullptr) return Fail(TAVO_BAD_ARGUMENT, "count is a null pointer");
        *count = static_cast<uint32_t>(open.GetPairNames().size());
        return TAVO_OK;
    });
}

tavo_result tavo_player_pair_name(tavo_player* player, uint32_t index, const char** name) {
    return WithOpenPlayer(player, [&](PlayerAccess& open) -> tavo_result {
        Require(name, "name");
        const std::vector<std::string>& names = open.GetPairNames();
        if (index >= names.size())
            throw Problem(TAVO_NOT_FOUND, "the player has " + std::to_string(names.size()) +
                                              " pairs, counted from 0, and none is " + std::to_string(index));
        *name = names[index].c_str();
        return TAVO_OK;
    });
}

tavo_result tavo_player_render_pairs(tavo_player* player, const tavo_pair* pairs, uint32_t count, uint32_t frames) {
    return WithOpenPlayer(player, [&](PlayerAccess& open) -> tavo_result {
        if (pairs == nullptr) return Fail(TAVO_BAD_ARGUMENT, "pairs is a null pointer");
        const std::size_t most = open.GetPairNames().size();
        if (count == 0 || count > most)
            throw Problem(TAVO_BAD_ARGUMENT, "the player has " + std::to_string(most) + " pairs: render 1 to " +
                                                 std::to_string(most) + " of them, not " + std::to_string(count));
        for (uint32_t i = 0; i < count; ++i)
            if (pairs[i].left == nullptr || pairs[i].right == nullptr)
                throw Problem(TAVO_BAD_ARGUMENT, "pair " + std::to_string(i) + " has a null pointer");
        return Render(open, {pairs, count}, frames);
    });
}

tavo_result tavo_player_latency(tavo_player* player, uint32_t* frames) {
    return WithOpenPlayer(player, [&](PlayerAccess&) -> tavo_result {
        if (frames == nullptr) return Fail(TAVO_BAD_ARGUMENT, "frames is a null pointer");
        *frames = stage::TruePeakLimiter::DelayFrames;
        return TAVO_OK;
    });
}

tavo_result tavo_player_position(tavo_player* player, uint32_t* tick, int64_t* frame) {
    return WithOpenPlayer(player, [&](PlayerAccess& open) -> tavo_result {
        if (tick != nullptr) *tick = open.GetEngine().GetPosition();
        if (frame != nullptr) *frame = open.GetEngine().GetFrame();
        return TAVO_OK;
    });
}

tavo_result tavo_player_status(tavo_player* player, tavo_status* status) {
    return WithOpenPlayer(player, [&](PlayerAccess& open) -> tavo_result {
        Require(status, "status");
        *status = open.GetStatus();
        return TAVO_OK;
    });
}

const char* tavo_event_name(uint32_t kind) {
    switch (kind) {
        case TAVO_EVENT_SONG:
            return "song";
        case TAVO_EVENT_STARTED:
            return "started";
        case TAVO_EVENT_STOPPED:
            return "stopped";
        case TAVO_EVENT_PUT:
            return "put";
        case TAVO_EVENT_JUMP:
            return "jump";
        case TAVO_EVENT_BEAT:
            return "beat";
        case TAVO_EVENT_HOLD:
            return "hold";
        case TAVO_EVENT_RELEASE:
            return "release";
        case TAVO_EVENT_CAESURA:
            return "caesura";
        case TAVO_EVENT_SONG_END:
            return "song-end";
        case TAVO_EVENT_COUNT_IN:
            return "count-in";
        case TAVO_EVENT_CUE:
            return "cue";
        case TAVO_EVENT_FADED:
            return "faded";
        case TAVO_EVENT_STATUS:
            return "status";
        case TAVO_EVENT_VAMP_LAMP:
            return "vamp-lamp";
        case TAVO_EVENT_BAR:
            return "bar";
        case TAVO_EVENT_METER:
            return "meter";
        case TAVO_EVENT_CLICK:
            return "click";
        case TAVO_EVENT_KEY:
            return "key";
        case TAVO_EVENT_TEMPO:
            return "tempo";
        case TAVO_EVENT_TEMPO_SCALE:
            return "tempo-scale";
        case TAVO_EVENT_TARGET_TEMPO:
            return "target-tempo";
        case TAVO_EVENT_TRANSPOSITION:
            return "transposition";
        case TAVO_EVENT_PAGE:
            return "page";
        case TAVO_EVENT_MARKER:
            return "marker";
        case TAVO_EVENT_TITLE:
            return "title";
        case TAVO_EVENT_NO_NEXT_SONG:
            return "no-next-song";
        case TAVO_EVENT_QUIT:
            return "quit";
        case TAVO_EVENT_LOST:
            return "lost";
        default:
            return "unknown";
    }
}

tavo_result tavo_player_next_event(tavo_player* player, tavo_event* event) {
    return WithOpenPlayer(player, [&](PlayerAccess& open) -> tavo_result {
        Require(event, "event");
        open.CollectDisplay();
        return open.GetEvents().Fetch(*event) ? TAVO_OK : TAVO_END;
    });
}

tavo_result tavo_player_set_callback(tavo_player* player, tavo_event_callback callback, void* user) {
    return WithOpenPlayer(player, [&](PlayerAccess& open) -> tavo_result {
        open.GetEvents().SetCallback(callback, user);
        return TAVO_OK;
    });
}

tavo_result tavo_player_take_state(tavo_player* player, char** state) {
    return WithPlayer(player, [&](PlayerAccess& open) {
        Require(state, "state");
        *state = CopyText(open.TakeState());
        return TAVO_OK;
    });
}

tavo_result tavo_player_put_state(tavo_player* player, const char* state) {
    return WithPlayer(player, [&](PlayerAccess& open) {
        Require(state, "state");
        open.PutState(state);
        return TAVO_OK;
    });
}

tavo_result tavo_player_left_edits(tavo_player* player, char** lines) {
    return WithPlayer(player, [&](PlayerAccess& open) {
        Require(lines, "lines");
        *lines = CopyLines(open.GetSession().GetRecoveredEdits());
        return TAVO_OK;
    });
}

tavo_result tavo_player_recover_edits(tavo_player* player) {
    return WithPlayer(player, [&](PlayerAccess& open) {
        open.GetSession().RecoverEdits();
        return TAVO_OK;
    });
}

tavo_result tavo_player_discard_edits(tavo_player* player) {
    return WithPlayer(player, [&](PlayerAccess& open) {
        open.GetSession().DiscardRecoveredEdits();
        return TAVO_OK;
    });
}

// Whole songs.

namespace {

/// What ends a render that its caller does not want any more.
struct EndOfRender {};

stage::OfflineOptions MakeOfflineOptions(const tavo_render_options& read, const tavo_midi::ShowData& show) {
    stage::OfflineOptions options;
    options.firstSong = read.first_song == nullptr ? show.GetSongNumbers().front() : std::string(read.first_song);
    options.lastSong = read.last_song == nullptr ? options.firstSong : std::string(read.last_song);
    try {
        static_cast<void>(show.GetSongData(options.firstSong));
        static_cast<void>(show.GetSongData(options.lastSong));
    } catch (const std::out_of_range& problem) {
        throw Problem(TAVO_NOT_FOUND, problem.what());
    }
    try {
        if (read.from != nullptr) options.fromTick = stage::FindTick(show, options.firstSong, read.from);
        if (read.to != nullptr) options.toTick = stage::FindTick(show, options.lastSong, read.to);
    } catch (const std::invalid_argument& problem) {
        throw Problem(TAVO_NOT_FOUND, problem.what());
    }
    if (kit::NumericStringCompare()(options.lastSong, options.firstSong))
        throw Problem(TAVO_BAD_ARGUMENT, "the last song comes before the first");
    if (options.fromTick && options.toTick && options.firstSong == options.lastSong &&
        *options.fromTick >= *options.toTick)
        throw Problem(TAVO_BAD_ARGUMENT, "the end of the render does not come after its beginning");
    options.mixesClick = (read.flags & TAVO_PLAYER_CLICK) != 0;
    options.clicksEverywhere = (read.flags & TAVO_PLAYER_CLICK_EVERYWHERE) != 0;
    if (read.script == nullptr) return options;
    try {
        options.script = stage::ParseShowScript(read.script, "script", show, options.firstSong);
    } catch (const std::runtime_error& problem) {
        throw Problem(TAVO_BAD_ARGUMENT, problem.what());
    }
    return options;
}

std::vector<std::string> RenderSongs(const char* path, const tavo_render_options& read) {
    const OnlySession only;
    CheckFlags(read.flags);
    stage::ShowSession::Options options = stage::MakeOfflineSessionOptions(ReadRate(read.frames_per_second));
    options.soundFont = TextOrEmpty(read.sound_font);
    // The edits of a script sound and are forgotten with the render.
    if (read.script != nullptr) options.editing = stage::ShowSession::Options::Editing::InMemory;
    stage::ShowSession session(path, path, options);
    stage::OfflineShow::SoundSink onSound;
    if (read.on_sound != nullptr)
        onSound = [&read](const float* left, const float* right, std::uint32_t frames) {
            if (read.on_sound(left, right, frames, read.user) != 0) throw EndOfRender();
        };
    stage::Trace::Sink onTrace;
    if (read.on_trace != nullptr)
        onTrace = [&read](const std::string& line) {
            if (read.on_trace(line.substr(0, line.find('\n')).c_str(), read.user) != 0) throw EndOfRender();
        };
    stage::OfflineShow offline(session, MakeOfflineOptions(read, session.GetShow()), onSound, onTrace);
    return offline.Run().remarks;
}

}  // namespace

tavo_result tavo_render(const char* path, const tavo_render_options* options, char** remarks) {
    return Guard([&]() -> tavo_result {
        Require(path, "path");
        try {
            const std::vector<std::string> said = RenderSongs(path, ReadOptions(options));
            if (remarks != nullptr) *remarks = CopyLines(said);
            return TAVO_OK;
        } catch (const EndOfRender&) {
            return TAVO_END;
        }
    });
}
