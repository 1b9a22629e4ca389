// The functions of a tavo_show.

#include <algorithm>

#include "guard.h"
#include "show_access.h"
#include "stage/show/edit_list.h"
#include "stage/show/song_json.h"
#include "stage/show/song_length.h"
#include "stage/words/edit_grammar.h"
#include "tavo_core/edit_text.h"

using namespace tavo_c;

namespace {

/// Runs the body for an open show, with its turn.
template <class Body>
tavo_result WithShow(tavo_show* show, Body&& body) noexcept {
    return Guard([&]() -> tavo_result {
        const HandleTable<ShowHandle>::Use use(GetShows(), NumberOf(show));
        if (!use)
            return Fail(TAVO_BAD_HANDLE, show == nullptr ? "the show is a null handle"
                                                         : "the show is not open: it was closed, or is no handle");
        const std::lock_guard turn(use->access->GetTurn());
        body(*use);
        return TAVO_OK;
    });
}

/// What the song does not have is not found; the rest of what the body throws is a bad argument.
template <class Body>
auto LookUp(Body&& body) {
    try {
        return body();
    } catch (const std::out_of_range& problem) {
        throw Problem(TAVO_NOT_FOUND, problem.what());
    } catch (const std::invalid_argument& problem) {
        throw Problem(TAVO_BAD_ARGUMENT, problem.what());
    }
}

/// The event in force at `tick`: the last that begins at or before it, and else the first.
template <class Events>
auto FindInForce(const Events& events, std::uint32_t tick) {
    auto found = events.begin();
    for (auto event = events.begin(); event != events.end() && event->abs_time() <= tick; ++event)
        found = event;
    return found;
}

const tavo_midi::TempoMap& GetTempos(ShowHandle& show, const tavo_midi::SongData& song) {
    if (show.tempos.song != &song)
        show.tempos = {&song, tavo_midi::TempoMap(song.GetTimeline().GetTempos(), song.GetTicksPerQuarter())};
    return show.tempos.map;
}

double GetSeconds(ShowHandle& show, const tavo_midi::SongData& song, std::uint32_t tick) {
    const tavo_midi::TempoMap& tempos = GetTempos(show, song);
    return tempos.GetSeconds(tick) - tempos.GetSeconds(song.GetTimeline().GetStartTickIndex());
}

tavo_song MakeSong(ShowHandle& show, const tavo_midi::SongData& song) {
    stage::EditTarget& edits = show.access->GetEdits();
    tavo_song result{};
    result.number = song.GetSongNumber().c_str();
    result.title = song.GetTitle().c_str();
    result.start_tick = song.GetTimeline().GetStartTickIndex();
    result.end_tick = song.GetTimeline().GetEndTickIndex();
    result.ticks_per_quarter = song.GetTicksPerQuarter();
    result.bar_count = static_cast<std::uint32_t>(edits.GetPositions(song.GetSongNumber()).GetBars().size());
    result.seconds = stage::GetWrittenSeconds(song);
    result.attacca = stage::FindSongLog(*edits.GetLog(), song.GetSongNumber()).GetAttacca();
    return result;
}

tavo_bar MakeBar(ShowHandle& show, const tavo_midi::SongData& song, const TL::BarPositions::Bar& bar) {
    const TL::Timeline& timeline = song.GetTimeline();
    tavo_bar result{};
    result.label = bar.label.c_str();
    result.start_tick = bar.startTick;
    result.end_tick = bar.endTick;
    result.seconds = GetSeconds(show, song, bar.startTick);
    const auto meter = FindInForce(timeline.GetMeters(), bar.startTick);
    const bool hasMeter = meter != timeline.GetMeters().end();
    result.meter_numerator = hasMeter ? meter->numerator() : 4;
    result.meter_denominator = hasMeter ? meter->denominator() : 4;
    const tavo_midi::TempoMap& tempos = GetTempos(show, song);
    result.quarters_per_minute = 60e6 / tempos.GetSegments()[tempos.FindSegment(bar.startTick)].microsecondsPerQuarter;
    return result;
}

/// A marker's text as it is, not as it stands in a sentence.
std::string DescribeValueOf(const cmn::TavoEvent& edit) {
    const auto* marker = dynamic_cast<const CL::Marker*>(&edit);
    return marker != nullptr ? marker->value() : CL::DescribeValue(edit);
}

void ListEditsOf(ShowHandle& show, const tavo_midi::SongData& song) {
    stage::EditTarget& target = show.access->GetEdits();
    const std::string& number = song.GetSongNumber();
    const TL::BarPositions& positions = target.GetPositions(number);
    const std::shared_ptr<const CL::ChangeLog> log = target.GetLog();
    const std::vector<std::size_t> ids = target.GetIds(number);
    std::vector<ShowHandle::ListedEdit> edits;
    for (const stage::ListedEdit& listed : stage::ListEdits(stage::FindSongLog(*log, number))) {
        const std::size_t place = edits.size();
        edits.push_back({static_cast<std::uint32_t>(place < ids.size() ? ids[place] : listed.id), listed.edit->start(),
                         listed.edit->end(), CL::DescribeKind(*listed.edit), CL::DescribePlace(*listed.edit, positions),
                         DescribeValueOf(*listed.edit)});
    }
    show.edits = std::move(edits);
}

/// Null is the edits as they are now.
CL::ChangeLog LoadVersion(ShowHandle& show, const char* version) {
    if (version == nullptr) return *show.access->GetEdits().GetLog();
    const stage::ShowDirectory directory = stage::ScanShowDirectory(show.access->GetPath());
    const std::string name = LookUp([&] { return stage::FindLogName(directory, version); });
    return CL::ChangeLog::Load(directory.PathOf(name));
}

void ListVersionsOf(ShowHandle& show) {
    std::vector<ShowHandle::Version> versions;
    for (stage::LogVersion& version : stage::ListVersions(stage::ScanShowDirectory(show.access->GetPath()))) {
        std::string number = version.version.GetAsString();
        versions.push_back({std::move(version), std::move(number)});
    }
    show.versions = std::move(versions);
}

tavo_version_info MakeVersion(const ShowHandle::Version& listed) {
    const stage::LogVersion& version = listed.version;
    tavo_version_info result{};
    result.version = listed.number.c_str();
    result.file = version.name.c_str();
    result.by = version.by.c_str();
    result.comment = version.comment.c_str();
    result.problem = version.problem.c_str();
    result.saved_at = std::chrono::duration_cast<std::chrono::seconds>(version.writtenAt.time_since_epoch()).count();
    result.edit_count = static_cast<std::uint32_t>(version.editCount);
    result.unsaved_count = static_cast<std::uint32_t>(version.unsavedChanges);
    result.is_in_use = version.isInUse ? 1 : 0;
    return result;
}

template <class Undo>
tavo_result UndoOrRedo(tavo_show* show, char** lines, Undo&& undo) noexcept {
    return WithShow(show, [&](ShowHandle& open) {
        const std::vector<std::string> changed = undo(*open.access);
        if (lines != nullptr) *lines = CopyLines(changed);
    });
}

}  // namespace

tavo_result tavo_show_open(const char* path, const tavo_show_options* options, tavo_show** show) {
    return Guard([&] {
        Require(path, "path");
        Require(show, "show");
        const tavo_show_options read = ReadOptions(options);
        if (read.access > TAVO_CHANGE)
            throw Problem(TAVO_BAD_ARGUMENT, "the access is neither TAVO_READ nor TAVO_CHANGE");
        auto handle = std::make_unique<ShowHandle>(
            LookUp([&] { return MakeEditedShow(path, read.access == TAVO_CHANGE, TextOrEmpty(read.version)); }));
        const std::uintptr_t number = GetShows().Open(std::move(handle));
        if (number == 0) throw Problem(TAVO_NO_MEMORY, "too many shows are open: close some");
        *show = AsShow(number);
        return TAVO_OK;
    });
}

tavo_result tavo_show_close(tavo_show* show) {
    return Guard([&]() -> tavo_result {
        {
            const HandleTable<ShowHandle>::Use use(GetShows(), NumberOf(show));
            if (use && use->access->IsOfPlayer())
                return Fail(TAVO_BAD_ARGUMENT, "the show belongs to a player and is closed with it");
        }
        switch (GetShows().Close(NumberOf(show))) {
            case HandleTable<ShowHandle>::Closing::Closed:
                GetShows().Take(NumberOf(show)).reset();
                return TAVO_OK;
            case HandleTable<ShowHandle>::Closing::InUse:
                return Fail(TAVO_BUSY, "another call uses the show: close it when that has returned");
            default:
                return Fail(TAVO_BAD_HANDLE, show == nullptr ? "the show is a null handle"
                                                             : "the show is not open: it was closed, or is no handle");
        }
    });
}

tavo_result tavo_show_title(tavo_show* show, const char** title) {
    return WithShow(show, [&](ShowHandle& open) {
        Require(title, "title");
        *title = open.access->GetEdits().GetMusic().GetTitle().c_str();
    });
}

tavo_result tavo_show_song_count(tavo_show* show, uint32_t* count) {
    return WithShow(show, [&](ShowHandle& open) {
        Require(count, "count");
        *count = static_cast<std::uint32_t>(open.access->GetEdits().GetMusic().GetSongs().size());
    });
}

tavo_result tavo_show_song(tavo_show* show, uint32_t song, tavo_song* result) {
    return WithShow(show, [&](ShowHandle& open) {
        Require(result, "result");
        *result = MakeSong(open, open.GetSong(song));
    });
}

tavo_result tavo_show_find_song(tavo_show* show, const char* number, uint32_t* song) {
    return WithShow(show, [&](ShowHandle& open) {
        Require(number, "number");
        Require(song, "song");
        const auto& songs = open.access->GetEdits().GetMusic().GetSongs();
        const auto found =
            std::find_if(songs.begin(), songs.end(), [&](const auto& each) { return each.GetSongNumber() == number; });
        if (found == songs.end()) throw Problem(TAVO_NOT_FOUND, "the show has no song \"" + std::string(number) + "\"");
        *song = static_cast<std::uint32_t>(found - songs.begin());
    });
}

tavo_result tavo_show_bar(tavo_show* show, uint32_t song, uint32_t bar, tavo_bar* result) {
    return WithShow(show, [&](ShowHandle& open) {
        Require(result, "result");
        const tavo_midi::SongData& data = open.GetSong(song);
        const auto& bars = open.access->GetEdits().GetPositions(data.GetSongNumber()).GetBars();
        if (bar >= bars.size())
            throw Problem(TAVO_NOT_FOUND, "song " + data.GetSongNumber() + " has " + std::to_string(bars.size()) +
                                              " bars, counted from 0, and none is " + std::to_string(bar));
        *result = MakeBar(open, data, bars[bar]);
    });
}

tavo_result tavo_show_find_place(tavo_show* show, uint32_t song, const char* place, uint32_t* tick) {
    return WithShow(show, [&](ShowHandle& open) {
        Require(place, "place");
        Require(tick, "tick");
        const TL::BarPositions& positions = open.access->GetEdits().GetPositions(open.GetSong(song).GetSongNumber());
        *tick = LookUp([&] { return positions.FindStartTick(place); });
    });
}

tavo_result tavo_show_describe_tick(tavo_show* show, uint32_t song, uint32_t tick, char** place) {
    return WithShow(show, [&](ShowHandle& open) {
        Require(place, "place");
        const TL::BarPositions& positions = open.access->GetEdits().GetPositions(open.GetSong(song).GetSongNumber());
        *place = CopyText(positions.DescribeTick(tick));
    });
}

tavo_result tavo_show_seconds(tavo_show* show, uint32_t song, uint32_t tick, double* seconds) {
    return WithShow(show, [&](ShowHandle& open) {
        Require(seconds, "seconds");
        *seconds = GetSeconds(open, open.GetSong(song), tick);
    });
}

tavo_result tavo_show_list_edits(tavo_show* show, uint32_t song, uint32_t* count) {
    return WithShow(show, [&](ShowHandle& open) {
        Require(count, "count");
        ListEditsOf(open, open.GetSong(song));
        *count = static_cast<std::uint32_t>(open.edits.size());
    });
}

tavo_result tavo_show_edit_at(tavo_show* show, uint32_t index, tavo_edit* result) {
    return WithShow(show, [&](ShowHandle& open) {
        Require(result, "result");
        if (index >= open.edits.size())
            throw Problem(TAVO_NOT_FOUND, "tavo_show_list_edits has listed " + std::to_string(open.edits.size()) +
                                              " edits, counted from 0, and none is " + std::to_string(index));
        const ShowHandle::ListedEdit& edit = open.edits[index];
        *result = {edit.id, edit.start, edit.end, edit.kind.c_str(), edit.place.c_str(), edit.value.c_str()};
    });
}

tavo_result tavo_show_warnings(tavo_show* show, char** lines) {
    return WithShow(show, [&](ShowHandle& open) {
        Require(lines, "lines");
        *lines = CopyLines(open.access->GetWarnings());
    });
}

tavo_result tavo_show_do_edit(tavo_show* show, const char* line) {
    return WithShow(show, [&](ShowHandle& open) {
        Require(line, "line");
        stage::DoEditLine(line, open.access->GetEdits());
    });
}

tavo_result tavo_show_undo(tavo_show* show, char** lines) {
    return UndoOrRedo(show, lines, [](ShowAccess& access) { return access.Undo(); });
}

tavo_result tavo_show_redo(tavo_show* show, char** lines) {
    return UndoOrRedo(show, lines, [](ShowAccess& access) { return access.Redo(); });
}

tavo_result tavo_show_save(tavo_show* show, uint32_t kind, const char* comment, char** version) {
    return WithShow(show, [&](ShowHandle& open) {
        if (kind > TAVO_MAJOR) throw Problem(TAVO_BAD_ARGUMENT, "the kind is neither TAVO_MINOR nor TAVO_MAJOR");
        const std::string saved = open.access->Save(kind == TAVO_MAJOR, TextOrEmpty(comment));
        if (version != nullptr) *version = CopyText(saved);
    });
}

tavo_result tavo_show_list_versions(tavo_show* show, uint32_t* count) {
    return WithShow(show, [&](ShowHandle& open) {
        Require(count, "count");
        ListVersionsOf(open);
        *count = static_cast<std::uint32_t>(open.versions.size());
    });
}

tavo_result tavo_show_version_at(tavo_show* show, uint32_t index, tavo_version_info* result) {
    return WithShow(show, [&](ShowHandle& open) {
        Require(result, "result");
        if (index >= open.versions.size())
            throw Problem(TAVO_NOT_FOUND, "tavo_show_list_versions has listed " + std::to_string(open.versions.size()) +
                                              " versions, counted from 0, and none is " + std::to_string(index));
        *result = MakeVersion(open.versions[index]);
    });
}

tavo_result tavo_show_compare(tavo_show* show, const char* from, const char* to, char** lines) {
    return WithShow(show, [&](ShowHandle& open) {
        Require(lines, "lines");
        const CL::LogChange change = CL::Compare(LoadVersion(open, from), LoadVersion(open, to));
        *lines = CopyLines(CL::DescribeChange(change, open.access->GetEdits().GetMusic()));
    });
}

tavo_result tavo_show_roll_back(tavo_show* show, const char* version) {
    return WithShow(show, [&](ShowHandle& open) {
        Require(version, "version");
        LookUp([&] { open.access->RollBackTo(version); });
    });
}
