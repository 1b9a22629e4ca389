#include <gtest/gtest.h>

#include <type_traits>

#include "player_core/player.h"
#include "player_core/show_control.h"
#include "tests/support/virtual_slots.h"

namespace {

TEST(PlayerInterface, DerivesVirtuallyFromTheOutputInterfaceAndFromNothingElse) {
    static_assert(std::is_base_of_v<tavo_audio::PlayerOutputInterface, Player>);
    static_assert(!std::is_base_of_v<ShowControl, Player>);
    static_assert(std::is_abstract_v<Player>);
    static_assert(std::has_virtual_destructor_v<Player>);
}

TEST(PlayerInterface, VirtualOperationsKeepTheirOrder) {
    using tavo_audio::VolumeType;
    using test_support::SlotOf;
    // Opens the protected operation.
    struct Opened : Player {
        using Player::ResetPlayerNoFillBuffers;
    };
    EXPECT_TRUE(test_support::AreConsecutive({
        SlotOf(&Player::EnsureGuiIsCurrent),
        SlotOf(&Player::GetElapsedTime),
        SlotOf(&Player::GetShowControl),
        SlotOf(&Player::IsOutputRunning),
        SlotOf(&Player::StopIfPlaying),
        SlotOf(&Player::LoadSong),
        SlotOf(&Player::NextSong),
        SlotOf(&Player::Pause),
        SlotOf(&Player::Fade),
        SlotOf(&Player::PrevSong),
        SlotOf(static_cast<bool (Player::*)(double)>(&Player::SetVolume)),
        SlotOf(static_cast<bool (Player::*)(double, VolumeType)>(&Player::SetVolume)),
        SlotOf(static_cast<double (Player::*)()>(&Player::GetVolume)),
        SlotOf(static_cast<double (Player::*)(VolumeType)>(&Player::GetVolume)),
        SlotOf(&Player::Seek),
        SlotOf(&Player::SeekLeft),
        SlotOf(&Player::SeekRight),
        SlotOf(&Player::SeekToPreviousMeasure),
        SlotOf(&Player::SeekToNextMeasure),
        SlotOf(&Player::SetAttaccaState),
        SlotOf(&Player::SetTempoScale),
        SlotOf(&Player::SetTransposition),
        SlotOf(&Player::PrepareForExit),
        SlotOf(&Player::Shutdown),
        SlotOf(&Player::HaltOutput),
        SlotOf(&Player::Stop),
        SlotOf(&Player::FlowControlExit),
        SlotOf(&Player::Continue),
        SlotOf(&Player::ConductBeat),
        SlotOf(&Player::SetConductorMode),
        SlotOf(&Player::CancelFade),
        SlotOf(&Player::JumpToInternalCut),
        SlotOf(&Opened::ResetPlayerNoFillBuffers),
    }));
}

TEST(PlayerInterface, OutputOperationsKeepTheirOrder) {
    using tavo_audio::PlayerOutputInterface;
    using test_support::SlotOf;
    EXPECT_TRUE(test_support::AreConsecutive({
        SlotOf(&PlayerOutputInterface::HasPendingCaesura),
        SlotOf(&PlayerOutputInterface::CurrentSongIsAttacca),
        SlotOf(&PlayerOutputInterface::GUINotifyCaesura),
        SlotOf(&PlayerOutputInterface::OnNewChangeLog),
        SlotOf(&PlayerOutputInterface::GetJump),
        SlotOf(&PlayerOutputInterface::ClearJump),
        SlotOf(&PlayerOutputInterface::GetJumpForVampRepeatOrCut),
        SlotOf(&PlayerOutputInterface::GetFermataCanceledCaesura),
        SlotOf(&PlayerOutputInterface::Play),
    }));
    EXPECT_EQ(0, SlotOf(&PlayerOutputInterface::HasPendingCaesura));
}

}  // namespace
