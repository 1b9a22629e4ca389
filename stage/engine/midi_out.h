#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "stage/engine/channel_state.h"
#include "stage/engine/group_plan.h"
#include "stage/engine/synth.h"

namespace stage {

/// A MIDI channel message that leaves at a frame of the session.
struct MidiOutEvent {
    std::int64_t frame = 0;
    std::uint8_t port = 0;  ///< index of its name in MidiOut::GetPorts
    std::uint8_t size = 3;
    std::array<std::uint8_t, 3> bytes{};

    bool operator==(const MidiOutEvent&) const = default;
};

/// The music as MIDI: what the synthesizer is told of the channels of groups with a port goes there too, notes,
/// settings and ends of notes alike, at the same frame. Volume, mute and solo are the sound's and change nothing here;
/// system-exclusive messages stay inside. Used by the rendering thread; only the constructor allocates.
class MidiOut final : public SynthListener {
public:
    /// Takes an event; real-time safe.
    using Sink = std::function<void(const MidiOutEvent&)>;

    /// `plan` outlives the object.
    explicit MidiOut(const GroupPlan& plan);

    /// The names of the ports, each once, in the order of the groups.
    [[nodiscard]] const std::vector<std::string>& GetPorts() const { return ports_; }
    /// While nobody renders.
    void SetSink(Sink sink) { sink_ = std::move(sink); }

    /// From now on the channels are those of the song, set to `states`: a device may have been switched on meanwhile,
    /// so it is told all that matters.
    void FollowSong(const tavo_midi::SongData& song, std::span<const ChannelState> states, std::int64_t frame);
    /// Silence at once on every channel that was used.
    void Silence(std::int64_t frame);

    // SynthListener.
    void OnSynthMessage(const SynthMessage& message) override;

private:
    static constexpr std::uint8_t NoPort = 255;

    void Send_(std::int64_t frame, std::size_t channel, std::uint8_t status, std::uint8_t data1, std::uint8_t data2);
    void SendState_(std::int64_t frame, std::size_t channel, const ChannelState& state);

    const GroupPlan& plan_;
    std::vector<std::string> ports_;
    std::vector<std::uint8_t> portOfStrip_;
    std::array<std::uint8_t, MaxGroupedChannels> portOfChannel_{};
    Sink sink_;
    const tavo_midi::SongData* song_ = nullptr;
};

}  // namespace stage
