// Any bytes as a Standard MIDI File: they become songs that hold together, or one sentence.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <string_view>

#include "tavo_midi/smf_reader.h"
#include "tavo_midi/song_builder.h"

namespace {

void Require(bool holds) {
    if (!holds) std::abort();
}

void RequireSound(const tavo_midi::SongData& song) {
    const auto& events = song.GetEvents();
    Require(std::is_sorted(events.begin(), events.end(), [](const auto& a, const auto& b) { return a.tick < b.tick; }));
    for (const tavo_midi::MidiEvent& event : events) {
        Require(event.status >= 0x80 && event.status <= 0xF0);
        if (event.status == 0xF0) Require(!song.GetSysex(event).empty());
    }
    const TL::Timeline& timeline = song.GetTimeline();
    Require(timeline.GetStartTickIndex() <= timeline.GetEndTickIndex());
    Require(timeline.GetBarsBeats().size() <= tavo_midi::MaxSongBeats);
    Require(std::is_sorted(timeline.GetBarsBeats().begin(), timeline.GetBarsBeats().end(),
                           [](const auto& a, const auto& b) { return a.abs_time() < b.abs_time(); }));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    try {
        const tavo_midi::Smf smf = tavo_midi::ReadSmf(bytes, "fuzz.mid");
        const std::size_t sequences = std::min<std::size_t>(tavo_midi::CountSequences(smf), 4);
        for (std::size_t sequence = 0; sequence < sequences; ++sequence) {
            tavo_midi::SongOptions options;
            options.number = "1";
            options.sequence = sequence;
            // The last byte chooses a pick-up, so that both ways of building are met.
            options.pickupBeats = data[size - 1] % 4;
            RequireSound(tavo_midi::BuildSong(smf, options, "fuzz.mid"));
        }
    } catch (const std::runtime_error& error) {
        Require(std::string_view(error.what()).find('\n') == std::string_view::npos);
    }
    return 0;
}
