#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "stage/live/live_show.h"
#include "stage/osc/osc_cues.h"
#include "stage/osc/osc_display.h"
#include "stage/osc/osc_server.h"

namespace stage {

/// The door through which OSC comes in: what arrives is pressed like a key, the desk's answer goes to the sender, and
/// whoever has subscribed sees what a screen shows. Made and used by the host's thread.
class OscDoor final : private LiveListener {
public:
    /// Begins to listen, where `in` is on; where the port cannot be had, the show hears a sentence and goes on without.
    /// What there is to say of `cues` is said here. The references outlive the object.
    OscDoor(LiveShow& show, const Settings::OscIn& in, OscCues& cues);
    ~OscDoor();
    OscDoor(const OscDoor&) = delete;
    OscDoor& operator=(const OscDoor&) = delete;

private:
    /// Whoever waits for the desk's answer.
    struct Asker {
        OscPeer peer;
        std::string address;
    };

    // LiveListener.
    void OnLiveEvent(const LiveEvent& /*event*/) override {}
    void OnRecord(const CommandRecord& record) override;
    void OnNotification(const notify::GuiNotification& notification) override;
    void OnMessage(const std::string& sentence) override;
    void OnDelivered() override;
    void AddToStatus(LiveStatus& status) override;

    void Press_(const OscServer::Request& request);
    void Answer_(const CommandRecord& record);
    void ShowValues_();

    LiveShow& show_;
    OscCues& cues_;
    std::unique_ptr<OscServer> server_;
    std::string problem_;
    std::uint64_t lastTag_ = 0;
    std::map<std::uint64_t, Asker> askers_;    // by the tag of what they pressed and the desk has not decided
    std::map<std::string, OscMessage> shown_;  // the last event of each address that is a state
    OscDisplay display_;
    std::chrono::steady_clock::time_point nextValues_;
};

}  // namespace stage
