#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "stage/engine/channel_state.h"
#include "stage/engine/stereo_buffer.h"

namespace stage {

/// A message as the synthesizer received it, keys transposed. `frame` counts the frames rendered before it.
struct SynthMessage {
    std::int64_t frame = 0;
    std::size_t channel = 0;
    std::uint8_t status = 0;  ///< upper four bits of a MIDI status byte
    std::uint8_t data1 = 0;
    std::uint8_t data2 = 0;

    bool operator==(const SynthMessage&) const = default;
};

/// Hears what the synthesizer is told, on the rendering thread; real-time safe.
class SynthListener {
public:
    virtual void OnSynthMessage(const SynthMessage& message) = 0;

protected:
    ~SynthListener() = default;
};

/// The instruments: a SoundFont synthesizer (SoundFont 2.04, General MIDI) that remembers what sounds and what its
/// channels are set to, so that playback may leave any place for any other. A note starts on the synthesizer's own grid
/// of 64 frames. Channels are numbered over all MIDI ports, 16 each; the tenth of each port is percussion.
///
/// Not thread-safe: one thread at a time. All but the constructor and PlaySysex are real-time safe.
class Synth {
public:
    static constexpr std::uint32_t FramesPerBlock = 64;

    /// One that renders all channels into one place, or each into the place of its group.
    enum class Mix : std::uint8_t { One, Groups };

    /// `channels` is 1 to 256, of groups 1 to 128, rounded up to whole ports. Throws std::runtime_error with one
    /// sentence where the SoundFont cannot be read.
    Synth(const std::string& soundFontPath, std::uint32_t framesPerSecond, std::size_t channels, Mix mix = Mix::One);
    ~Synth();
    Synth(const Synth&) = delete;
    Synth& operator=(const Synth&) = delete;

    [[nodiscard]] std::size_t CountChannels() const { return states_.size(); }

    /// `transposition` in semitones is remembered for the note's end. Percussion is not transposed; a key beyond the
    /// keyboard is folded back by octaves.
    void PlayNote(std::size_t channel, std::uint8_t key, std::uint8_t velocity, int transposition);
    /// Ends the note, whatever the transposition is now; one that does not sound is left alone.
    void EndNote(std::size_t channel, std::uint8_t key);
    /// Any other channel message; one that ends all notes of its channel makes them forgotten.
    void PlayMessage(const tavo_midi::MidiEvent& event);
    /// The whole message, 0xF0 to 0xF7. May allocate.
    void PlaySysex(const std::vector<std::uint8_t>& message);

    /// Lifts the pedals and ends every note that sounds; the releases ring out.
    void EndAllNotes();
    /// Silence at once.
    void SilenceAll();
    /// The same, but first writes the `frames` that would have come next, a multiple of FramesPerBlock: a caller that
    /// fades them out spares the audience a click. They are not counted as rendered.
    void SilenceAll(float* left, float* right, std::uint32_t frames);
    /// The same for groups.
    void SilenceAll(std::span<const StereoBuffer> groups, std::uint32_t frames);
    [[nodiscard]] std::size_t CountSoundingNotes() const;

    /// Sets the channels to `states`, which has CountChannels() elements; sends only what differs.
    void ApplyStates(std::span<const ChannelState> states);

    /// The next frames of both channels of the output. They are written when the next message comes, by FinishRendering
    /// at the latest: the synthesizer takes nearly twice as long for many short blocks as for few long ones. Until then
    /// the place must stay.
    void Render(float* left, float* right, std::uint32_t frames);
    void FinishRendering();

    // With groups.

    /// Loads a further SoundFont and returns its number; the first one has 0. Not real-time safe. Throws as the
    /// constructor does.
    std::uint8_t AddSoundFont(const std::string& path);
    /// The number of the SoundFont of each group. What it does not have the first one plays. At first all have that.
    /// Before anything is rendered.
    void SetFontsOfGroups(std::vector<std::uint8_t> fontOfGroup) { fontOfGroup_ = std::move(fontOfGroup); }
    /// The group of each channel, from the frame that comes next on; at first all are in group 0. A channel that is not
    /// given stays where it is.
    void AssignChannels(std::span<const std::uint8_t> groupOfChannel);
    /// As Render, each group into its own place. As many groups in every call.
    void RenderGroups(std::span<const StereoBuffer> groups, std::uint32_t frames);

    /// Reports every note, end of a note and setting that is sent; for tests and diagnostics. Empty: reports nothing.
    void SetObserver(std::function<void(const SynthMessage&)> observer) { observer_ = std::move(observer); }

    /// Hears the same; null for nobody. While nobody renders.
    void SetListener(SynthListener* listener) { listener_ = listener; }
    [[nodiscard]] std::int64_t CountRenderedFrames() const { return renderedFrames_; }

private:
    struct Fluid;
    struct SoundingNote {
        std::uint8_t count = 0;
        std::uint8_t soundingKey = 0;
    };

    [[nodiscard]] SoundingNote& NoteAt_(std::size_t channel, std::uint8_t key) {
        return notes_[channel * KeyCount + key];
    }
    /// The synthesizer at the frame that was rendered last.
    [[nodiscard]] Fluid& AtPresent_();
    [[nodiscard]] bool IsGrouped_() const { return !groupOfChannel_.empty(); }
    void WriteGroups_(std::span<const StereoBuffer> groups, std::uint32_t frames);
    void Tell_(std::size_t channel, std::uint8_t status, std::uint8_t data1, std::uint8_t data2);
    void StopKey_(std::size_t channel, std::uint8_t soundingKey);
    void SendController_(std::size_t channel, std::uint8_t number, std::uint8_t value);
    void SendProgram_(std::size_t channel, std::uint32_t program);
    void ChooseInstrument_(std::size_t channel, std::uint32_t program);
    [[nodiscard]] std::size_t FontOf_(std::size_t channel) const;
    void ApplyState_(std::size_t channel, const ChannelState& target);
    void ApplyParameters_(std::size_t channel, const ChannelState& target);
    void ForgetNotes_(std::size_t channel);

    static constexpr std::size_t KeyCount = 128;

    std::unique_ptr<Fluid> fluid_;
    std::vector<ChannelState> states_;
    std::vector<SoundingNote> notes_;           // by channel and written key
    std::vector<std::uint16_t> notesSounding_;  // by channel: keys whose count is not 0
    std::int64_t renderedFrames_ = 0;
    // What was asked for and is not written yet.
    float* nextLeft_ = nullptr;
    float* nextRight_ = nullptr;
    std::uint32_t unwrittenFrames_ = 0;
    // With groups: of each, where that goes; of each channel, its group; what the synthesizer is given, as its outputs.
    std::vector<StereoBuffer> nextOfGroups_;
    std::vector<std::uint8_t> groupOfChannel_;
    std::vector<float*> outputs_;
    std::vector<std::uint8_t> fontOfGroup_;
    std::function<void(const SynthMessage&)> observer_;
    SynthListener* listener_ = nullptr;
};

/// The key `semitones` away, folded back by octaves into 0 to 127.
[[nodiscard]] std::uint8_t TransposeKey(std::uint8_t key, int semitones);

}  // namespace stage
