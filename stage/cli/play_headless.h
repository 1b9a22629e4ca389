#pragma once

#include <string>

#include "stage/control/take.h"
#include "stage/live/live_json.h"
#include "stage/live/live_show.h"

/// A performance without a screen: reads what is pressed as lines from standard input and prints what happens as JSON
/// objects, one a line, to standard output. The end of the input is not the end of the show.
class PlayHeadless final : public stage::LiveListener {
public:
    PlayHeadless(stage::LiveShow& show, bool printsBeats);
    ~PlayHeadless();
    PlayHeadless(const PlayHeadless&) = delete;
    PlayHeadless& operator=(const PlayHeadless&) = delete;

    /// Until "quit", SIGTERM or SIGINT.
    void Run();
    /// After the show was closed.
    static void PrintEnd();
    void OfferResume(const stage::Take& take);

    // LiveListener.
    void OnLiveEvent(const stage::LiveEvent& event) override;
    void OnRecord(const stage::CommandRecord& record) override;
    void OnNotification(const notify::GuiNotification& notification) override;
    void OnMessage(const std::string& sentence) override;

private:
    void ReadInput_();
    void DoLine_(const std::string& line);
    void Print_(const std::string& line);

    stage::LiveShow& show_;
    stage::LiveJson json_;
    const bool printsBeats_;
    const stage::Take* offered_ = nullptr;
    std::string input_;
    bool hasInput_ = true;
};
