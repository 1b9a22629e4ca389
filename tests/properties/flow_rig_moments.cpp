// The rig as something that can be left and taken up again with fresh objects.

#include <utility>

#include "tavo_core/active_change_log.h"
#include "tests/properties/flow_rig.h"

namespace properties {

FlowRig::Moment FlowRig::TakeMoment() {
    CheckTold_();
    Moment moment;
    moment.flow = FlowStateFromText(ToText(flow_->Snapshot()));
    // A copy: attacca is written in place.
    moment.changeLog = std::make_shared<CL::ChangeLog>(*changeLog_);
    moment.version = version_;
    moment.song = song_;
    moment.playerState = player_.GetPlayerState();
    moment.reference = reference_;
    moment.next = next_;
    moment.standsAtCaesura = standsAtCaesura_;
    moment.isOver = isOver_;
    moment.passedCaesura = passedCaesura_;
    return moment;
}

FlowRig::FlowRig(const ShowSpec& show, const Moment& moment)
    : show_(show), showData_(BuildShowData(show)), reference_(moment.reference) {
    Install_();
    changeLog_ = std::make_shared<CL::ChangeLog>(*moment.changeLog);
    SetActiveChangeLog(changeLog_);
    version_ = moment.version;
    song_ = moment.song;
    player_.LoadSong(SongNumber(song_));
    flow_->Restore(moment.flow);
    player_.SetPlayerState(moment.playerState);
    next_ = moment.next;
    standsAtCaesura_ = moment.standsAtCaesura;
    isOver_ = moment.isOver;
    passedCaesura_ = moment.passedCaesura;
    heard_->Take();
    lampIsOn_ = moment.flow.vampLamp;
    Require(flow_->Snapshot() == moment.flow, "what was put back is not what was taken");
}

FlowRig::Transcript FlowRig::Record(std::span<const Action> actions) {
    Transcript transcript;
    transcript_ = &transcript;
    for (const Action& action : actions)
        Do(action);
    CheckTold_();
    transcript_ = nullptr;
    return transcript;
}

}  // namespace properties
