#include "stage/show/song_json.h"

#include <nlohmann/json.hpp>

#include "stage/show/edit_list.h"
#include "stage/show/json_list.h"
#include "stage/show/song_length.h"
#include "tavo_core/as_string.h"
#include "tavo_core/beat_ticks.h"
#include "tavo_core/edit_text.h"

namespace stage {

namespace {

using Json = nlohmann::ordered_json;

TL::TimelineSequence<TL::BarsBeats> FindClickedBeats(const tavo_midi::SongData& song, const CL::SongLog& songLog) {
    const TL::Timeline& timeline = song.GetTimeline();
    return ApplyClicks(timeline.GetBarsBeats(), songLog.GetClicks(), timeline.GetMeters(), song.GetTicksPerQuarter());
}

}  // namespace

nlohmann::ordered_json MakeEditJson(const CL::SongLog& songLog, const TL::BarPositions& positions) {
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const ListedEdit& listed : ListEdits(songLog))
        list.push_back({{"kind", CL::DescribeKind(*listed.edit)},
                        {"start", listed.edit->start()},
                        {"end", listed.edit->end()},
                        {"place", CL::DescribePlace(*listed.edit, positions)},
                        {"value", CL::DescribeValue(*listed.edit)}});
    return list;
}

nlohmann::ordered_json MakeSongJson(const tavo_midi::SongData& song, const CL::SongLog& songLog) {
    const TL::Timeline& timeline = song.GetTimeline();
    Json json;
    json["number"] = song.GetSongNumber();
    json["title"] = song.GetTitle();
    json["ticksPerQuarter"] = song.GetTicksPerQuarter();
    json["startTick"] = timeline.GetStartTickIndex();
    json["endTick"] = timeline.GetEndTickIndex();
    json["seconds"] = GetWrittenSeconds(song);
    json["bars"] = MakeJsonList(TL::BarPositions(timeline).GetBars(), [](const auto& bar) {
        return Json{{"label", bar.label}, {"tick", bar.startTick}};
    });
    json["beats"] = MakeJsonList(timeline.GetBarsBeats(), [](const auto& beat) { return Json(beat.abs_time()); });
    json["tempos"] = MakeJsonList(timeline.GetTempos(), [&song](const auto& tempo) {
        Json entry{{"tick", tempo.abs_time()}, {"bpm", tempo.quarters_per_minute()}};
        if (song.IsGuessedTempo(tempo.abs_time())) entry["guessed"] = true;
        return entry;
    });
    json["meters"] = MakeJsonList(timeline.GetMeters(), [](const auto& meter) {
        return Json{{"tick", meter.abs_time()}, {"numerator", meter.numerator()}, {"denominator", meter.denominator()}};
    });
    json["keys"] = MakeJsonList(timeline.GetKeys(), [](const auto& key) {
        return Json{{"tick", key.abs_time()}, {"name", as_string(key)}};
    });
    json["pages"] = MakeJsonList(timeline.GetPageNums(), [](const auto& page) {
        return Json{{"number", page.page_number()}, {"tick", page.abs_time()}};
    });
    json["markers"] = MakeJsonList(songLog.GetMarkers(), [](const auto& marker) {
        return Json{{"tick", marker.abs_time()}, {"text", marker.value()}};
    });
    json["attacca"] = DescribeAttacca(songLog.GetAttacca());
    json["edits"] = MakeEditJson(songLog, TL::BarPositions(timeline));
    json["clickedBeats"] = MakeJsonList(FindClickedBeats(song, songLog), [](const auto& beat) {
        return Json{{"tick", beat.abs_time()}, {"bar", beat.bar_number()}, {"beat", beat.beat()}};
    });
    return json;
}

std::size_t CountClickedBeats(const tavo_midi::SongData& song, const CL::SongLog& songLog) {
    return FindClickedBeats(song, songLog).size();
}

nlohmann::ordered_json MakeVersionJson(const LogVersion& entry) {
    return {{"version", entry.version.GetAsString()},
            {"file", entry.name},
            {"edits", entry.editCount},
            {"inUse", entry.isInUse},
            {"unsavedChanges", entry.unsavedChanges}};
}

const CL::SongLog& FindSongLog(const CL::ChangeLog& log, const std::string& number) {
    static const CL::SongLog none;
    const auto found = log.GetSongLogs().find(number);
    return found == log.GetSongLogs().end() ? none : found->second;
}

}  // namespace stage
