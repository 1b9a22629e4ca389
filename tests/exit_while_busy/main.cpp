// Ends while its threads read all that lives as long as the process: tables, dispatchers, registers, the active change
// log. Whatever is destroyed at exit all the same is read after that, which the sanitizers report and which may crash.

#include <array>
#include <atomic>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>

#include "kit/clock.h"
#include "kit/thread_exception_log.h"
#include "kit/thread_names.h"
#include "tavo_core/active_change_log.h"
#include "tavo_core/callback_dispatcher.h"
#include "tavo_core/directories.h"
#include "tavo_core/edit_text.h"
#include "tavo_core/editor.h"
#include "tavo_core/event_codes.h"
#include "tavo_core/gui_dispatcher.h"
#include "tests/tavo_core/test_timelines.h"

namespace {

void ReadTables() {
    for (const auto& [code, name] : codes::editNameByTavoEventCode) {
        if (name.empty() || codes::EditName(code) != name) std::abort();
    }
    if (!codes::EditName(0).empty()) std::abort();
}

void ReadDispatchers() {
    std::atomic<int> calls{0};  // the other threads' notifications come here, too
    const auto count = [&calls](void*) { ++calls; };
    notify::callbackDispatcher.AddCallback(&calls, notify::names::internal_cut, count);
    notify::callbackDispatcher.Notify(notify::names::internal_cut, nullptr);
    notify::callbackDispatcher.RemoveCallbacksForTarget(&calls);
    if (calls == 0) std::abort();
    notify::guiDispatcher.SendVampOff();
}

void ReadRegisters() {
    kit::threadNames.SetNameOfCurrentThread("reader");
    if (kit::threadNames.GetNameOfCurrentThread() != "reader") std::abort();
    if (Directories::GetShowDirectory() != "a show") std::abort();
    if (!kit::GetThreadExceptionLogPath().empty()) std::abort();
    if (kit::GetClock().Now().count() == 0) std::abort();
}

void ReadLogs(CL::Editor& editor) {
    const ActiveChangeLogShared log;
    if (log->AsText().empty()) std::abort();
    static_cast<void>(CL::Compare(CL::ChangeLog(), *log));
    // Of a song that neither the show nor the log knows.
    static_cast<void>(editor.GetTickIndexNotBoundedByCutAndOneBeatBefore(0));
}

constexpr unsigned int RoundsAfterMain = 200;
constexpr std::size_t ThreadCount = 4;
constinit std::array<std::atomic<unsigned int>, ThreadCount> rounds{};
constinit std::atomic<bool> isOver = false;
constinit std::atomic<std::size_t> resting = 0;

void ReadWithoutAPause(std::atomic<unsigned int>& round, CL::Editor& editor) {
    while (!isOver) {
        ReadTables();
        ReadDispatchers();
        ReadRegisters();
        ReadLogs(editor);
        ++round;
    }
    ++resting;
    isOver.wait(true);
}

void WaitForRounds(unsigned int count) {
    for (const auto& round : rounds) {
        const unsigned int wanted = round + count;
        while (round < wanted)
            std::this_thread::yield();
    }
}

/// Made before all other static objects and so destroyed after them.
struct LastToGo {
    ~LastToGo() {
        WaitForRounds(RoundsAfterMain);
        isOver = true;
        while (resting < ThreadCount)
            std::this_thread::yield();
    }
};
[[gnu::init_priority(101)]] const LastToGo lastToGo;

}  // namespace

int main() {
    auto log = std::make_shared<CL::ChangeLog>();
    log->GetSongLogs()["1"].GetVamps().Add(CL::Vamp(0, 480));
    SetActiveChangeLog(log);
    Directories::SetShowDirectory("a show");
    auto& songs = *new test_support::TestTimelines;
    songs.Song("1", 8);
    auto& editor = *new CL::Editor(songs);
    for (auto& round : rounds)
        std::thread([&] { ReadWithoutAPause(round, editor); }).detach();
    WaitForRounds(1);
    return 0;
}
