#pragma once

#include <string>

#include "stage/cli/press_lines.h"
#include "stage/control/take.h"
#include "stage/live/live_json.h"
#include "stage/live/live_show.h"

/// A performance that another program runs: reads what is pressed as lines from standard input and prints what happens
/// as JSON objects, one a line, to standard output.
class PlayHeadless final : public stage::LiveListener {
public:
    PlayHeadless(stage::LiveShow& show, bool printsBeats);

    /// Until "quit", SIGTERM or SIGINT.
    void Run();
    /// After the show was closed; `takePath` is empty where no take was made.
    static void PrintEnd(const std::string& takePath);
    void OfferResume(const stage::Take& take);

    // LiveListener.
    void OnLiveEvent(const stage::LiveEvent& event) override;
    void OnRecord(const stage::CommandRecord& record) override;
    void OnNotification(const notify::GuiNotification& notification) override;
    void OnMessage(const std::string& sentence) override;

private:
    static void Print_(const std::string& line);

    stage::LiveShow& show_;
    stage::LiveJson json_;
    const bool printsBeats_;
    PressLines lines_;
};
