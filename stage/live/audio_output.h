#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace stage {

/// What a device plays with.
struct OutputFormat {
    std::uint32_t framesPerSecond = 48000;
    std::uint32_t periodFrames = 0;   ///< frames that it takes at a time
    std::uint32_t latencyFrames = 0;  ///< from when it takes a frame until that is heard

    bool operator==(const OutputFormat&) const = default;
};

/// What a device takes its frames from.
class FrameSource {
public:
    /// Writes the next `frames` of both channels, silence where there are none in time. `moment` is when the device
    /// began the period, on the steady clock. Real-time safe; one thread at a time.
    virtual void TakeFrames(float* left, float* right, std::uint32_t frames,
                            std::chrono::nanoseconds moment) noexcept = 0;
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

    Kind kind = Kind::Auto;
    /// Of File: where the sound is written, .wav or .flac.
    std::string path;
    /// The device's name, or the beginning of the names of the JACK ports to connect to; empty takes the system's.
    std::string device;
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
