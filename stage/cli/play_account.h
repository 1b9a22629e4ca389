#pragma once

#include <optional>
#include <string>

#include "stage/cli/press_lines.h"
#include "stage/live/live_show.h"
#include "tavo_core/bar_positions.h"

/// A performance without a terminal to draw on: tells a person what happens in a line for each thing, and reads presses
/// as lines from standard input.
class PlayAccount final : public stage::LiveListener {
public:
    explicit PlayAccount(stage::LiveShow& show);

    /// Until "quit", SIGTERM or SIGINT.
    void Run();
    void OfferResume(const stage::Take& take);

    // LiveListener.
    void OnLiveEvent(const stage::LiveEvent& event) override;
    void OnRecord(const stage::CommandRecord& record) override;
    void OnNotification(const notify::GuiNotification& notification) override;
    void OnMessage(const std::string& sentence) override;

private:
    void TellBar_(std::uint32_t tick);
    void TellJump_(const stage::LiveEvent& event);
    static void Print_(const std::string& line);
    [[nodiscard]] std::string Place_(std::uint32_t tick) const;

    stage::LiveShow& show_;
    PressLines lines_;
    const tavo_midi::SongData* song_ = nullptr;
    std::optional<TL::BarPositions> positions_;
    std::string status_;
};
