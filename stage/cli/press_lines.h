#pragma once

#include <functional>
#include <string>
#include <utility>

#include "stage/control/take.h"
#include "stage/live/live_show.h"

/// What a program or a person presses as lines on standard input while a show is performed. The end of the input is not
/// the end of the show. SIGTERM and SIGINT press "quit"; a reader of the output that has gone away does not end the
/// show.
class PressLines {
public:
    /// Hears why a line could not be pressed: one sentence.
    using ErrorListener = std::function<void(const std::string& sentence)>;

    PressLines(stage::LiveShow& show, ErrorListener onError);
    ~PressLines();
    PressLines(const PressLines&) = delete;
    PressLines& operator=(const PressLines&) = delete;

    /// Called for the line "status".
    void SetStatusListener(std::function<void()> onStatus) { onStatus_ = std::move(onStatus); }
    /// "resume" goes on from there; `take` outlives the object.
    void OfferResume(const stage::Take& take) { offered_ = &take; }

    /// Presses what was written. Waits for it a little: this is the pace of a host's loop.
    void Read();

private:
    void DoLine_(const std::string& line);

    stage::LiveShow& show_;
    const ErrorListener onError_;
    std::function<void()> onStatus_;
    const stage::Take* offered_ = nullptr;
    std::string input_;
    bool hasInput_ = true;
    bool isQuitPressed_ = false;
};
