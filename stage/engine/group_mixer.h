#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "stage/engine/cut_off_tail.h"
#include "stage/engine/gain.h"
#include "stage/engine/group_plan.h"
#include "stage/engine/level_meter.h"
#include "stage/engine/reverb.h"
#include "stage/engine/stereo_buffer.h"
#include "stage/engine/synth.h"

namespace stage {

/// The instruments in groups: a strip for each, with its level and its meter, and one for what is in no group. A strip
/// goes into the main output or leaves by a pair of its own; what strips send into the reverb, behind their levels,
/// comes back in the main output. Used by the rendering thread; only the constructor
/// allocates.
class GroupMixer {
public:
    /// Frames that Render takes on at most before Write.
    static constexpr std::uint32_t MaxFrames = 4096;

    /// Both references outlive the object; the synthesizer was made for groups.
    GroupMixer(Synth& synth, const GroupPlan& plan, std::uint32_t framesPerSecond);

    /// The channels are in the groups of this song from now on. What still sounds of one goes with it.
    void FollowSong(const tavo_midi::SongData& song);
    /// Moves a strip's level, a factor that has everything in it, within `rampFrames`.
    void SetLevel(std::size_t strip, float level, std::uint32_t rampFrames);
    /// Silence at once; what sounded fades away within CutOffTail::Frames.
    void CutOff();

    [[nodiscard]] std::size_t CountOwnOutputs() const { return ownOutputCount_; }
    void Render(std::uint32_t frames);
    /// Writes what was rendered since the last call into the main pair; into `outputs`, one for each strip with a pair
    /// of its own as far as there are any, with `gains` applied.
    void Write(const StereoBuffer& main, std::span<const StereoBuffer> outputs, std::span<const Gain> gains);

    /// Whether the reverb rings still.
    [[nodiscard]] bool IsReverbRinging() const { return reverb_ != nullptr && reverb_->room.IsRinging(); }

    void SetMetered(bool isMetered) { isMetered_ = isMetered; }
    /// By strip; nothing is measured at first.
    [[nodiscard]] const LevelMeter& GetMeter(std::size_t strip) const { return strips_[strip]->meter; }

private:
    struct Strip {
        explicit Strip(std::uint32_t framesPerSecond) : meter(framesPerSecond) {}

        bool hasOwnOutput = false;
        float reverbSend = 0;
        std::array<float, MaxFrames> left{};
        std::array<float, MaxFrames> right{};
        CutOffTail tail;
        Gain gain;
        LevelMeter meter;
    };

    /// What strips send into it, and what comes back.
    struct ReverbBus {
        ReverbBus(const Settings::Reverb& settings, std::uint32_t framesPerSecond) : room(settings, framesPerSecond) {}

        Reverb room;
        std::array<float, MaxFrames> left{};
        std::array<float, MaxFrames> right{};
        std::array<float, MaxFrames> stripLeft{};  // one strip's share
        std::array<float, MaxFrames> stripRight{};
        CutOffTail tail;
        std::uint32_t unsentFrames = 0;  // the next ones, that are not sent
    };

    void SendToReverb_(const Strip& strip, std::uint32_t frames);
    void ReturnFromReverb_(const StereoBuffer& main, std::uint32_t frames);

    Synth& synth_;
    const GroupPlan& plan_;
    std::size_t ownOutputCount_ = 0;
    std::vector<std::unique_ptr<Strip>> strips_;
    std::vector<StereoBuffer> buffers_;  // of the strips
    std::unique_ptr<ReverbBus> reverb_;  // null where nobody sends
    bool isMetered_ = false;
    std::uint32_t frames_ = 0;  // rendered into them
    const tavo_midi::SongData* song_ = nullptr;
};

}  // namespace stage
