// Playing through ALSA or PulseAudio, with RtAudio, where no JACK server runs.

#include <fmt/format.h>
#include <rtaudio/RtAudio.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

#include "kit/words.h"
#include "stage/live/audio_output.h"
#include "stage/live/real_time.h"

namespace stage {

namespace {

/// The systems that are tried, in this order: JACK is played through directly.
constexpr RtAudio::Api Systems[] = {RtAudio::LINUX_ALSA, RtAudio::LINUX_PULSE};

std::optional<unsigned int> FindDevice(RtAudio& audio, const std::string& name) {
    const unsigned int count = audio.getDeviceCount();
    std::optional<unsigned int> found;
    for (unsigned int index = 0; index < count; ++index) {
        const RtAudio::DeviceInfo info = audio.getDeviceInfo(index);
        if (!info.probed || info.outputChannels < 2) continue;
        if (name.empty() ? (!found || info.isDefaultOutput) : info.name == name) found = index;
    }
    return found;
}

class RtAudioOutput final : public AudioOutput {
public:
    RtAudioOutput(const OutputChoice& choice, FrameSource& source) : source_(source) {
        for (const RtAudio::Api system : Systems) {
            try {
                if (TryToOpen_(system, choice)) return;
            } catch (const RtAudioError& problem) {
                problem_ = problem.getMessage();
            }
            audio_.reset();
        }
        if (!problem_.empty()) throw std::runtime_error(fmt::format("no sound device can be opened: {}", problem_));
        throw std::runtime_error(choice.device.empty()
                                     ? "there is no sound device that RtAudio finds"
                                     : fmt::format("there is no sound device {}", kit::Quote(choice.device)));
    }
    ~RtAudioOutput() override {
        try {
            if (audio_ != nullptr && audio_->isStreamOpen()) audio_->closeStream();
        } catch (const RtAudioError&) {
            // The device has gone; nothing is left to be closed.
        }
    }
    RtAudioOutput(const RtAudioOutput&) = delete;
    RtAudioOutput& operator=(const RtAudioOutput&) = delete;

    std::string GetName() const override { return name_; }
    OutputFormat GetFormat() const override { return format_; }
    std::string GetProblem() const override {
        const std::lock_guard lock(mutex_);
        return problem_;
    }
    std::uint64_t CountDeviceOverruns() const override { return overruns_; }

private:
    bool TryToOpen_(RtAudio::Api system, const OutputChoice& choice) {
        audio_ = std::make_unique<RtAudio>(system);
        audio_->showWarnings(false);
        const std::optional<unsigned int> device = FindDevice(*audio_, choice.device);
        if (!device) return false;
        RtAudio::StreamParameters parameters;
        parameters.deviceId = *device;
        parameters.nChannels = 2;
        RtAudio::StreamOptions options;
        options.flags = RTAUDIO_NONINTERLEAVED;
        // A sound server behind ALSA's default device passes on what its card asks for, up to all of them at once.
        options.numberOfBuffers = 4;
        options.streamName = choice.clientName;
        unsigned int period = choice.periodFrames;
        audio_->openStream(&parameters, nullptr, RTAUDIO_FLOAT32, choice.framesPerSecond, &period,
                           &RtAudioOutput::OnProcess_, this, &options, nullptr);
        const long latency = audio_->getStreamLatency();
        format_ = {audio_->getStreamSampleRate(), period,
                   latency > 0 ? static_cast<std::uint32_t>(latency) : period * options.numberOfBuffers,
                   std::max(options.numberOfBuffers, 1U)};
        problem_.clear();
        name_ = fmt::format("RtAudio ({})", RtAudio::getApiDisplayName(system));
        source_.NoteFormat(format_);
        audio_->startStream();
        return true;
    }

    static int OnProcess_(void* out, void* /*in*/, unsigned int frames, double /*time*/, RtAudioStreamStatus status,
                          void* self) {
        auto& output = *static_cast<RtAudioOutput*>(self);
        // Done here, once: RtAudio would tell the terminal, which may be showing the performance.
        if (!std::exchange(output.isRealTime_, true)) BecomeRealTime(RealTimePriority::Device);
        if ((status & RTAUDIO_OUTPUT_UNDERFLOW) != 0) ++output.overruns_;
        auto* const left = static_cast<float*>(out);
        // Read without a system call on every machine whose clock the system shows to programs.
        output.source_.TakeFrames(left, left + frames, frames, std::chrono::steady_clock::now().time_since_epoch());
        return 0;
    }

    bool isRealTime_ = false;  // used by the device's thread
    // Constant once the stream runs.
    FrameSource& source_;
    std::unique_ptr<RtAudio> audio_;
    OutputFormat format_;
    std::string name_;
    // Synchronise themselves.
    std::atomic<std::uint64_t> overruns_{0};
    mutable std::mutex mutex_;
    std::string problem_;  // guarded by mutex_
};

}  // namespace

std::unique_ptr<AudioOutput> OpenRtAudioOutput(const OutputChoice& choice, FrameSource& source) {
    return std::make_unique<RtAudioOutput>(choice, source);
}

}  // namespace stage
