// Performs a short show without sound and prints how a display changes: a vamp that is left by a press, a fermata that
// holds until a press, a caesura with its countdown, the end of a song and the end of the show.

#include <cstdio>
#include <exception>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "counting_host.h"
#include "tavo_core/change_log.h"
#include "tavo_midi/show_data.h"

namespace {

constexpr unsigned int TicksPerBar = 3 * TicksPerBeat;
constexpr unsigned int TicksPerBlock = TicksPerBeat / 4;

constexpr unsigned int Place(unsigned int bar, unsigned int beat) {
    return (bar - 1) * TicksPerBar + (beat - 1) * TicksPerBeat;
}

tavo_midi::SongData MakeSong(const std::string& number, const std::string& title, unsigned int bars) {
    TL::Timeline timeline(0, bars * TicksPerBar);
    timeline.SetSongTitle(title);
    timeline.GetMeters().Append({0, 3, 4});
    timeline.GetTempos().Append({0, 500000});
    for (unsigned int bar = 1; bar <= bars; ++bar) {
        for (unsigned int beat = 1; beat <= 3; ++beat)
            timeline.GetBarsBeats().Append({Place(bar, beat), beat, std::to_string(bar)});
    }
    return {number, std::move(timeline), TicksPerBeat};
}

std::shared_ptr<CL::ChangeLog> MakeEdits() {
    auto log = std::make_shared<CL::ChangeLog>();
    CL::SongLog& first = log->GetSongLogs()["1"];
    first.GetVamps().Add({Place(2, 1), Place(3, 1)});
    first.GetFermatas().Add({Place(4, 3), Place(5, 1)});
    first.GetCaesuras().Add({Place(7, 1), "wait for the door", 0});
    log->GetSongLogs()["2"];
    return log;
}

/// Puts into words how what it shows changes; what it is told again it shows already. The dispatcher's thread writes,
/// the host's thread takes.
class Display {
public:
    void Hear(const notify::GuiNotification& news) {
        using enum notify::GuiNotificationType;
        const std::lock_guard lock(mutex_);
        if (news.type == SongTitle) Show_(title_, "song \"" + news.text + '"');
        if (news.type == BarBeat) Show_(place_, "bar " + news.text);
        if (news.type == StatusFlowControl && news.text.empty()) Show_(status_, "status cleared");
        if (news.type == StatusFlowControl && !news.text.empty())
            Show_(status_, "status " + news.text + ' ' + std::to_string(news.number));
        if (news.type == VampOn || news.type == VampOff) Show_(lamp_, news.type == VampOn ? "lamp on" : "lamp off");
        if (news.type == PlaybackStarted) Show_(playback_, "started");
        if (news.type == PlaybackStopped) Show_(playback_, "stopped");
        if (news.type == Caesura) changes_ += "at the caesura, ";
        if (news.type == NoNextSong) changes_ += "no next song, ";
    }
    std::string TakeChanges() {
        const std::lock_guard lock(mutex_);
        if (!changes_.empty()) changes_.resize(changes_.size() - 2);
        return std::exchange(changes_, "");
    }

private:
    void Show_(std::string& shown, const std::string& text) {
        if (shown != text) changes_ += text + ", ";
        shown = text;
    }

    std::mutex mutex_;
    std::string title_, place_, status_, lamp_, playback_;
    std::string changes_;
};

/// What the operator presses, by the clock's tick.
const std::map<unsigned int, std::string> Presses = {
    {0, "start"},
    {17 * TicksPerBeat / 2, "leave the vamp"},  // in its second pass
    {20 * TicksPerBeat, "release the fermata"},
    {30 * TicksPerBeat, "go on after the caesura"},
    {38 * TicksPerBeat, "start the second song"},
};

void Perform() {
    tavo_midi::ShowData show;
    show.AddSong(MakeSong("1", "The Door", 8));
    show.AddSong(MakeSong("2", "The Street", 2));
    SetActiveChangeLog(MakeEdits());

    CountingPlayer player(show);
    auto ownedFeed = std::make_unique<CountingFeed>(player);
    CountingFeed& feed = *ownedFeed;
    SetGuiUpdate(std::move(ownedFeed));
    Display display;
    const auto handler = notify::guiDispatcher.AddHandler([&display](const auto& news) { display.Hear(news); });

    player.LoadSong("1");
    for (unsigned int clock = 0; clock < 46 * TicksPerBeat; clock += TicksPerBlock) {
        if (const auto press = Presses.find(clock); press != Presses.end()) {
            std::printf("--- press: %s\n", press->second.c_str());
            player.Continue();
        }
        player.PlayBlock(TicksPerBlock);
        feed.RunOnePass_();
        notify::guiDispatcher.Drain();
        const std::string changes = display.TakeChanges();
        if (!changes.empty()) std::printf("%6.3f s  %s\n", clock / TicksPerSecond, changes.c_str());
    }

    notify::guiDispatcher.RemoveHandler(handler);
    SetGuiUpdate(nullptr);  // it refers to the player
}

}  // namespace

int main() {
    try {
        Perform();
    } catch (const std::exception& problem) {
        std::fprintf(stderr, "minimal_host: %s\n", problem.what());
        return 1;
    }
    return 0;
}
