#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <vector>

#include "event_queue.h"
#include "handle_table.h"
#include "stage/engine/pair_delay.h"
#include "stage/engine/true_peak_limiter.h"
#include "stage/session/show_session.h"
#include "tavo/tavo.h"
#include "tavo_core/gui_dispatcher.h"

namespace tavo_c {

/// The right to have the process's one session; throws Problem TAVO_BUSY while another has it.
class OnlySession {
public:
    OnlySession();
    ~OnlySession();
    OnlySession(const OnlySession&) = delete;
    OnlySession& operator=(const OnlySession&) = delete;
};

/// What stands behind a tavo_player: a session whose clock is the caller's, who asks for frames. Operations are called
/// with the turn held, but for those that say otherwise.
class PlayerAccess final : private stage::EngineSubscriber {
public:
    struct Options {
        stage::ShowSession::Options session;
        bool mixesClick = false;
        bool clicksEverywhere = false;
        bool waitsForDisplay = true;
    };

    PlayerAccess(const std::string& path, const Options& options);
    ~PlayerAccess();

    [[nodiscard]] std::mutex& GetTurn() { return turn_; }
    [[nodiscard]] stage::ShowSession& GetSession() { return session_; }
    [[nodiscard]] EventQueue& GetEvents() { return events_; }

    /// Throws std::invalid_argument for what is no command.
    stage::CommandRecord Do(const std::string& line, stage::Door door);
    stage::CommandRecord Do(stage::Command command);
    [[nodiscard]] std::string TakeState();
    void PutState(const std::string& state);
    [[nodiscard]] tavo_status GetStatus();

    /// Without the turn; false where another thread renders. At most as many pairs as there are names.
    [[nodiscard]] bool Render(std::span<const tavo_pair> pairs, std::uint32_t frames);
    /// Names of the pairs by which the sound leaves. Constant, as their text is; without the turn.
    [[nodiscard]] const std::vector<std::string>& GetPairNames() const { return pairNames_; }
    /// Without the turn; takes no lock.
    [[nodiscard]] const stage::Engine& GetEngine() const { return engine_; }
    /// Without the turn: what the display was sent becomes events.
    void CollectDisplay();

    /// Of this player's show; set once.
    std::uintptr_t showHandle = 0;

private:
    // EngineSubscriber.
    void OnEngineEvent(const stage::EngineEvent& event) override;

    void RenderPieces_(std::span<const tavo_pair> pairs, std::uint32_t frames);
    void PointTo_(std::span<const tavo_pair> pairs, std::uint32_t frame);
    void MakePasses_(bool isBetweenBlocks);
    void Hear_(const notify::GuiNotification& notification);
    void Report_(const notify::GuiNotification& notification);
    [[nodiscard]] std::uint32_t FindSong_(const std::string& number) const;
    [[nodiscard]] std::uint32_t PieceFrames_(std::uint32_t wanted);

    const OnlySession only_;
    std::mutex turn_;
    stage::ShowSession session_;
    // Constant after construction.
    stage::Engine& engine_;
    stage::SteppedFeed& feed_;
    const std::vector<std::string> pairNames_;
    const bool waitsForDisplay_;
    const std::uint32_t framesPerSecond_;
    const std::int64_t passFrames_;

    // Used by the thread that renders.
    std::atomic<bool> isRendering_{false};
    stage::TruePeakLimiter limiter_;
    stage::PairDelay delay_;                  // of all but the main pair
    std::vector<stage::StereoBuffer> pairs_;  // that are written, from some frame on

    std::mutex passMutex_;            // one pass of the display feed at a time
    std::int64_t nextPassFrame_ = 0;  // guarded by passMutex_

    std::mutex displayMutex_;
    // Guarded by displayMutex_.
    std::vector<notify::GuiNotification> heard_;
    std::map<notify::GuiNotificationType, notify::GuiNotification> shown_;
    std::atomic<bool> isLampOn_{false};
    std::atomic<std::uint32_t> song_{TAVO_NO_SONG};

    // Synchronises itself.
    EventQueue events_;
    notify::GuiDispatcher::HandlerId handler_ = 0;
};

[[nodiscard]] HandleTable<PlayerAccess>& GetPlayers();

inline std::uintptr_t NumberOf(const tavo_player* player) {
    return reinterpret_cast<std::uintptr_t>(player);
}

}  // namespace tavo_c
