#include "stage/live/take_recorder.h"

#include <optional>
#include <utility>

namespace stage {

namespace {

/// Whether where the command goes depends on the playhead that the display shows, which a replay does not know.
bool IsSoughtByDisplay(Verb verb) {
    return verb == Verb::NextMarker || verb == Verb::PreviousMarker || verb == Verb::NextMeasure ||
           verb == Verb::PreviousMeasure;
}

bool IsStateWanted(EngineEvent::Kind kind) {
    return kind == EngineEvent::Kind::SongPutIn || kind == EngineEvent::Kind::Held ||
           kind == EngineEvent::Kind::StoppedAtCaesura || kind == EngineEvent::Kind::Stopped;
}

}  // namespace

TakeRecorder::TakeRecorder(ShowSession& session, std::unique_ptr<TakeWriter> writer)
    : session_(session),
      engine_(session.GetStagePlayer().GetEngine()),
      flow_(session.GetStagePlayer().GetStageShowControl()),
      framesPerSecond_(session.GetOptions().framesPerSecond),
      writer_(std::move(writer)) {
    engine_.Subscribe(*this);
}

TakeRecorder::~TakeRecorder() {
    engine_.Unsubscribe(*this);
}

void TakeRecorder::NoteRecord(const CommandRecord& record) {
    std::optional<std::uint32_t> sought;
    if (record.IsTaken() && IsSoughtByDisplay(record.command.verb)) {
        // Without a marker ahead the playhead stays, and there is nothing to repeat.
        if (!flow_.GetWaitingJump()) return;
        sought = flow_.GetLastSeekTickIndex();
    }
    writer_->NoteCommand(record, sought);
    if (record.IsTaken()) NoteState_();
}

void TakeRecorder::NoteDevice(const std::string& sentence) {
    writer_->NoteDevice(engine_.GetFrame(), sentence);
}

void TakeRecorder::OnEngineEvent(const EngineEvent& event) {
    const bool isBeat = event.kind == EngineEvent::Kind::Arrived && event.frame - lastState_ >= framesPerSecond_;
    if (isBeat || IsStateWanted(event.kind)) NoteState_();
}

void TakeRecorder::NoteState_() {
    if (session_.GetCurrentSongNumber().empty()) return;
    lastState_ = engine_.GetFrame();
    writer_->NoteState(lastState_, flow_.Snapshot());
}

}  // namespace stage
