#include "stage/session/stepped_feed.h"

namespace stage {

SteppedFeed::SteppedFeed(Player& player, std::function<bool(unsigned int*)> reportPosition)
    : GuiUpdate(player, std::move(reportPosition)) {
    // The update thread leaves at its next signal, before it makes a pass.
    SetShouldRun(false);
    SendGuiUpdate();
}

SteppedFeed::~SteppedFeed() {
    // Quit waits for threads that are meant to run only.
    SetShouldRun(true);
    Quit();
}

}  // namespace stage
