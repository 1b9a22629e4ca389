// The advance: what playback meets on its way from one tick to the next.

#include <algorithm>

#include "player_core/show_control.h"
#include "tavo_core/event_codes.h"

void ShowControl::FindNextControlEventOnAdvance(unsigned int fromTick, unsigned int toTick) {
    DoFindNextControlEventOnAdvance_(fromTick, toTick);
    CheckForRemainingVampRepeatOrFermata();
}

void ShowControl::DoFindNextControlEventOnAdvance_(unsigned int fromTick, unsigned int toTick) {
    const SeekLock lock(seekMutex_);
    loopEvents_.RemoveInactiveEvents(fromTick);
    result_.Reset();
    {
        // It posts a count. Meanwhile a seek may change the loops and caesuras, and a load the map: nothing read before
        // is used after.
        const kit::ScopedUnlock unlock(lock);
        if (DetectCaesuraAtTickIndex_(fromTick)) return;
    }
    std::optional<unsigned int> nextKey = pairedEventMap_.FindFirstKeyFrom(fromTick);
    if (nextKey == fromTick) {
        const auto atKey = pairedEventMap_.EventsAt(fromTick);
        const std::vector<const cmn::TavoEvent*> events(atKey.begin(), atKey.end());
        const std::uint64_t buildCount = buildCount_;
        if (CollectCutOrCaesuras_(fromTick, events, lock)) return;
        // Where the song was rebuilt while a count was posted, the events belong to no song any more.
        if (buildCount == buildCount_ && RegisterLoopsAt_(fromTick, events)) return;
        nextKey = pairedEventMap_.FindFirstKeyAfter(fromTick);
    }
    LimitAdvance_(toTick, nextKey);
}

// First pass over the events at a key: true when a cut ends the search there.
bool ShowControl::CollectCutOrCaesuras_(unsigned int tickIndex, const std::vector<const cmn::TavoEvent*>& events,
                                        const SeekLock& lock) {
    const std::uint64_t buildCount = buildCount_;
    for (const cmn::TavoEvent* event : events) {
        if (event->code() == codes::Cut && !IsSpent_(*event)) {
            result_.cutHere = true;
            result_.tickIndex = event->end();
            return true;
        }
        if (event->code() == codes::Caesura) {
            // One that stands between the first two beats counts on a beat after itself and is met too late; stacked,
            // it would stop every search at a tick that has gone by.
            const auto& caesura = static_cast<const CountdownCaesura&>(*event);
            if (caesura.GetTickIndex() >= tickIndex) PushCaesuraIfNew_(caesura);
            // The display's own locks come before the future statuses, so the count is posted without ours; another
            // thread may rebuild the song meanwhile.
            {
                const kit::ScopedUnlock unlock(lock);
                SendCounts();
            }
            if (buildCount != buildCount_) return false;
        }
    }
    return false;
}

// Second pass: true when the last loop met at the key was new.
bool ShowControl::RegisterLoopsAt_(unsigned int tickIndex, const std::vector<const cmn::TavoEvent*>& events) {
    // Only the last insertion counts: a refused one clears what an earlier one achieved, and playback goes on without a
    // second search.
    bool lastWasInserted = false;
    for (const cmn::TavoEvent* event : events) {
        const unsigned char code = event->code();
        if (code == codes::Caesura || code == codes::Cut) continue;
        if (code == codes::Fermata && fermata_) continue;
        if (IsSpent_(*event)) continue;
        lastWasInserted = InsertLoopEvent_(*event, tickIndex);
    }
    if (!lastWasInserted) return false;
    result_.loopStartsHere = true;
    result_.tickIndex = tickIndex;
    return true;
}

void ShowControl::LimitAdvance_(unsigned int toTick, std::optional<unsigned int> nextKey) {
    if (AdvanceToCaesura(toTick, nextKey ? static_cast<long long>(*nextKey) : -1)) return;
    result_.stopBeforeEnd = nextKey && *nextKey < toTick;
    result_.tickIndex = result_.stopBeforeEnd ? *nextKey : toTick;
}

bool ShowControl::AdvanceToCaesura(unsigned int toTick, long long limit) {
    if (caesuraStack_.empty() || atCaesura_) return false;
    const long long bound = limit < 0 ? toTick : std::min<long long>(limit, toTick);
    const unsigned int caesuraTick = caesuraStack_.front().GetTickIndex();
    if (caesuraTick >= bound) return false;
    result_.stopBeforeEnd = true;
    result_.tickIndex = caesuraTick;
    return true;
}

bool ShowControl::DetectCaesuraAtTickIndex_(unsigned int tickIndex) {
    const SeekLock lock(seekMutex_);
    if (caesuraStack_.empty()) return false;
    const unsigned int caesuraTick = GetFirstCaesuraStackTickIndex();
    if (tickIndex > caesuraTick) {
        caesuraStack_.pop_front();
        SetCaesuraPost_(false);
        atCaesura_ = false;
        return false;
    }
    const bool reached = tickIndex == caesuraTick;
    if (reached) {
        if (atCaesura_) return false;
        atCaesura_ = true;
        SetCaesuraPost_(false);
        caesuraTickIndex_ = tickIndex;
        result_.caesuraHere = true;
    }
    // The count is posted of what flow control is in by then; the answer is about what was there.
    lock.Unlock();
    SendCounts();
    return reached;
}

bool ShowControl::InsertLoopEvent_(const cmn::TavoEvent& event, unsigned int /*tickIndex*/) {
    if (!loopEvents_.InsertLoopEvent(LoopEvent(event))) return false;
    if (event.code() == codes::Fermata) {
        fermata_ = true;
        fermataEvent_ = {songLogOwner_, static_cast<const CL::Fermata*>(&event)};
    }
    return true;
}

void ShowControl::PushCaesuraIfNew_(const CountdownCaesura& caesura) {
    if (std::find(caesuraStack_.begin(), caesuraStack_.end(), caesura) != caesuraStack_.end()) return;
    caesuraStack_.push_back(caesura);
}

// A cut or loop that ends where it starts, or before, would hold playback at one place forever: it gets one turn.
bool ShowControl::IsSpent_(const cmn::TavoEvent& event) {
    if (event.start() < event.end()) return false;
    if (std::find(spentEvents_.begin(), spentEvents_.end(), &event) != spentEvents_.end()) return true;
    spentEvents_.push_back(&event);
    return false;
}

void ShowControl::ProcessLoopEventsAtCurrentTickIndex() {
    // Several loops may end at one tick.
    while (ProcessFirstLoopEvent_()) {
    }
}

bool ShowControl::ProcessFirstLoopEvent_() {
    const SeekLock lock(seekMutex_);
    if (loopEvents_.IsEmpty()) return false;
    LoopEvent& loop = loopEvents_.GetFirstLoopEvent();
    if (tickIndex_ != loop.end) return false;
    // Where the lock is let go, a seek may come in between and move on: each step then decides anew what it finds, and
    // `loop` is not used any more.
    if (loop.type == codes::Fermata) {
        lock.Unlock();
        DoExpireFermata();
    } else if (loop.maxCount == 0 || loop.count < loop.maxCount) {
        JumpBack_(loop, lock);
    } else if (loop.type == codes::Vamp) {
        // Decided under the lock, carried out without it: the seek that releases a fermata waits for other seeks.
        const std::optional<unsigned int> seekTarget = DecideFlowControlExit_();
        lock.Unlock();
        FinishFlowControlExit_(seekTarget);
    } else {
        lock.Unlock();
        DoRepeatOff();
    }
    return true;
}

void ShowControl::JumpBack_(LoopEvent& loop, const SeekLock& lock) {
    ++loop.count;
    const unsigned int start = loop.start;
    // A loop without length has arrived at its end again as soon as it has jumped: once is enough.
    if (start >= loop.end) loop.canceled = true;
    FindNextControlEventOnSeek(start, true);
    SetJump(start, lock, true);
}

void ShowControl::SetJump(unsigned int tickIndex, const kit::LockInterface& /*lock*/, bool forVampRepeatOrCut) {
    preJumpTickIndex_ = tickIndex_;
    jump_ = true;
    jumpForVampRepeatOrCut_ = forVampRepeatOrCut;
    lastJumpTargetTickIndex_ = tickIndex;
    DoSkipAhead(tickIndex);
}

void ShowControl::DoSkipAhead(unsigned int tickIndex) {
    tickIndex_ = tickIndex;
    GetHowToPlay().Seek(tickIndex);
    loopEvents_.RemoveCanceledEventsStartingAfter(tickIndex);
    ExpireOutOfRangeCaesuras(tickIndex);
}

void ShowControl::ExpireOutOfRangeCaesuras(unsigned int tickIndex) {
    std::erase_if(caesuraStack_, [tickIndex](const CountdownCaesura& caesura) {
        return !caesura.WithinCountdownRange(tickIndex) && caesura.GetTickIndex() != tickIndex;
    });
}

bool ShowControl::HasCutAtTickIndex(unsigned int tickIndex, unsigned int* cutEnd) {
    const SeekLock lock(seekMutex_);
    const auto events = pairedEventMap_.EventsAt(tickIndex);
    const auto cut = std::find_if(events.begin(), events.end(),
                                  [](const cmn::TavoEvent* event) { return event->code() == codes::Cut; });
    if (cut == events.end()) return false;
    *cutEnd = (*cut)->end();
    return true;
}

unsigned int ShowControl::FindFirstNonCut_(unsigned int tickIndex) {
    for (;;) {
        const auto [isInCut, cutEnd] = FindNextControlEventOnSeek(tickIndex, false);
        if (!isInCut) return tickIndex;
        tickIndex = cutEnd;
    }
}

void ShowControl::DoRepeatOff() {
    {
        const SeekLock lock(seekMutex_);
        loopEvents_.RemoveCanceledEventsEndingOnOrBefore(tickIndex_);
        // The first node goes, whatever its state: with a canceled loop in front the repeat itself stays for a while.
        if (!loopEvents_.IsEmpty()) loopEvents_.RemoveFirstLoopEvent();
    }
    CheckForRemainingVampRepeatOrFermata();
}

void ShowControl::DoExpireFermata() {
    {
        const SeekLock lock(seekMutex_);
        fermata_ = false;
        loopEvents_.RemoveFermata();
    }
    CheckForRemainingVampRepeatOrFermata();
}
