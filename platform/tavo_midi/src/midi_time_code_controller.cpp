#include "tavo_midi/midi_time_code_controller.h"

#include <fmt/format.h>

#include <algorithm>
#include <mutex>
#include <stdexcept>
#include <utility>

#include "midi_system.h"
#include "time_code_settings.h"
#include "time_code_thread.h"

namespace tavo_midi {

struct MidiTimeCodeController::Impl : MidiConnection {
    /// What the player said last.
    struct Feed {
        std::string songNumber;
        std::chrono::nanoseconds position{0};
        TimeCodeMoment when{std::chrono::nanoseconds(0), {}};
        bool rolls = false;
    };

    explicit Impl(const std::string& path) : settingsPath(path), settings(ReadTimeCodeSettings(path)) {}

    const std::string settingsPath;

    // Taken in this order: connectMutex, the system's lock or fileMutex, mutex. The last is what a rendering thread
    // takes: no disk and no device is waited for under it.
    std::mutex connectMutex;
    std::mutex fileMutex;   ///< held while the file is written
    bool isWanted = false;  ///< guarded by connectMutex
    mutable std::mutex mutex;
    // Guarded by mutex:
    TimeCodeSettings settings;
    Feed feed;
    std::chrono::nanoseconds shift{0};  ///< time code minus music, from jumps that it did not follow
    bool hasEnded = false;
    std::unique_ptr<MidiOutput> output;
    std::unique_ptr<TimeCodeThread> thread;
    bool hasOrdered = false;  ///< the output has had an order
    bool isRolling = false;   ///< the last of them rolls

    [[nodiscard]] bool IsSource() const override { return false; }

    void Open(MidiPorts& ports, const std::string& name) override {
        auto opened = ports.OpenOutput(name);
        const std::lock_guard lock(mutex);
        output = std::move(opened);
        if (!output->IsSampleAccurate()) thread = std::make_unique<TimeCodeThread>(*output);
        // A server that comes back counts its frames anew.
        feed.when.jackFrame.reset();
        PostFeed();
    }

    /// Whoever follows is told that it is over, if that can still be sent.
    void Close() override {
        std::unique_ptr<MidiOutput> closed;
        std::unique_ptr<TimeCodeThread> ended;
        bool isTold = false;
        {
            const std::lock_guard lock(mutex);
            isTold = PostEnd();
            closed = std::move(output);
            ended = std::move(thread);
            hasOrdered = false;
        }
        ended.reset();
        if (isTold) static_cast<void>(closed->WaitUntilSent());
    }

    /// Called under the system's lock, under which the output comes and goes.
    [[nodiscard]] bool IsConnected() override { return output->IsConnected(); }

    [[nodiscard]] std::string GetRemark() override {
        const std::lock_guard lock(mutex);
        if (!thread || thread->IsRealTime()) return {};
        return "The system permits no real-time priority: a busy machine makes its time code unsteady.";
    }

    /// Called under the lock.
    void PostFeed() {
        if (!output || hasEnded) return;
        Post(feed.position, feed.when, feed.rolls);
        isRolling = feed.rolls;
    }

    /// Stops time code where it is now. Whether something is left to be sent: also if it was stopped so before. Called
    /// under the lock.
    bool PostEnd() {
        if (!output || !hasOrdered) return false;
        if (!std::exchange(isRolling, false)) return true;
        const auto elapsed = std::chrono::steady_clock::now().time_since_epoch() - feed.when.time;
        Post(feed.position + std::max(elapsed, std::chrono::nanoseconds(0)), {}, false);
        return true;
    }

    /// Called under the lock.
    void Post(std::chrono::nanoseconds position, const TimeCodeMoment& when, bool rolls) {
        TimeCodeOrder order;
        order.when = when;
        order.frameRate = settings.frameRate;
        order.rolls = rolls;
        order.positionNs =
            ConvertFramesToNanoseconds(GetSongStartFrame(settings, feed.songNumber), settings.frameRate) +
            (position + shift).count();
        hasOrdered = true;
        if (thread)
            thread->Post(order);
        else
            output->RunTimeCode(order);
    }

    void Take(std::chrono::nanoseconds position, const TimeCodeMoment& when, bool rolls) {
        feed.position = position;
        feed.when = when;
        feed.rolls = rolls;
        PostFeed();
    }

    /// Changes a setting, has it take effect at once and keeps it.
    template <class Change>
    void Set(Change change) {
        SetQuietly([&] {
            change();
            PostFeed();
        });
    }
    /// Changes a setting that takes effect later, and keeps it.
    template <class Change>
    void SetQuietly(Change change) {
        {
            const std::lock_guard lock(mutex);
            change();
        }
        Save();
    }

    /// Whoever writes last writes what was set last.
    void Save() {
        const std::lock_guard fileLock(fileMutex);
        TimeCodeSettings saved;
        {
            const std::lock_guard lock(mutex);
            saved = settings;
        }
        WriteTimeCodeSettings(settingsPath, saved);
    }

    /// Wants the chosen output while it is active. Called under connectMutex.
    void Reconnect() {
        std::string name;
        {
            const std::lock_guard lock(mutex);
            if (settings.isActive && !hasEnded) name = settings.outputName;
        }
        if (isWanted) MidiSystem::Get().Unwant(*this);
        isWanted = !name.empty();
        if (isWanted) MidiSystem::Get().Want(*this, name);
    }

    template <class Change>
    void SetConnection(Change change) {
        const std::lock_guard lock(connectMutex);
        {
            const std::lock_guard settingsLock(mutex);
            change();
        }
        Reconnect();
        Save();
    }
};

MidiTimeCodeController::MidiTimeCodeController(const std::string& settingsPath)
    : impl_(std::make_unique<Impl>(settingsPath)) {
    MidiSystem::Get().AddUser();
    const std::lock_guard lock(impl_->connectMutex);
    impl_->Reconnect();
}

MidiTimeCodeController::~MidiTimeCodeController() {
    Shutdown();
    MidiSystem::Get().RemoveUser();
}

void MidiTimeCodeController::ActivateMidiTimeCode() {
    impl_->SetConnection([this] { impl_->settings.isActive = true; });
}

void MidiTimeCodeController::CancelMidiTimeCode() {
    impl_->SetConnection([this] { impl_->settings.isActive = false; });
}

bool MidiTimeCodeController::GetIsActive() const {
    const std::lock_guard lock(impl_->mutex);
    return impl_->settings.isActive;
}

FrameRate MidiTimeCodeController::GetFrameRate() const {
    const std::lock_guard lock(impl_->mutex);
    return impl_->settings.frameRate;
}

void MidiTimeCodeController::SetFrameRate(FrameRate frameRate) {
    static_cast<void>(ConvertFrameRateToString(frameRate));
    impl_->Set([&] {
        impl_->settings.frameRate = frameRate;
        for (auto& [song, offset] : impl_->settings.songOffsets) {
            while (!IsTimeCode(offset, frameRate))
                offset.frames += offset.frames < 2 ? 1 : -1;
        }
    });
}

unsigned int MidiTimeCodeController::GetOutputPortIndex() const {
    const std::string name = GetOutputPortName();
    const std::vector<std::string> names = MidiSystem::Get().GetNames(false);
    const auto found = std::find(names.begin(), names.end(), name);
    return found == names.end() ? 0 : static_cast<unsigned int>(found - names.begin());
}

bool MidiTimeCodeController::GetHasOutputPortIndex() const {
    const std::string name = GetOutputPortName();
    const std::vector<std::string> names = MidiSystem::Get().GetNames(false);
    return std::find(names.begin(), names.end(), name) != names.end();
}

void MidiTimeCodeController::SetOutputPortIndex(unsigned int index) {
    const std::vector<std::string> names = MidiSystem::Get().GetNames(false);
    if (index >= names.size())
        throw std::out_of_range(
            names.empty() ? fmt::format("there is no MIDI output {}: the system has none", index)
                          : fmt::format("there is no MIDI output {}: the last one is {}", index, names.size() - 1));
    SetOutputPortName(names[index]);
}

std::string MidiTimeCodeController::GetOutputPortName() const {
    const std::lock_guard lock(impl_->mutex);
    return impl_->settings.outputName;
}

void MidiTimeCodeController::SetOutputPortName(const std::string& name) {
    impl_->SetConnection([&] { impl_->settings.outputName = name; });
}

std::vector<std::string> MidiTimeCodeController::GetSettingsWarnings() const {
    const std::lock_guard lock(impl_->mutex);
    return impl_->settings.warnings;
}

MidiTimeCodeController::JumpRule MidiTimeCodeController::GetJumpRule() const {
    const std::lock_guard lock(impl_->mutex);
    return impl_->settings.jumpRule;
}

void MidiTimeCodeController::SetJumpRule(JumpRule rule) {
    impl_->SetQuietly([&] { impl_->settings.jumpRule = rule; });
}

bool MidiTimeCodeController::GetHoursAreSongNumbers() const {
    const std::lock_guard lock(impl_->mutex);
    return impl_->settings.hoursAreSongNumbers;
}

void MidiTimeCodeController::SetHoursAreSongNumbers(bool hoursAreSongNumbers) {
    impl_->Set([&] { impl_->settings.hoursAreSongNumbers = hoursAreSongNumbers; });
}

std::optional<TimeCode> MidiTimeCodeController::GetSongOffset(const std::string& songNumber) const {
    const std::lock_guard lock(impl_->mutex);
    const auto found = impl_->settings.songOffsets.find(songNumber);
    if (found == impl_->settings.songOffsets.end()) return std::nullopt;
    return found->second;
}

void MidiTimeCodeController::SetSongOffset(const std::string& songNumber, std::optional<TimeCode> offset) {
    impl_->Set([&] {
        TimeCodeSettings& settings = impl_->settings;
        if (!offset) {
            settings.songOffsets.erase(songNumber);
            return;
        }
        if (!IsTimeCode(*offset, settings.frameRate))
            throw std::out_of_range(fmt::format("the offset of song {} is not a time code of {} frames a second",
                                                songNumber, ConvertFrameRateToString(settings.frameRate)));
        settings.songOffsets[songNumber] = *offset;
    });
}

std::chrono::nanoseconds MidiTimeCodeController::GetSongStart(const std::string& songNumber) const {
    const std::lock_guard lock(impl_->mutex);
    const FrameRate frameRate = impl_->settings.frameRate;
    return std::chrono::nanoseconds(
        ConvertFramesToNanoseconds(GetSongStartFrame(impl_->settings, songNumber), frameRate));
}

void MidiTimeCodeController::SetSong(const std::string& songNumber) {
    const std::lock_guard lock(impl_->mutex);
    impl_->feed.songNumber = songNumber;
    impl_->shift = std::chrono::nanoseconds(0);
}

void MidiTimeCodeController::Locate(std::chrono::nanoseconds position, TimeCodeMoment when) {
    const std::lock_guard lock(impl_->mutex);
    impl_->shift = std::chrono::nanoseconds(0);
    impl_->Take(position, when, impl_->feed.rolls);
}

void MidiTimeCodeController::Start(std::chrono::nanoseconds position, TimeCodeMoment when) {
    const std::lock_guard lock(impl_->mutex);
    impl_->Take(position, when, true);
}

void MidiTimeCodeController::Stop(std::chrono::nanoseconds position, TimeCodeMoment when) {
    const std::lock_guard lock(impl_->mutex);
    impl_->Take(position, when, false);
}

void MidiTimeCodeController::Jump(std::chrono::nanoseconds from, std::chrono::nanoseconds to, TimeCodeMoment when) {
    const std::lock_guard lock(impl_->mutex);
    if (impl_->settings.jumpRule == JumpRule::Locate) {
        impl_->Take(to, when, impl_->feed.rolls);
        return;
    }
    // Time code runs on as it was ordered; what is sent after a reconnection goes on from here.
    impl_->shift += from - to;
    impl_->feed.position = to;
    impl_->feed.when = when;
}

void MidiTimeCodeController::PrepareForExit() {
    const std::lock_guard lock(impl_->mutex);
    impl_->PostEnd();
    impl_->feed.rolls = false;
    impl_->hasEnded = true;
}

void MidiTimeCodeController::Shutdown() {
    PrepareForExit();
    const std::lock_guard lock(impl_->connectMutex);
    impl_->Reconnect();
}

}  // namespace tavo_midi
