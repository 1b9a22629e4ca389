#include "platform/tavo_midi_io/src/device_names.h"

#include <gtest/gtest.h>

namespace {

using tavo_midi_io::DeviceNames;
using tavo_midi_io::FindAddress;
using NameList = std::vector<std::string>;

TEST(DeviceNames, Address_IsWhatAnAddressLooksLike) {
    EXPECT_EQ(FindAddress("Pedal:Pedal MIDI 1 20:0"), "20:0");
    EXPECT_EQ(FindAddress("Pedal 2"), "");
    EXPECT_EQ(FindAddress("Pedal 20:"), "");
    EXPECT_EQ(FindAddress("Pedal :0"), "");
    EXPECT_EQ(FindAddress("Pedal 1:2:3"), "");
    EXPECT_EQ(FindAddress("pedal:out"), "");
    EXPECT_EQ(FindAddress(""), "");
}

TEST(DeviceNames, ComeAndGo_EachKeepsItsNameWhileItIsThere) {
    DeviceNames names;
    EXPECT_EQ(names.Name({"Pedal 20:0", "Keys 24:0", "Pedal 28:0"}), (NameList{"Pedal", "Keys", "Pedal (2)"}));
    EXPECT_EQ(names.FindFullName("Pedal (2)"), "Pedal 28:0");
    EXPECT_EQ(names.Name({"Keys 24:0", "Pedal 28:0"}), (NameList{"Keys", "Pedal (2)"}));
    EXPECT_EQ(names.FindFullName("Pedal"), std::nullopt);
    EXPECT_EQ(names.Name({"Pedal 32:0", "Keys 24:0", "Pedal 28:0", "Pedal 36:0"}),
              (NameList{"Pedal", "Keys", "Pedal (2)", "Pedal (3)"}));
    EXPECT_EQ(names.Name({}), NameList{});
    EXPECT_EQ(names.Name({"Pedal 28:0"}), NameList{"Pedal"});
}

TEST(DeviceNames, GoneAndBackAtAnotherAddressInOneLook_KeepsTheName) {
    DeviceNames names;
    EXPECT_EQ(names.Name({"Pedal 20:0", "Pedal 24:0"}), (NameList{"Pedal", "Pedal (2)"}));
    EXPECT_EQ(names.Name({"Pedal 24:0", "Pedal 32:0"}), (NameList{"Pedal (2)", "Pedal"}));
    EXPECT_EQ(names.FindFullName("Pedal"), "Pedal 32:0");
}

TEST(DeviceNames, WithoutAddresses_AreToldApartByTheirOrder) {
    DeviceNames names;
    EXPECT_EQ(names.Name({"Pedal", "Pedal", "Keys"}), (NameList{"Pedal", "Pedal (2)", "Keys"}));
    EXPECT_EQ(names.Name({"Pedal", "Keys"}), (NameList{"Pedal", "Keys"}));
    EXPECT_EQ(names.FindFullName("Pedal (2)"), std::nullopt);
}

TEST(DeviceNames, OfThisProduct_AreLeftOut) {
    DeviceNames names;
    EXPECT_EQ(names.Name({"tavo-out:out 128:0", "Pedal 20:0"}), (NameList{"", "Pedal"}));
}

}  // namespace
