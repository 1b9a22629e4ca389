#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "stage/engine/stereo_buffer.h"

namespace stage {

/// What a device plays with.
struct OutputFormat {
    std::uint32_t framesPerSecond = 48000;
    std::uint32_t periodFrames = 0;   ///< frames that it takes at a time
    std::uint32_t latencyFrames = 0;  ///< from when it takes a frame until that is heard
    std::uint32_t periodsAtOnce = 1;  ///< that it may ask for in a row, where it has buffers of its own

    bool operator==(const OutputFormat&) const = default;
};

/// A message that leaves with the sound.
struct MidiMessage {
    std::uint32_t offset = 0;  ///< frames from the period's first
    std::uint8_t port = 0;     ///< index in OutputChoice::midiPorts
    std::uint8_t size = 3;     ///< 1 to 3
    std::array<std::uint8_t, 3> bytes{};
};

/// What a device takes its frames from.
class FrameSource {
public:
    /// Writes the next `frames` of each stereo pair, silence where there are none in time: `pairs` are the first is the
    /// main one, OutputChoice::furtherPairs follow, as many of them as the device plays. `moment` is when the device
    /// began the period, on the steady clock. Real-time safe; one thread at a time.
    virtual void TakeFrames(std::span<const StereoBuffer> pairs, std::uint32_t frames,
                            std::chrono::nanoseconds moment) noexcept = 0;
    /// The same for a device that plays the first pair only.
    void TakeFrames(float* left, float* right, std::uint32_t frames, std::chrono::nanoseconds moment) noexcept {
        const StereoBuffer main{left, right};
        TakeFrames({&main, 1}, frames, moment);
    }
    /// Takes the next MIDI message that is due in the period which TakeFrames has just written; false when there are no
    /// more. On the same thread; real-time safe.
    virtual bool TakeMidi(MidiMessage& /*message*/) noexcept { return false; }
    /// The device has its latency, or takes another number of frames from now on. Real-time safe; any thread.
    virtual void NoteFormat(const OutputFormat& format) noexcept = 0;

protected:
    ~FrameSource() = default;
};

/// A device that plays. Open from its construction to its destruction; a device that was lost is destroyed and opened
/// anew. Not thread-safe but for what a class says itself; opening and closing block.
class AudioOutput {
public:
    virtual ~AudioOutput() = default;

    /// "JACK", "RtAudio (ALSA)", "null": what a person is told that the show plays on.
    [[nodiscard]] virtual std::string GetName() const = 0;
    [[nodiscard]] virtual OutputFormat GetFormat() const = 0;
    /// Why it plays no more, one sentence; empty while it does. Any thread.
    [[nodiscard]] virtual std::string GetProblem() const = 0;
    /// How often the device itself, or its server, missed its time. Any thread.
    [[nodiscard]] virtual std::uint64_t CountDeviceOverruns() const { return 0; }
    /// What the device has to say besides, one sentence, once; empty for nothing. Any thread.
    [[nodiscard]] virtual std::string TakeRemark() { return ""; }
};

/// Which output, and what it is asked for.
struct OutputChoice {
    enum class Kind : std::uint8_t { Auto, Jack, RtAudio, Null, File };
    /// Two channels that leave together.
    struct Pair {
        std::string name;    ///< of the ports "NAME_left" and "NAME_right"
        std::string device;  ///< as OutputChoice::device; empty leaves the ports unconnected
    };

    Kind kind = Kind::Auto;
    /// Of File: where the sound is written, .wav or .flac.
    std::string path;
    /// The device's name, or that of the first of two JACK ports to connect to, or the beginning of their names; empty
    /// takes the system's.
    std::string device;
    /// Of JACK: the pairs that follow the first one, which is "main". The other kinds play the first only.
    std::vector<Pair> furtherPairs;
    /// Of JACK: the names of ports by which MIDI leaves.
    std::vector<std::string> midiPorts;
    /// Of JACK: the name of the client.
    std::string clientName = "tavo-sound";
    /// What is asked of an output that can choose: 44100, 48000, 88200 or 96000, and 32 to 2048.
    std::uint32_t framesPerSecond = 48000;
    std::uint32_t periodFrames = 128;
};

/// Reads "auto", "jack", "rtaudio", "null", "file:PATH". Throws std::invalid_argument with one sentence.
[[nodiscard]] OutputChoice ParseOutputChoice(const std::string& text);

/// Opens an output; `source` outlives it. Throws std::runtime_error with one sentence where it cannot. Auto takes the
/// first that can be opened of JACK, RtAudio and null.
[[nodiscard]] std::unique_ptr<AudioOutput> OpenOutput(const OutputChoice& choice, FrameSource& source);

/// The format that an output would have, without playing: how a session is to be opened. Throws as OpenOutput does.
[[nodiscard]] OutputFormat ProbeOutput(const OutputChoice& choice);

/// Something that a show can be played on.
struct OutputDevice {
    std::string output;                          ///< "jack", "rtaudio" or "null", as ParseOutputChoice reads it
    std::string name;                            ///< for OutputChoice::device
    std::vector<std::uint32_t> framesPerSecond;  ///< those that it offers
    std::uint32_t periodFrames = 0;              ///< 0 where it can be chosen
    bool isDefault = false;
};

/// All that are there just now; null is always one of them. Blocks, for two seconds where a JACK server does not
/// answer.
[[nodiscard]] std::vector<OutputDevice> ListOutputDevices();

/// Plays a tone of 440 Hz at -20 dBFS, the left side first and then the right one, a second each, and returns what it
/// was played on. Throws as OpenOutput does.
std::string PlayTestTone(const OutputChoice& choice);

// Each kind by itself.
[[nodiscard]] std::unique_ptr<AudioOutput> OpenJackOutput(const OutputChoice& choice, FrameSource& source);
[[nodiscard]] std::unique_ptr<AudioOutput> OpenRtAudioOutput(const OutputChoice& choice, FrameSource& source);
/// Null and File.
[[nodiscard]] std::unique_ptr<AudioOutput> OpenPacedOutput(const OutputChoice& choice, FrameSource& source);

}  // namespace stage
