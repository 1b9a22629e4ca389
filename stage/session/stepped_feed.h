#pragma once

#include <functional>
#include <thread>

#include "player_core/gui_update.h"

namespace stage {

/// A display feed for playback that is not tied to the time of day: it makes a pass when its owner says so, on its
/// owner's thread, and never on its own. A signal asks for a pass; the owner finds that out by UseCurrentPosition.
class SteppedFeed : public gui::GuiUpdate {
public:
    /// `reportPosition` as GuiUpdate takes it.
    SteppedFeed(Player& player, std::function<bool(unsigned int*)> reportPosition);
    ~SteppedFeed() override;

    /// One pass on the calling thread.
    void MakePass() { RunOnePass_(); }
    /// Playback goes on: passes are due.
    [[nodiscard]] bool IsRunning() { return !GetIsPaused(); }
    using GuiUpdate::GetInterval;
};

}  // namespace stage
