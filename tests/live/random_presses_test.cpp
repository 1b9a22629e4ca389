// An operator who presses anything at any time, and edits while it plays: nothing hangs, and the take tells it all.

#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <thread>

#include "kit/file.h"
#include "stage/control/script.h"
#include "stage/live/live_show.h"
#include "stage/offline/offline_show.h"
#include "tests/stage/small_show.h"

namespace {

using namespace std::chrono_literals;
using stage::Verb;

/// More when asked for.
int CountPresses() {
    const char* wanted = std::getenv("TAVO_RANDOM_PRESSES");
    return wanted != nullptr ? std::atoi(wanted) : 250;
}

struct Place {
    std::string song;
    std::uint32_t tick = 0;
    double tempoScale = 1;
    std::size_t loops = 0;

    bool operator==(const Place&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Place& place) {
    return out << "song " << place.song << " tick " << place.tick << " scale " << place.tempoScale << " loops "
               << place.loops;
}

Place FindPlace(stage::ShowSession& session) {
    stage::StagePlayer& player = session.GetStagePlayer();
    return {session.GetCurrentSongNumber(), player.GetEngine().GetPosition(), player.GetUserControls().GetTempoScale(),
            player.GetStageShowControl().Snapshot().loops.size()};
}

class Deaf final : public stage::LiveListener {
public:
    void OnLiveEvent(const stage::LiveEvent&) override {}
    void OnRecord(const stage::CommandRecord& record) override { ++records[record.outcome]; }
    void OnNotification(const notify::GuiNotification&) override {}
    void OnMessage(const std::string&) override {}

    std::map<stage::CommandRecord::Outcome, int> records;
};

class RandomPresses : public test_support::SmallShow {
protected:
    void SetUp() override {
        for (const char* edit : {"add vamp --song 1 --from 2 --to 2", "add repeat --song 1 --from 4 --to 4 --times 2",
                                 "add fermata --song 1 --from 6:3 --to 6:4", "add caesura --song 1 --at 8:1",
                                 "add cut --song 1 --from 10 --to 11", "attacca --song 1 attacca"})
            ASSERT_EQ(0, Edit(edit).exitCode) << edit;
    }

    std::string MakePress_() {
        const auto pick = [this](int highest) { return std::uniform_int_distribution<int>(0, highest)(random_); };
        switch (pick(17)) {
            case 0:
            case 1:
            case 2:
                return "go";
            case 3:
            case 4:
                return "play";
            case 5:
                return "exit";
            case 6:
                return "pause";
            case 7:
                return "continue";
            case 8:
                return "stop";
            case 9:
                return "seek tick " + std::to_string(pick(20) * 1920 + pick(1919));
            case 10:
                return pick(1) == 0 ? "next-measure" : "previous-measure";
            case 11:
                return pick(1) == 0 ? "next-marker" : "previous-marker";
            case 12:
                return pick(1) == 0 ? "next" : "previous";
            case 13:
                return "tempo " + std::to_string(50 + pick(150)) + "%";
            case 14:
                return "transpose " + std::to_string(pick(24) - 12);
            case 15:
                return "fade 0.0" + std::to_string(pick(9));
            case 16:
                return pick(1) == 0 ? "cancel-fade" : "panic";
            default:
                return pick(1) == 0 ? "load 1"
                                    : "volume " + std::to_string(pick(100)) + (pick(1) == 0 ? "%" : "% music");
        }
    }
    void MakeEdit_(stage::LiveShow& show) {
        const auto pick = [this](int highest) { return std::uniform_int_distribution<int>(0, highest)(random_); };
        const auto from = static_cast<unsigned int>(pick(18)) * 1920;
        try {
            if (pick(2) == 0) {
                show.Press(show.Read("undo", {stage::Door::Terminal, "test"}));
            } else if (pick(1) == 0) {
                show.GetSession().AddEdit("1", CL::Vamp(from, from + 1920));
            } else {
                show.GetSession().AddEdit("1", CL::Cut(from, from + 1920));
            }
        } catch (const std::exception&) {
            // What the rules refuse is not done.
        }
    }

    std::mt19937 random_{20261122};
};

TEST_F(RandomPresses, WhileItPlays_EndWhereTheTakeLeads) {
    const std::string takePath = directory_ / "random.take";
    Place performed;
    Deaf listener;
    {
        stage::LiveShow::Options options;
        options.output.kind = stage::OutputChoice::Kind::Null;
        options.takePath = takePath;
        options.settingsDirectory = directory_ / "settings";
        std::filesystem::create_directory(options.settingsDirectory);
        stage::LiveShow show(Show(), options);
        show.Press(show.Read("load 1", {stage::Door::Script, ""}));
        for (int press = 0; press < CountPresses(); ++press) {
            // A script's presses are not guarded: more of them get through.
            const stage::Door door = press % 2 == 0 ? stage::Door::Script : stage::Door::Terminal;
            if (press % 25 == 24) {
                MakeEdit_(show);
            } else {
                show.Press(show.Read(MakePress_(), {door, "test"}));
            }
            ASSERT_TRUE(show.Deliver(listener));
            static_cast<void>(show.GetStatus());
            std::this_thread::sleep_for(std::chrono::milliseconds(random_() % 12));
        }
        show.Press(show.Read("panic", {stage::Door::Script, ""}));
        show.Press(show.Read("quit", {stage::Door::Script, ""}));
        while (show.Deliver(listener))
            std::this_thread::sleep_for(1ms);
        performed = FindPlace(show.GetSession());
        EXPECT_EQ(0U, show.GetSession().GetSynth().CountSoundingNotes());
    }
    EXPECT_GT(listener.records[stage::CommandRecord::Outcome::Taken], CountPresses() / 2);

    const std::string text = kit::ReadFile(takePath, 1U << 28U);
    stage::OfflineOptions options;
    options.take = stage::ReadTakeSettings(text.substr(0, text.find('\n')));
    stage::ShowSession session(Show(), Show(), stage::MakeTakeSessionOptions(*options.take));
    options.script = stage::ParseShowScript(text, takePath, session.GetShow(), "1");
    stage::OfflineShow replay(session, options, {}, {});
    EXPECT_TRUE(replay.Run().remarks.empty());
    EXPECT_EQ(performed, FindPlace(session));
}

}  // namespace
