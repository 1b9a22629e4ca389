#include "player_core/gui_update.h"

#include <chrono>
#include <cmath>
#include <exception>
#include <limits>
#include <utility>

#include "kit/sleep.h"
#include "kit/thread_names.h"
#include "player_core/player.h"
#include "tavo_core/callback_dispatcher.h"
#include "tavo_core/gui_dispatcher.h"
#include "tavo_core/tavo_log_exception.h"

namespace gui {
namespace {

// Those who read the log know the two threads by these places: they stay as they are when this file changes.
constexpr const char* LoggedSource = "player_core/Sources/gui_update";
constexpr int UpdateThreadLoggedLine = 627;
constexpr int GeneratorLoggedLine = 634;

template <class Loop>
void RunAndLogExceptions(int loggedLine, Loop&& loop) {
    try {
        loop();
    } catch (const std::exception& exception) {
        TavoLogException(exception.what(), LoggedSource, loggedLine);
    } catch (...) {
        TavoLogException("Unknown exception.", LoggedSource, loggedLine);
    }
}

}  // namespace

GuiUpdate::GuiUpdate(Player& player, std::function<bool(unsigned int*)> getPosition)
    : player_(player), getPosition_(std::move(getPosition)), howToPlay_(player_.GetUserControls()) {
    thread_ = std::thread([this] {
        kit::threadNames.SetNameOfCurrentThread("GuiUpdate");
        RunAndLogExceptions(UpdateThreadLoggedLine, [this] { RunLoop(); });
        SayFinished_(threadFinished_);
    });
}

GuiUpdate::~GuiUpdate() {
    // After PrepareForExit this joins nothing, and destroying a joinable thread terminates the process: a feed that was
    // told that the process exits is not to be destroyed.
    Quit();
}

// Threads: start, end, pause, signal.

void GuiUpdate::StartUpdateGenerator() {
    const std::lock_guard lock(mutex_);
    // While a generator runs, the assignment terminates the process.
    generatorThread_ = std::thread([this] {
        kit::threadNames.SetNameOfCurrentThread("update_generator");
        RunAndLogExceptions(GeneratorLoggedLine, [this] { UpdateGeneratorRunLoop(); });
        SayFinished_(generatorFinished_);
    });
    generatorStarted_ = true;
}

void GuiUpdate::Quit() {
    bool generatorStarted = false;
    {
        const std::lock_guard lock(mutex_);
        if (!shouldRun_) return;
        shouldRun_ = false;
        generatorStarted = generatorStarted_;
    }
    Unpause();
    SendGuiUpdate();
    JoinFinished_(thread_, threadFinished_, updateCondition_);
    if (generatorStarted) JoinFinished_(generatorThread_, generatorFinished_, pauseCondition_);
}

void GuiUpdate::SayFinished_(bool& finished) {
    const std::lock_guard lock(finishedMutex_);
    finished = true;
    finishedCondition_.notify_all();
}

void GuiUpdate::JoinFinished_(std::thread& thread, const bool& finished, std::condition_variable& wakeUp) {
    // A signal is lost on a thread that is just about to wait, so one is not enough. A thread that quits itself is left
    // to join, which refuses.
    if (thread.get_id() != std::this_thread::get_id()) {
        std::unique_lock lock(finishedMutex_);
        while (!finishedCondition_.wait_for(lock, std::chrono::milliseconds(1), [&finished] { return finished; })) {
            wakeUp.notify_one();
        }
    }
    thread.join();
}

void GuiUpdate::PrepareForExit() {
    SetShouldRun(false);
}

void GuiUpdate::Pause() {
    const std::lock_guard lock(mutex_);
    isPaused_ = true;
}

void GuiUpdate::Unpause() {
    // Looked at without the mutex: a feed that is not paused is left alone at no cost.
    if (!isPaused_) return;
    {
        const std::lock_guard lock(mutex_);
        isPaused_ = false;
    }
    // A generator that has seen the old value waits once this mutex is free, so the signal reaches it.
    { const std::lock_guard lock(pauseMutex_); }
    pauseCondition_.notify_one();
}

void GuiUpdate::SetInterval(double seconds) {
    const double milliseconds = std::round(seconds * 1000);
    if (std::isnan(milliseconds)) return;
    constexpr auto Longest = std::numeric_limits<unsigned int>::max();
    const std::lock_guard lock(mutex_);
    if (milliseconds <= 0) {
        interval_ = 0;
    } else {
        interval_ = milliseconds < Longest ? static_cast<unsigned int>(milliseconds) : Longest;
    }
}

unsigned int GuiUpdate::GetInterval() {
    const std::lock_guard lock(mutex_);
    return interval_;
}

bool GuiUpdate::GetIsPaused() {
    const std::lock_guard lock(mutex_);
    return isPaused_;
}

bool GuiUpdate::GetShouldRun() {
    const std::lock_guard lock(mutex_);
    return shouldRun_;
}

void GuiUpdate::SetShouldRun(bool shouldRun) {
    const std::lock_guard lock(mutex_);
    shouldRun_ = shouldRun;
}

void GuiUpdate::RunLoop() {
    while (GetShouldRun()) {
        {
            // No predicate: a lost signal delays the display by one interval, a spurious wake-up adds a pass.
            std::unique_lock lock(updateMutex_);
            updateCondition_.wait(lock);
        }
        if (!GetShouldRun()) return;
        RunOnePass_();
    }
}

void GuiUpdate::UpdateGeneratorRunLoop() {
    while (GetShouldRun()) {
        {
            // Read under pauseMutex_ alone, not under mutex_ as well: Unpause may be called with mutex_ held. No
            // predicate: every wake-up gives one signal before the flag is looked at again.
            std::unique_lock lock(pauseMutex_);
            if (isPaused_) pauseCondition_.wait(lock);
        }
        SendGuiUpdate();
        Sleep();
    }
}

void GuiUpdate::Sleep() {
    kit::Sleep(GetInterval());
}

void GuiUpdate::SendGuiUpdate() {
    updateCondition_.notify_one();
}

void GuiUpdate::UpdateOnce() {
    {
        const std::lock_guard lock(mutex_);
        useCurrentPosition_ = true;
    }
    SendGuiUpdate();
}

bool GuiUpdate::UseCurrentPosition() {
    const std::lock_guard lock(mutex_);
    return std::exchange(useCurrentPosition_, false);
}

void GuiUpdate::SendGuiUpdateWithTickIndex(unsigned int tickIndex) {
    {
        const std::lock_guard lock(mutex_);
        tickIndexQueue_.push_back(tickIndex);
    }
    SendGuiUpdate();
}

void GuiUpdate::SendGuiUpdateWithoutCaesura(unsigned int tickIndex) {
    futureUpdates_.ClearCaesura(tickIndex);
    SendGuiUpdateWithTickIndex(tickIndex);
}

void GuiUpdate::AddFutureStatusFlowControl(const std::string& type, int count, unsigned int tickIndex) {
    futureUpdates_.AddFutureStatusFlowControl(type, count, tickIndex);
}

// Position.

unsigned int GuiUpdate::GetTickIndex() {
    const std::lock_guard lock(mutex_);
    return tickIndex_;
}

void GuiUpdate::SetData(const CL::SongLog& songLog, const TL::Timeline& timeline, unsigned int ticksPerQuarter) {
    const std::lock_guard lock(mutex_);
    howToPlay_.SetData(songLog, timeline, ticksPerQuarter);
}

void GuiUpdate::Seek(unsigned int tickIndex) {
    const std::lock_guard lock(mutex_);
    seekPending_ = true;
    resetDisplay_ = true;
    seekForward_ = tickIndex > tickIndex_;
    seekFromTickIndex_ = tickIndex_;
    tickIndex_ = tickIndex;
    howToPlay_.Seek(tickIndex);
    futureUpdates_.ClearFutureUpdates();
}

void GuiUpdate::Reset() {
    const std::lock_guard lock(mutex_);
    tickIndex_ = 0;
    seekFromTickIndex_ = 0;
    seekForward_ = false;
    seekPending_ = false;
    resetDisplay_ = false;
    useCurrentPosition_ = false;
    tickIndexQueue_.clear();
}

void GuiUpdate::ResetAndSeekToTickIndex(unsigned int tickIndex) {
    Reset();
    const std::lock_guard lock(mutex_);
    tickIndex_ = tickIndex;
    howToPlay_.Seek(tickIndex);
    futureUpdates_.SendUntil(tickIndex);
    futureUpdates_.ClearCaesura(0);
    tickIndexQueue_.clear();
    resetDisplay_ = true;
}

DisplayState GuiUpdate::Snapshot() {
    const std::lock_guard lock(mutex_);
    DisplayState state;
    state.tick = tickIndex_;
    state.seekFromTick = seekFromTickIndex_;
    state.seekForward = seekForward_;
    state.seekPending = seekPending_;
    state.resetDisplay = resetDisplay_;
    futureUpdates_.CopyTo(state);
    return state;
}

void GuiUpdate::Restore(const DisplayState& state) {
    const std::lock_guard lock(mutex_);
    tickIndex_ = state.tick;
    seekFromTickIndex_ = state.seekFromTick;
    seekForward_ = state.seekForward;
    seekPending_ = state.seekPending;
    resetDisplay_ = state.resetDisplay;
    howToPlay_.Seek(state.tick);
    futureUpdates_.TakeFrom(state);
}

unsigned int GuiUpdate::SetTickIndex_(unsigned int tickIndex) {
    const std::lock_guard lock(mutex_);
    if (seekPending_) {
        // A forward seek compares with where it goes, a backward one with where it left: after a jump back the playhead
        // may still report positions from before it.
        const bool playbackHasFollowed = seekForward_ ? tickIndex >= tickIndex_ : tickIndex <= seekFromTickIndex_;
        if (!playbackHasFollowed) return tickIndex_;
        seekPending_ = false;
    }
    tickIndex_ = tickIndex;
    return tickIndex_;
}

unsigned int GuiUpdate::AdvanceToCurrentPosition() {
    unsigned int reported = 0;
    // Read without the mutex: without a position the pass goes on with whatever playhead there is.
    if (!getPosition_(&reported)) return tickIndex_;
    const std::lock_guard lock(mutex_);
    SetTickIndex_(reported);
    // The tracker and the display follow the position as it is reported, also where the filter refuses it.
    howToPlay_.Advance(reported);
    return reported;
}

}  // namespace gui

namespace {

std::unique_ptr<gui::GuiUpdate>& Holder() {
    // Never destroyed: after PrepareForExit the feed's threads are still there when the process exits.
    static auto* const holder = new std::unique_ptr<gui::GuiUpdate>;
    return *holder;
}

}  // namespace

gui::GuiUpdate& GetGuiUpdate() {
    return *Holder();
}

void SetGuiUpdate(std::unique_ptr<gui::GuiUpdate>&& guiUpdate) {
    Holder() = std::move(guiUpdate);
}
