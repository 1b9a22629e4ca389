#include "stage/engine/synth.h"

#include <fluidsynth.h>
#include <fmt/format.h>

#include <algorithm>
#include <numeric>
#include <stdexcept>

namespace stage {

namespace {

constexpr std::size_t ChannelsPerPort = 16;
constexpr std::size_t PercussionChannel = 9;
constexpr int Polyphony = 256;
// Loud enough for a full pit without clipping; a single voice stays well below.
constexpr double SynthGain = 0.4;
constexpr int DrumBank = 128;

bool IsPercussion(std::size_t channel) {
    return channel % ChannelsPerPort == PercussionChannel;
}

int AsInt(std::size_t number) {
    return static_cast<int>(number);
}

void IgnoreLog(int, const char*, void*) {}

}  // namespace

struct Synth::Fluid {
    Fluid(std::uint32_t framesPerSecond, std::size_t channels, Mix mix)
        : isUsed(channels), settings(new_fluid_settings()) {
        // A SoundFont's missing drum kits and the like are no news to a theatre; failures are reported by return
        // values.
        for (const int level : {FLUID_PANIC, FLUID_ERR, FLUID_WARN, FLUID_INFO, FLUID_DBG})
            fluid_set_log_function(level, &IgnoreLog, nullptr);
        fluid_settings_setnum(settings, "synth.sample-rate", framesPerSecond);
        fluid_settings_setnum(settings, "synth.gain", SynthGain);
        fluid_settings_setint(settings, "synth.polyphony", Polyphony);
        fluid_settings_setint(settings, "synth.midi-channels", AsInt(channels));
        // Both effects allocate and wake helper threads in every block; the synth's own lock would be one too many.
        fluid_settings_setint(settings, "synth.reverb.active", 0);
        fluid_settings_setint(settings, "synth.chorus.active", 0);
        fluid_settings_setint(settings, "synth.threadsafe-api", 0);
        fluid_settings_setint(settings, "synth.cpu-cores", 1);
        if (mix == Mix::Groups) {
            // An output for each channel: so a channel's group may be another one at any time.
            fluid_settings_setint(settings, "synth.audio-channels", AsInt(channels));
            fluid_settings_setint(settings, "synth.audio-groups", AsInt(channels));
        }
        synth = new_fluid_synth(settings);
        if (synth == nullptr) {
            delete_fluid_settings(settings);
            throw std::runtime_error(
                fmt::format("the synthesizer does not start at {} frames a second", framesPerSecond));
        }
    }
    ~Fluid() {
        delete_fluid_synth(synth);
        delete_fluid_settings(settings);
    }
    void LoadSoundFont(const std::string& path) {
        // Channels have an instrument from the first one on; those after it are asked for.
        const bool isFirst = fonts.empty();
        const int id = fluid_is_soundfont(path.c_str()) != 0 ? fluid_synth_sfload(synth, path.c_str(), isFirst ? 1 : 0)
                                                             : FLUID_FAILED;
        if (id == FLUID_FAILED)
            throw std::runtime_error(fmt::format("the file \"{}\" cannot be read as a SoundFont", path));
        fonts.push_back(fluid_synth_get_sfont_by_id(synth, id));
    }
    /// False where the SoundFont does not have it.
    [[nodiscard]] bool Choose(std::size_t channel, std::size_t font, int bank, int program) const {
        if (fluid_sfont_get_preset(fonts[font], bank, program) == nullptr) return false;
        return fluid_synth_program_select(synth, AsInt(channel), fluid_sfont_get_id(fonts[font]), bank, program) ==
               FLUID_OK;
    }
    Fluid(const Fluid&) = delete;
    Fluid& operator=(const Fluid&) = delete;

    /// Of each channel, whether a note was ever played on it.
    std::vector<bool> isUsed;
    fluid_settings_t* settings = nullptr;
    fluid_synth_t* synth = nullptr;
    std::vector<fluid_sfont_t*> fonts;
};

std::uint8_t TransposeKey(std::uint8_t key, int semitones) {
    int transposed = key + semitones;
    while (transposed < 0)
        transposed += 12;
    while (transposed > 127)
        transposed -= 12;
    return static_cast<std::uint8_t>(transposed);
}

Synth::Synth(const std::string& soundFontPath, std::uint32_t framesPerSecond, std::size_t channels, Mix mix) {
    const std::size_t ports = mix == Mix::One ? 16 : 8;
    channels = std::clamp<std::size_t>((channels + ChannelsPerPort - 1) / ChannelsPerPort, 1, ports) * ChannelsPerPort;
    fluid_ = std::make_unique<Fluid>(framesPerSecond, channels, mix);
    if (mix == Mix::Groups) {
        groupOfChannel_.resize(channels);
        outputs_.resize(2 * channels);
    }
    states_.resize(channels);
    notes_.resize(channels * KeyCount);
    notesSounding_.resize(channels);
    for (std::size_t channel = PercussionChannel; channel < channels; channel += ChannelsPerPort)
        fluid_synth_set_channel_type(fluid_->synth, AsInt(channel), CHANNEL_TYPE_DRUM);
    fluid_->LoadSoundFont(soundFontPath);
}

Synth::~Synth() = default;

void Synth::Tell_(std::size_t channel, std::uint8_t status, std::uint8_t data1, std::uint8_t data2) {
    if (observer_) observer_({renderedFrames_, channel, status, data1, data2});
    if (listener_ != nullptr) listener_->OnSynthMessage({renderedFrames_, channel, status, data1, data2});
}

void Synth::PlayNote(std::size_t channel, std::uint8_t key, std::uint8_t velocity, int transposition) {
    if (channel >= states_.size()) return;
    const std::uint8_t soundingKey = IsPercussion(channel) ? key : TransposeKey(key, transposition);
    SoundingNote& note = NoteAt_(channel, key);
    // Struck again at another pitch: its end will be that of the new pitch, so the old one ends here.
    if (note.count > 0 && note.soundingKey != soundingKey) {
        StopKey_(channel, note.soundingKey);
        note.count = 0;
        --notesSounding_[channel];
    }
    if (note.count == 0) ++notesSounding_[channel];
    if (note.count < 255) ++note.count;
    note.soundingKey = soundingKey;
    fluid_->isUsed[channel] = true;
    fluid_synth_noteon(AtPresent_().synth, AsInt(channel), soundingKey, velocity);
    Tell_(channel, 0x90, soundingKey, velocity);
}

void Synth::EndNote(std::size_t channel, std::uint8_t key) {
    if (channel >= states_.size()) return;
    SoundingNote& note = NoteAt_(channel, key);
    if (note.count == 0) return;
    if (--note.count == 0) --notesSounding_[channel];
    StopKey_(channel, note.soundingKey);
}

void Synth::StopKey_(std::size_t channel, std::uint8_t soundingKey) {
    fluid_synth_noteoff(AtPresent_().synth, AsInt(channel), soundingKey);
    Tell_(channel, 0x80, soundingKey, 0);
}

void Synth::PlayMessage(const tavo_midi::MidiEvent& event) {
    const std::size_t channel = ChannelOf(event);
    if (channel >= states_.size()) return;
    const std::uint8_t data1 = event.data1 & 0x7FU;
    const std::uint8_t data2 = event.data2 & 0x7FU;
    ApplyMessage(states_[channel], event);
    switch (event.status & 0xF0U) {
        case 0xA0:
            fluid_synth_key_pressure(AtPresent_().synth, AsInt(channel), data1, data2);
            break;
        case 0xB0:
            SendController_(channel, data1, data2);
            if (data1 == controller::AllSoundOff || data1 >= controller::AllNotesOff) ForgetNotes_(channel);
            return;
        case 0xC0:
            ChooseInstrument_(channel, states_[channel].program);
            break;
        case 0xD0:
            fluid_synth_channel_pressure(AtPresent_().synth, AsInt(channel), data1);
            break;
        case 0xE0:
            fluid_synth_pitch_bend(AtPresent_().synth, AsInt(channel), states_[channel].pitchBend);
            break;
        default:
            return;
    }
    Tell_(channel, event.status & 0xF0U, data1, data2);
}

void Synth::PlaySysex(const std::vector<std::uint8_t>& message) {
    if (message.size() < 3) return;
    // The synthesizer wants the bytes between the first and the last.
    fluid_synth_sysex(AtPresent_().synth, reinterpret_cast<const char*>(message.data() + 1), AsInt(message.size() - 2),
                      nullptr, nullptr, nullptr, 0);
}

void Synth::ForgetNotes_(std::size_t channel) {
    std::fill_n(notes_.begin() + static_cast<std::ptrdiff_t>(channel * KeyCount), KeyCount, SoundingNote());
    notesSounding_[channel] = 0;
}

void Synth::EndAllNotes() {
    for (std::size_t channel = 0; channel < states_.size(); ++channel) {
        for (const std::uint8_t pedal : {controller::Sustain, controller::Sostenuto}) {
            if (states_[channel].controllers[pedal] == 0) continue;
            states_[channel].controllers[pedal] = 0;
            SendController_(channel, pedal, 0);
        }
        if (notesSounding_[channel] == 0) continue;
        for (std::size_t key = 0; key < KeyCount; ++key) {
            const SoundingNote& note = NoteAt_(channel, static_cast<std::uint8_t>(key));
            if (note.count > 0) StopKey_(channel, note.soundingKey);
        }
        ForgetNotes_(channel);
    }
}

void Synth::SilenceAll() {
    EndAllNotes();
    fluid_synth_all_sounds_off(AtPresent_().synth, -1);
}

void Synth::SilenceAll(float* left, float* right, std::uint32_t frames) {
    fluid_synth_write_float(AtPresent_().synth, AsInt(frames), left, 0, 1, right, 0, 1);
    SilenceAll();
}

void Synth::SilenceAll(std::span<const StereoBuffer> groups, std::uint32_t frames) {
    FinishRendering();
    WriteGroups_(groups, frames);
    SilenceAll();
}

std::size_t Synth::CountSoundingNotes() const {
    return std::accumulate(notesSounding_.begin(), notesSounding_.end(), std::size_t{0});
}

void Synth::SendController_(std::size_t channel, std::uint8_t number, std::uint8_t value) {
    fluid_synth_cc(AtPresent_().synth, AsInt(channel), number, value);
    Tell_(channel, 0xB0, number, value);
}

void Synth::SendProgram_(std::size_t channel, std::uint32_t program) {
    SendController_(channel, controller::BankHigh, static_cast<std::uint8_t>(program >> 14 & 0x7FU));
    SendController_(channel, controller::BankLow, static_cast<std::uint8_t>(program >> 7 & 0x7FU));
    ChooseInstrument_(channel, program);
    Tell_(channel, 0xC0, static_cast<std::uint8_t>(program & 0x7FU), 0);
}

// The synthesizer itself seeks a program in all SoundFonts, the last one first.
void Synth::ChooseInstrument_(std::size_t channel, std::uint32_t program) {
    const Fluid& fluid = AtPresent_();
    const int number = static_cast<int>(program & 0x7FU);
    if (fluid.fonts.size() == 1) {
        fluid_synth_program_change(fluid.synth, AsInt(channel), number);
        return;
    }
    const int bank = IsPercussion(channel) ? DrumBank : static_cast<int>(program >> 14 & 0x7FU);
    const int otherBank = IsPercussion(channel) ? DrumBank : 0;
    const std::size_t font = FontOf_(channel);
    if (font > 0 && (fluid.Choose(channel, font, bank, number) || fluid.Choose(channel, font, otherBank, number)))
        return;
    // From here on as if there were the first one only.
    if (fluid.Choose(channel, 0, bank, number) || fluid.Choose(channel, 0, otherBank, number) ||
        fluid.Choose(channel, 0, otherBank, 0))
        return;
    fluid_synth_unset_program(fluid.synth, AsInt(channel));
}

std::size_t Synth::FontOf_(std::size_t channel) const {
    const std::size_t group = IsGrouped_() ? groupOfChannel_[channel] : 0;
    return group < fontOfGroup_.size() ? fontOfGroup_[group] : 0;
}

std::uint8_t Synth::AddSoundFont(const std::string& path) {
    fluid_->LoadSoundFont(path);
    return static_cast<std::uint8_t>(fluid_->fonts.size() - 1);
}

void Synth::ApplyStates(std::span<const ChannelState> states) {
    for (std::size_t channel = 0; channel < states_.size(); ++channel) {
        if (states_[channel] == states[channel]) continue;
        ApplyState_(channel, states[channel]);
        states_[channel] = states[channel];
    }
}

void Synth::ApplyState_(std::size_t channel, const ChannelState& target) {
    ChannelState& now = states_[channel];
    if (now.program != target.program) {
        SendProgram_(channel, target.program);
        now.controllers[controller::BankHigh] = static_cast<std::uint8_t>(target.program >> 14 & 0x7FU);
        now.controllers[controller::BankLow] = static_cast<std::uint8_t>(target.program >> 7 & 0x7FU);
    }
    if (now.parameters != target.parameters) ApplyParameters_(channel, target);
    for (std::size_t number = 0; number < target.controllers.size(); ++number) {
        const bool isDataEntry = number == controller::DataEntryHigh || number == controller::DataEntryLow;
        // A data entry would write into whatever parameter is selected; the parameters were set above.
        if (isDataEntry || now.controllers[number] == target.controllers[number]) continue;
        SendController_(channel, static_cast<std::uint8_t>(number), target.controllers[number]);
    }
    if (now.pressure != target.pressure) {
        fluid_synth_channel_pressure(AtPresent_().synth, AsInt(channel), target.pressure);
        Tell_(channel, 0xD0, target.pressure, 0);
    }
    if (now.pitchBend != target.pitchBend) {
        fluid_synth_pitch_bend(AtPresent_().synth, AsInt(channel), target.pitchBend);
        Tell_(channel, 0xE0, target.pitchBend & 0x7FU, static_cast<std::uint8_t>(target.pitchBend >> 7));
    }
}

void Synth::ApplyParameters_(std::size_t channel, const ChannelState& target) {
    ChannelState& now = states_[channel];
    for (std::size_t parameter = 0; parameter < ChannelState::ParameterCount; ++parameter) {
        const std::uint16_t value = target.parameters[parameter];
        if (now.parameters[parameter] == value) continue;
        SendController_(channel, controller::ParameterHigh, 0);
        SendController_(channel, controller::ParameterLow, static_cast<std::uint8_t>(parameter));
        SendController_(channel, controller::DataEntryHigh, static_cast<std::uint8_t>(value >> 7));
        SendController_(channel, controller::DataEntryLow, value & 0x7FU);
        now.controllers[controller::ParameterHigh] = 0;
        now.controllers[controller::ParameterLow] = static_cast<std::uint8_t>(parameter);
    }
}

void Synth::Render(float* left, float* right, std::uint32_t frames) {
    if (left != nextLeft_ + unwrittenFrames_ || right != nextRight_ + unwrittenFrames_) {
        FinishRendering();
        nextLeft_ = left;
        nextRight_ = right;
    }
    unwrittenFrames_ += frames;
    renderedFrames_ += frames;
}

void Synth::FinishRendering() {
    if (unwrittenFrames_ == 0) return;
    if (IsGrouped_()) {
        WriteGroups_(nextOfGroups_, unwrittenFrames_);
        for (StereoBuffer& group : nextOfGroups_)
            group = {group.left + unwrittenFrames_, group.right + unwrittenFrames_};
        unwrittenFrames_ = 0;
        return;
    }
    fluid_synth_write_float(fluid_->synth, static_cast<int>(unwrittenFrames_), nextLeft_, 0, 1, nextRight_, 0, 1);
    nextLeft_ += unwrittenFrames_;
    nextRight_ += unwrittenFrames_;
    unwrittenFrames_ = 0;
}

void Synth::AssignChannels(std::span<const std::uint8_t> groupOfChannel) {
    FinishRendering();
    for (std::size_t channel = 0; channel < std::min(groupOfChannel.size(), groupOfChannel_.size()); ++channel) {
        const std::size_t fontBefore = FontOf_(channel);
        groupOfChannel_[channel] = groupOfChannel[channel];
        if (FontOf_(channel) != fontBefore) ChooseInstrument_(channel, states_[channel].program);
    }
}

void Synth::RenderGroups(std::span<const StereoBuffer> groups, std::uint32_t frames) {
    const bool goesOn = !nextOfGroups_.empty() && groups.front().left == nextOfGroups_.front().left + unwrittenFrames_;
    if (!goesOn) {
        FinishRendering();
        nextOfGroups_.assign(groups.begin(), groups.end());
    }
    unwrittenFrames_ += frames;
    renderedFrames_ += frames;
}

// The synthesizer adds each output to what is in its place: those of a group have the same one. Where nothing has
// sounded it is spared the adding.
void Synth::WriteGroups_(std::span<const StereoBuffer> groups, std::uint32_t frames) {
    for (const StereoBuffer& group : groups) {
        std::fill_n(group.left, frames, 0.0F);
        std::fill_n(group.right, frames, 0.0F);
    }
    for (std::size_t channel = 0; channel < groupOfChannel_.size(); ++channel) {
        const StereoBuffer& group = groups[std::min<std::size_t>(groupOfChannel_[channel], groups.size() - 1)];
        outputs_[2 * channel] = fluid_->isUsed[channel] ? group.left : nullptr;
        outputs_[2 * channel + 1] = fluid_->isUsed[channel] ? group.right : nullptr;
    }
    fluid_synth_process(fluid_->synth, AsInt(frames), 0, nullptr, AsInt(outputs_.size()), outputs_.data());
}

Synth::Fluid& Synth::AtPresent_() {
    FinishRendering();
    return *fluid_;
}

}  // namespace stage
