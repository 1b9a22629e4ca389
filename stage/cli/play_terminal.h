#pragma once

#include <chrono>
#include <deque>
#include <string>

#include "stage/control/take.h"
#include "stage/live/live_show.h"
#include "stage/live/screen_control.h"
#include "stage/live/screen_terminal.h"

/// A performance on the operator's screen: draws what is heard, presses what the keys mean.
class PlayTerminal final : public stage::LiveListener {
public:
    /// Throws what ScreenTerminal throws.
    explicit PlayTerminal(stage::LiveShow& show);
    ~PlayTerminal();
    PlayTerminal(const PlayTerminal&) = delete;
    PlayTerminal& operator=(const PlayTerminal&) = delete;

    /// Until the operator quits, or SIGTERM or SIGINT.
    void Run();
    /// Asks whether to go on from there; `take` outlives the object.
    void OfferResume(const stage::Take& take);

    // LiveListener.
    void OnLiveEvent(const stage::LiveEvent& event) override;
    void OnRecord(const stage::CommandRecord& record) override;
    void OnNotification(const notify::GuiNotification& notification) override;
    void OnMessage(const std::string& sentence) override;

private:
    using Moment = stage::ScreenControl::Moment;

    void FollowTerminal_(Moment now);
    void ReadKeys_(Moment now);
    void Do_(const stage::ScreenAction& action, Moment now);
    void Draw_(Moment now);

    stage::LiveShow& show_;
    stage::ScreenControl control_;
    stage::ScreenTerminal terminal_;
    const stage::Take* offered_ = nullptr;
    std::deque<std::string> messages_;
    bool isChanged_ = true;
    bool isQuitPressed_ = false;
    Moment drawn_;
};
