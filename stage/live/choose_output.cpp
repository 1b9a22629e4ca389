#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <stdexcept>

#include "kit/words.h"
#include "stage/live/audio_output.h"
#include "stage/offline/audio_file.h"

namespace stage {

namespace {

/// Takes nothing: for a look at what a device plays with.
class NoFrames final : public FrameSource {
public:
    void TakeFrames(std::span<const StereoBuffer> pairs, std::uint32_t frames,
                    std::chrono::nanoseconds) noexcept override {
        for (const StereoBuffer& pair : pairs) {
            std::fill_n(pair.left, frames, 0.0F);
            std::fill_n(pair.right, frames, 0.0F);
        }
    }
    void NoteFormat(const OutputFormat&) noexcept override {}
};

}  // namespace

OutputChoice ParseOutputChoice(const std::string& text) {
    using Kind = OutputChoice::Kind;
    OutputChoice choice;
    if (text == "auto") {
        choice.kind = Kind::Auto;
    } else if (text == "jack") {
        choice.kind = Kind::Jack;
    } else if (text == "rtaudio") {
        choice.kind = Kind::RtAudio;
    } else if (text == "null") {
        choice.kind = Kind::Null;
    } else if (text.starts_with("file:")) {
        choice.kind = Kind::File;
        choice.path = text.substr(5);
        if (!AudioFile::HasKnownExtension(choice.path))
            throw std::invalid_argument(fmt::format("the sound file \"{}\" must be named .wav or .flac", choice.path));
    } else {
        throw std::invalid_argument(
            fmt::format("an output is auto, jack, rtaudio, null or file:PATH, not {}", kit::Quote(text)));
    }
    return choice;
}

std::unique_ptr<AudioOutput> OpenOutput(const OutputChoice& choice, FrameSource& source) {
    switch (choice.kind) {
        case OutputChoice::Kind::Jack:
            return OpenJackOutput(choice, source);
        case OutputChoice::Kind::RtAudio:
            return OpenRtAudioOutput(choice, source);
        case OutputChoice::Kind::Null:
        case OutputChoice::Kind::File:
            return OpenPacedOutput(choice, source);
        case OutputChoice::Kind::Auto:
            break;
    }
    for (const auto open : {OpenJackOutput, OpenRtAudioOutput}) {
        try {
            return open(choice, source);
        } catch (const std::runtime_error&) {
            // The next kind may work; the last one always does.
        }
    }
    OutputChoice null = choice;
    null.kind = OutputChoice::Kind::Null;
    return OpenPacedOutput(null, source);
}

OutputFormat ProbeOutput(const OutputChoice& choice) {
    const bool isPaced = choice.kind == OutputChoice::Kind::Null || choice.kind == OutputChoice::Kind::File;
    if (isPaced) return {choice.framesPerSecond, choice.periodFrames, 0};
    NoFrames none;
    return OpenOutput(choice, none)->GetFormat();
}

}  // namespace stage
