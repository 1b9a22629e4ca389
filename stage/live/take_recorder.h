#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "stage/control/take.h"
#include "stage/session/show_session.h"

namespace stage {

/// Notes a performance in a take: every decision of the desk, and where the show stands at each song's start, at stops,
/// at the beats, a second apart at least, and after each command.
class TakeRecorder final : private EngineSubscriber {
public:
    /// `session` outlives the object; nobody renders meanwhile.
    TakeRecorder(ShowSession& session, std::unique_ptr<TakeWriter> writer);
    ~TakeRecorder();
    TakeRecorder(const TakeRecorder&) = delete;
    TakeRecorder& operator=(const TakeRecorder&) = delete;

    /// To be called for each record of the desk, on the rendering thread.
    void NoteRecord(const CommandRecord& record);
    /// Any thread.
    void NoteDevice(const std::string& sentence);
    [[nodiscard]] std::string GetProblem() const { return writer_->GetProblem(); }
    [[nodiscard]] const std::string& GetPath() const { return writer_->GetPath(); }

private:
    // EngineSubscriber.
    void OnEngineEvent(const EngineEvent& event) override;

    void NoteState_();

    ShowSession& session_;
    Engine& engine_;
    StageShowControl& flow_;
    const std::int64_t framesPerSecond_;
    std::unique_ptr<TakeWriter> writer_;
    // Used by the rendering thread.
    std::int64_t lastState_ = 0;
};

}  // namespace stage
