#pragma once

namespace notify {

/// While it lives, what its thread sends through a GuiDispatcher is queued without waking the dispatcher's thread,
/// which would then stand in the way of the sends that follow; it is woken once, at the end. Another thread's send
/// wakes it at any time. For a run of sends that does not block. Ends on the thread that began it; may be nested.
class GuiBatch {
public:
    GuiBatch();
    ~GuiBatch();
    GuiBatch(const GuiBatch&) = delete;
    GuiBatch& operator=(const GuiBatch&) = delete;
};

}  // namespace notify
