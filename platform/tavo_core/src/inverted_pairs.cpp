#include <fmt/format.h>

#include <type_traits>
#include <utility>

#include "song_positions.h"
#include "tavo_core/active_change_log.h"
#include "tavo_core/edit_text.h"
#include "tavo_core/editor.h"

namespace CL {

namespace {

Vamp WithEndsExchanged(const Vamp& edit) {
    return {edit.end(), edit.start(), edit.int_value()};
}
Repeat WithEndsExchanged(const Repeat& edit) {
    return {edit.end(), edit.start(), edit.int_value()};
}
Cut WithEndsExchanged(const Cut& edit) {
    return {edit.end(), edit.start()};
}
Fermata WithEndsExchanged(const Fermata& edit) {
    return {edit.end(), edit.start()};
}
Transposition WithEndsExchanged(const Transposition& edit) {
    return {edit.end(), edit.start(), edit.int_value()};
}
TempoScale WithEndsExchanged(const TempoScale& edit) {
    return {edit.end(), edit.start(), edit.float_value()};
}
Click WithEndsExchanged(const Click& edit) {
    return {edit.end(), edit.start(), edit.int_value()};
}
Sfx WithEndsExchanged(const Sfx& edit) {
    return {edit.end(), edit.start(), edit.sound(), edit.gain_db()};
}
SfxAmbient WithEndsExchanged(const SfxAmbient& edit) {
    return {edit.end(), edit.start(), edit.sound(), edit.gain_db()};
}

bool IsInverted(const cmn::TavoEvent& edit) {
    return edit.end() < edit.start();
}

/// What exchanging the ends of the inverted edits of `log` changes.
LogChange FindRepairs(const ChangeLog& log) {
    LogChange repairs;
    for (const auto& [number, songLog] : log.GetSongLogs()) {
        SongChange song{number, {}, {}, {}};
        songLog.ForEachSequence([&song](const auto& sequence) {
            using Edit = typename std::remove_cvref_t<decltype(sequence)>::value_type;
            if constexpr (std::is_base_of_v<PairedEvent, Edit>) {
                for (const Edit& edit : sequence) {
                    if (!IsInverted(edit)) continue;
                    song.removed.emplace_back(edit);
                    song.added.emplace_back(WithEndsExchanged(edit));
                }
            }
        });
        if (!song.removed.empty()) repairs.songs.push_back(std::move(song));
    }
    return repairs;
}

}  // namespace

unsigned int FixInvertedPairedEvents(const TL::ShowTimelines& timelines, std::string* description) {
    return FixInvertedPairedEvents(timelines, description, GetActiveLogHolder());
}

unsigned int FixInvertedPairedEvents(const TL::ShowTimelines& timelines, std::string* description, LogHolder& holder) {
    LogChange repairs;
    {
        // Most logs have none, and are then not kept from their readers.
        const LogHolder::Shared log(holder);
        if (FindRepairs(*log).IsEmpty()) return 0;
    }
    holder.Replace([&repairs](const ChangeLog& current) {
        repairs = FindRepairs(current);
        auto repaired = std::make_shared<ChangeLog>(current);
        Apply(repairs, *repaired);
        return repaired;
    });
    unsigned int count = 0;
    for (const SongChange& song : repairs.songs) {
        const TL::BarPositions positions = PositionsOf(song.songNumber, timelines);
        for (const AnyEdit& edit : song.added) {
            ++count;
            if (description == nullptr) continue;
            *description += fmt::format("song {}: {}: its end stood before its start, the two were exchanged\n",
                                        song.songNumber, DescribeEdit(EventOf(edit), positions));
        }
    }
    return count;
}

}  // namespace CL
