#include "stage/engine/channel_state.h"

#include <algorithm>
#include <map>
#include <utility>

#include "tavo_midi/tick_search.h"

namespace stage {

namespace {

using tavo_midi::MidiEvent;

// Settings are numbered: the controllers, then these.
constexpr std::size_t SettingProgram = 120;
constexpr std::size_t SettingPressure = 121;
constexpr std::size_t SettingPitchBend = 122;
constexpr std::size_t SettingFirstParameter = 123;
constexpr std::size_t SettingCount = SettingFirstParameter + ChannelState::ParameterCount;

constexpr std::uint16_t InitialParameters[ChannelState::ParameterCount] = {2 << 7, 64 << 7, 64 << 7};
// What a reset of the controllers leaves alone: bank, volume, pan, the sound controllers and the effect levels.
constexpr bool SurvivesReset(std::size_t number) {
    return number == controller::BankHigh || number == controller::BankLow || number == 7 || number == 10 ||
           (number >= 70 && number <= 79) || (number >= 91 && number <= 95);
}

std::uint32_t GetSetting(const ChannelState& state, std::size_t setting) {
    if (setting < SettingProgram) return state.controllers[setting];
    if (setting == SettingProgram) return state.program;
    if (setting == SettingPressure) return state.pressure;
    if (setting == SettingPitchBend) return state.pitchBend;
    return state.parameters[setting - SettingFirstParameter];
}

void SetSetting(ChannelState& state, std::size_t setting, std::uint32_t value) {
    if (setting < SettingProgram) {
        state.controllers[setting] = static_cast<std::uint8_t>(value);
    } else if (setting == SettingProgram) {
        state.program = value;
    } else if (setting == SettingPressure) {
        state.pressure = static_cast<std::uint8_t>(value);
    } else if (setting == SettingPitchBend) {
        state.pitchBend = static_cast<std::uint16_t>(value);
    } else {
        state.parameters[setting - SettingFirstParameter] = static_cast<std::uint16_t>(value);
    }
}

void ResetControllers(ChannelState& state) {
    const ChannelState initial;
    for (std::size_t i = 0; i < state.controllers.size(); ++i)
        if (!SurvivesReset(i)) state.controllers[i] = initial.controllers[i];
    state.pitchBend = initial.pitchBend;
    state.pressure = initial.pressure;
}

void ApplyController(ChannelState& state, std::uint8_t number, std::uint8_t value) {
    if (number == controller::ResetControllers) ResetControllers(state);
    if (number >= controller::FirstMessage) return;
    state.controllers[number] = value;
    const std::size_t parameter = SelectedParameter(state);
    if (parameter == ChannelState::ParameterCount) return;
    std::uint16_t& kept = state.parameters[parameter];
    if (number == controller::DataEntryHigh)
        kept = static_cast<std::uint16_t>((kept & 0x7FU) | static_cast<unsigned int>(value) << 7);
    if (number == controller::DataEntryLow) kept = static_cast<std::uint16_t>((kept & 0x3F80U) | value);
}

}  // namespace

ChannelState::ChannelState() : controllers{} {
    controllers[7] = 100;   // volume
    controllers[8] = 64;    // balance
    controllers[10] = 64;   // pan
    controllers[11] = 127;  // expression
    for (std::size_t number = 70; number <= 79; ++number)
        controllers[number] = 64;  // sound controllers
    for (const std::size_t number : {98U, 99U, 100U, 101U})
        controllers[number] = 127;  // no parameter selected
    std::copy(std::begin(InitialParameters), std::end(InitialParameters), parameters.begin());
}

std::size_t SelectedParameter(const ChannelState& state) {
    const std::size_t low = state.controllers[controller::ParameterLow];
    return state.controllers[controller::ParameterHigh] == 0 && low < ChannelState::ParameterCount
               ? low
               : ChannelState::ParameterCount;
}

void ApplyMessage(ChannelState& state, const MidiEvent& event) {
    switch (event.status & 0xF0U) {
        case 0xB0:
            ApplyController(state, event.data1 & 0x7FU, event.data2 & 0x7FU);
            break;
        case 0xC0:
            state.program = static_cast<std::uint32_t>(state.controllers[controller::BankHigh]) << 14 |
                            static_cast<std::uint32_t>(state.controllers[controller::BankLow]) << 7 |
                            (event.data1 & 0x7FU);
            break;
        case 0xD0:
            state.pressure = event.data1 & 0x7FU;
            break;
        case 0xE0:
            state.pitchBend = static_cast<std::uint16_t>((event.data1 & 0x7FU) | (event.data2 & 0x7FU) << 7);
            break;
        default:
            break;
    }
}

ChannelHistory::ChannelHistory(const std::vector<MidiEvent>& events) {
    std::vector<ChannelState> states;
    std::map<std::pair<std::size_t, std::size_t>, Track> tracks;
    for (const MidiEvent& event : events) {
        if (event.status < 0x80 || event.status >= 0xF0) continue;
        const std::size_t channel = ChannelOf(event);
        channelCount_ = std::max(channelCount_, channel + 1);
        if (event.status < 0xB0) continue;
        if (states.size() <= channel) states.resize(channel + 1);
        const ChannelState before = states[channel];
        ApplyMessage(states[channel], event);
        if (before == states[channel]) continue;
        for (std::size_t setting = 0; setting < SettingCount; ++setting) {
            const std::uint32_t value = GetSetting(states[channel], setting);
            if (value == GetSetting(before, setting)) continue;
            Track& track = tracks[{channel, setting}];
            track.channel = channel;
            track.setting = setting;
            track.ticks.push_back(event.tick);
            track.values.push_back(value);
        }
    }
    tracks_.reserve(tracks.size());
    for (auto& [key, track] : tracks)
        tracks_.push_back(std::move(track));
}

void ChannelHistory::FindStateBefore(std::uint32_t tick, std::span<ChannelState> states) const {
    std::fill(states.begin(), states.end(), ChannelState());
    if (tick == 0) return;
    for (const Track& track : tracks_) {
        const std::size_t count = tavo_midi::CountNotAfter<std::uint32_t>(track.ticks, tick - 1);
        if (count > 0 && track.channel < states.size()) {
            SetSetting(states[track.channel], track.setting, track.values[count - 1]);
        }
    }
}

}  // namespace stage
