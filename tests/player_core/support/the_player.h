#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "tests/player_core/support/test_player.h"
#include "tests/player_core/support/test_show.h"

namespace test_support {

/// A song of sixteen bars with a vamp over its second to fourth beat and a caesura at bar 5, on a player that does
/// nothing but write down what it is asked to do, with what is sent to the display in between.
class ThePlayer : public ::testing::Test {
protected:
    static constexpr unsigned int VampStart = 480;
    static constexpr unsigned int VampEnd = 1920;
    static constexpr unsigned int CaesuraTick = 4 * TicksPerBar;

    ThePlayer() {
        showData_.AddSong(MakeSong("1", 16));
        showData_.AddSong(MakeSong("2", 16));
        changeLog_ = MakeChangeLog(showData_);
        CL::SongLog& songLog = changeLog_->GetSongLog("1");
        songLog.GetVamps().Add(CL::Vamp(VampStart, VampEnd));
        songLog.GetCaesuras().Add(CL::Caesura(CaesuraTick, "", 0));
        songLog.GetFermatas().Add(CL::Fermata(CaesuraTick - 960, CaesuraTick + 960));
        SetActiveChangeLog(changeLog_);
        player_ = std::make_unique<TestPlayer>(showData_);
        auto feed = std::make_unique<TestFeed>(*player_, position_);
        feed_ = feed.get();
        SetGuiUpdate(std::move(feed));
        player_->LoadSong("1");
        PutPlayheadAt(0);
    }
    ~ThePlayer() override {
        SetGuiUpdate(nullptr);
        player_.reset();
        SetActiveChangeLog(nullptr);
    }

    void PutPlayheadAt(unsigned int tickIndex) {
        player_->GetShowControl().Seek(tickIndex);
        position_.tickIndex = tickIndex;
        feed_->RunOnePass_();
        player_->calls.Take();
    }

    std::string CallsOf(const std::function<void()>& operation) {
        return test_support::CallsOf(*player_, *feed_, operation);
    }

    tavo_midi::ShowData showData_;
    std::shared_ptr<CL::ChangeLog> changeLog_;
    ReportedPosition position_;
    std::unique_ptr<TestPlayer> player_;
    TestFeed* feed_ = nullptr;
};

}  // namespace test_support
