#include <gtest/gtest.h>

#include <type_traits>

#include "player_core/interface.h"
#include "tests/support/virtual_slots.h"

namespace {

TEST(InterfaceSlots, VirtualOperationsKeepTheirOrder) {
    using tavo_audio::VolumeType;
    using test_support::SlotOf;
    static_assert(std::is_abstract_v<Interface>);
    static_assert(std::has_virtual_destructor_v<Interface>);
    // Opens the protected operations.
    struct Opened : Interface {
        using Interface::GetHasConductBeat;
        using Interface::LoadChangeLogEditor;
        using Interface::LoadShowData;
    };
    EXPECT_TRUE(test_support::AreConsecutive({
        SlotOf(&Interface::GetScoreTar),
        SlotOf(static_cast<bool (Interface::*)(double)>(&Interface::SetVolume)),
        SlotOf(static_cast<bool (Interface::*)(double, VolumeType)>(&Interface::SetVolume)),
        SlotOf(static_cast<double (Interface::*)()>(&Interface::GetVolume)),
        SlotOf(static_cast<double (Interface::*)(VolumeType)>(&Interface::GetVolume)),
        SlotOf(&Interface::GetVolumeTypes),
        SlotOf(&Interface::GetCommandNames),
        SlotOf(&Interface::SetMidiSource),
        SlotOf(&Opened::GetHasConductBeat),
        SlotOf(&Opened::LoadChangeLogEditor),
        SlotOf(&Opened::LoadShowData),
        SlotOf(&Interface::GetPlayer),
    }));
    // The destructor takes the first two places.
    EXPECT_EQ(2, SlotOf(&Interface::GetScoreTar));
}

}  // namespace
