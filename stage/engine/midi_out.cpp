#include "stage/engine/midi_out.h"

#include <algorithm>
#include <utility>

#include "tavo_midi/midi_status.h"

namespace stage {

namespace {

namespace status_byte = tavo_midi::status_byte;

}  // namespace

MidiOut::MidiOut(const GroupPlan& plan) : plan_(plan), portOfStrip_(plan.CountStrips(), NoPort) {
    portOfChannel_.fill(NoPort);
    for (std::size_t i = 0; i < plan.groups.size(); ++i) {
        const std::string& name = plan.groups[i].midiPort;
        if (name.empty()) continue;
        auto found = std::ranges::find(ports_, name);
        if (found == ports_.end()) found = ports_.insert(ports_.end(), name);
        portOfStrip_[i + 1] = static_cast<std::uint8_t>(found - ports_.begin());
    }
}

void MidiOut::FollowSong(const tavo_midi::SongData& song, std::span<const ChannelState> states, std::int64_t frame) {
    if (&song == std::exchange(song_, &song)) return;
    const auto strips = plan_.stripsOfSongs.find(&song);
    if (strips == plan_.stripsOfSongs.end()) return;
    const std::size_t count = std::min({states.size(), strips->second.size(), portOfChannel_.size()});
    for (std::size_t channel = 0; channel < count; ++channel) {
        portOfChannel_.at(channel) = portOfStrip_[strips->second[channel]];
        if (portOfChannel_.at(channel) != NoPort) SendState_(frame, channel, states[channel]);
    }
}

void MidiOut::SendState_(std::int64_t frame, std::size_t channel, const ChannelState& state) {
    Send_(frame, channel, status_byte::ControlChange, controller::ResetControllers, 0);
    Send_(frame, channel, status_byte::ControlChange, controller::BankHigh,
          static_cast<std::uint8_t>(state.program >> 14 & 0x7FU));
    Send_(frame, channel, status_byte::ControlChange, controller::BankLow,
          static_cast<std::uint8_t>(state.program >> 7 & 0x7FU));
    Send_(frame, channel, status_byte::ProgramChange, static_cast<std::uint8_t>(state.program & 0x7FU), 0);
    const ChannelState initial;
    for (std::size_t parameter = 0; parameter < ChannelState::ParameterCount; ++parameter) {
        const std::uint16_t value = state.parameters.at(parameter);
        Send_(frame, channel, status_byte::ControlChange, controller::ParameterHigh, 0);
        Send_(frame, channel, status_byte::ControlChange, controller::ParameterLow,
              static_cast<std::uint8_t>(parameter));
        Send_(frame, channel, status_byte::ControlChange, controller::DataEntryHigh,
              static_cast<std::uint8_t>(value >> 7));
        Send_(frame, channel, status_byte::ControlChange, controller::DataEntryLow, value & 0x7FU);
    }
    for (std::size_t number = 0; number < state.controllers.size(); ++number) {
        const bool isSelection = number == controller::BankHigh || number == controller::BankLow ||
                                 number == controller::DataEntryHigh || number == controller::DataEntryLow;
        // Volume, pan and expression always: a reset leaves the first two alone.
        const bool isBasic = number == 7 || number == 10 || number == 11;
        const bool isChanged = state.controllers.at(number) != initial.controllers.at(number);
        const bool isParameter = number == controller::ParameterLow || number == controller::ParameterHigh;
        if (isSelection || !(isBasic || isChanged || isParameter)) continue;
        Send_(frame, channel, status_byte::ControlChange, static_cast<std::uint8_t>(number),
              state.controllers.at(number));
    }
    Send_(frame, channel, status_byte::ChannelPressure, state.pressure, 0);
    Send_(frame, channel, status_byte::PitchBend, state.pitchBend & 0x7FU,
          static_cast<std::uint8_t>(state.pitchBend >> 7));
}

void MidiOut::Silence(std::int64_t frame) {
    for (std::size_t channel = 0; channel < portOfChannel_.size(); ++channel)
        if (portOfChannel_.at(channel) != NoPort) {
            Send_(frame, channel, status_byte::ControlChange, controller::AllNotesOff, 0);
            Send_(frame, channel, status_byte::ControlChange, controller::AllSoundOff, 0);
        }
}

void MidiOut::OnSynthMessage(const SynthMessage& message) {
    Send_(message.frame, message.channel, message.status, message.data1, message.data2);
}

void MidiOut::Send_(std::int64_t frame, std::size_t channel, std::uint8_t status, std::uint8_t data1,
                    std::uint8_t data2) {
    if (!sink_ || channel >= portOfChannel_.size() || portOfChannel_.at(channel) == NoPort) return;
    sink_({frame,
           portOfChannel_.at(channel),
           static_cast<std::uint8_t>(tavo_midi::CountMessageBytes(status)),
           {static_cast<std::uint8_t>(status | channel % 16), data1, data2}});
}

}  // namespace stage
