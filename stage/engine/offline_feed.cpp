#include "stage/engine/offline_feed.h"

namespace stage {

OfflineFeed::OfflineFeed(Player& player, std::function<bool(unsigned int*)> reportPosition)
    : GuiUpdate(player, std::move(reportPosition)) {
    // The update thread leaves at its next signal, before it makes a pass.
    SetShouldRun(false);
    SendGuiUpdate();
}

OfflineFeed::~OfflineFeed() {
    // Quit waits for threads that are meant to run only.
    SetShouldRun(true);
    Quit();
}

}  // namespace stage
