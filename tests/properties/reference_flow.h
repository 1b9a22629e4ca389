#pragma once

#include <deque>
#include <functional>
#include <list>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "player_core/show_control.h"
#include "tavo_core/song_log.h"
#include "tavo_core/timeline.h"

namespace properties {

/// The statuses filed for the display, walked through one by one.
class ReferenceStatuses {
public:
    using Status = std::pair<std::string, int>;

    void File(const std::string& type, int count, unsigned int tick);
    void SendUntil(unsigned int tick, const std::function<void(const Status&)>& send);
    void ClearCaesura();
    void ClearAll();

private:
    std::map<unsigned int, Status> statuses_;
    std::optional<unsigned int> pendingZero_;
    unsigned int sentUntil_ = 0;
};

/// Flow control once more, as its rules read: one thread, no locks, a map of lists that is walked, a list that is
/// sorted whenever something is added. The real one must agree with it in everything that can be seen.
class ReferenceFlow {
public:
    struct Caesura {
        unsigned int tick = 0;
        std::vector<unsigned int> countdown;
        bool zeroReported = false;

        [[nodiscard]] unsigned int First() const { return countdown.empty() ? tick : countdown.front(); }
        [[nodiscard]] bool IsWithin(unsigned int t) const { return !countdown.empty() && First() <= t && t < tick; }
        [[nodiscard]] int CountAt(unsigned int t) const;
    };
    struct Loop {
        unsigned int start = 0;
        unsigned int end = 0;
        int maxCount = 0;
        int count = 1;
        unsigned char type = 0;
        bool canceled = false;
    };

    // What the engine and the operator do; the names are those of the real one.
    void LoadSong(const CL::SongLog& songLog, const TL::Timeline& timeline, unsigned int ticksPerQuarter);
    void LoadNewChangeLog(const CL::SongLog& songLog, const TL::Timeline& timeline, unsigned int ticksPerQuarter);
    void FindNextControlEventOnAdvance(unsigned int fromTick, unsigned int toTick);
    void ProcessLoopEventsAtCurrentTickIndex();
    void CheckForRemainingVampRepeatOrFermata();
    void FlowControlExit();
    bool Seek(unsigned int tick);
    unsigned int RecoverySeek(unsigned int tick);
    void DoSkipAhead(unsigned int tick);
    void OnCaesuraStop();
    void FullReset();
    void ResetCaesuraState(unsigned int tick);
    /// A pass of the display feed with the playhead at `tick`.
    void Pass(unsigned int tick) { SendStatusesUntil_(tick); }

    [[nodiscard]] bool HasPendingCaesura() const { return atCaesura && !caesuraPost; }
    [[nodiscard]] std::vector<Loop> ActiveLoops() const;

    // State, named as in the real one.
    unsigned int tickIndex = 0;
    unsigned int howToPlayTick = 0;
    unsigned int startTick = 0;
    unsigned int endTick = 0;
    std::list<Loop> loops;
    std::deque<Caesura> caesuraStack;
    unsigned int caesuraTickIndex = 0;
    bool atCaesura = false;
    bool caesuraPost = false;
    bool attacca = false;
    bool fermata = false;
    bool fermataCanceledCaesura = false;
    bool jump = false;
    bool jumpForVampRepeatOrCut = false;
    unsigned int preJumpTickIndex = 0;
    unsigned int lastJumpTargetTickIndex = 0;
    unsigned int lastSeekTickIndex = 0;
    FindNextControlEventResult result;
    bool lampIsOn = false;
    /// What the display was told of lamp and statuses, in order.
    std::vector<std::string> told;

private:
    struct Event {
        unsigned char code = 0;
        unsigned int start = 0;
        unsigned int end = 0;
        int value = 0;
        Caesura caesura;
        mutable bool spent = false;  // without length: it has had its one turn since the operator's last seek
    };

    void DoFind_(unsigned int from, unsigned int to);
    bool AdvanceToCaesura_(unsigned int to, long long limit);
    bool Detect_(unsigned int tick);
    bool Insert_(const Event& event);
    static bool IsSpent_(const Event& event);
    void ForgetSpent_();
    void Push_(const Caesura& caesura);
    Loop* FirstActive_();
    void RemoveInactive_(unsigned int tick);
    void DropFirstOfTypeAndEquals_(unsigned char type);
    void DoFlowControlExit_();
    void DoRepeatOff_();
    void DoExpireFermata_();
    void SetJump_(unsigned int tick, bool forVampRepeatOrCut);
    void ExpireCaesuras_(unsigned int tick);
    std::pair<bool, unsigned int> FindOnSeek_(unsigned int tick, bool skipCaesura);
    bool SendCounts_();
    bool SendCaesuraCount_();
    void SendLamp_(bool on);
    void SendStatusesUntil_(unsigned int tick);
    [[nodiscard]] int ClicksToSongEnd_() const;
    void BuildCaesuras_(const CL::SongLog& songLog);

    std::map<unsigned int, std::list<Event>> pairedEventMap_;
    std::vector<Caesura> caesuraCounter_;
    std::vector<unsigned int> beats_;
    bool caesuraDisplayPending_ = false;
    unsigned int caesuraDisplayTickIndex_ = 0;
    unsigned int fermataEnd_ = 0;
    bool seekIsOwn_ = false;
    ReferenceStatuses statuses_;
};

}  // namespace properties
