#include "tavo_core/change_log_events.h"

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <vector>

#include "tavo_core/event_codes.h"

namespace {

struct EditRow {
    std::shared_ptr<cmn::TavoEvent> edit;
    unsigned char code;
    const char* name;
    unsigned int start;
    unsigned int end;
    int intValue;
    const char* value;
};

template <class Edit>
std::shared_ptr<cmn::TavoEvent> Make(Edit edit) {
    return std::make_shared<Edit>(std::move(edit));
}

std::vector<EditRow> OneOfEachKind() {
    return {
        {Make(CL::Vamp(960, 1920)), 0x40, "Vamp", 960, 1920, 0, ""},
        {Make(CL::Vamp(960, 1920, 3)), 0x40, "Vamp", 960, 1920, 3, "3"},
        {Make(CL::Repeat(0, 480, 2)), 0x41, "Repeat", 0, 480, 2, "2"},
        {Make(CL::Cut(480, 960)), 0x42, "Cut", 480, 960, 0, ""},
        {Make(CL::Transposition(1, 2, -3)), 0x43, "Transposition", 1, 2, -3, "-3"},
        {Make(CL::Transposition(1, 2, 0)), 0x43, "Transposition", 1, 2, 0, "0"},
        {Make(CL::Transposition(1, 2, 4)), 0x43, "Transposition", 1, 2, 4, "+4"},
        {Make(CL::TempoScale(1, 2, 0.9F)), 0x44, "Tempo Scale", 1, 2, 0, "90.00%"},
        {Make(CL::TempoScale(1, 2, 1.0F / 3)), 0x44, "Tempo Scale", 1, 2, 0, "33.33%"},
        {Make(CL::Click(0, 960, 4)), 0x45, "Click", 0, 960, 4, "4"},
        {Make(CL::Marker(77, "Verse")), 0x46, "Marker", 77, 77, 0, "Verse"},
        {Make(CL::Fermata(480, 490)), 0x4D, "Fermata", 480, 490, 0, ""},
        {Make(CL::Caesura(480, "breath", 1)), 0x4E, "Caesura", 480, 480, 0, "breath"},
        {Make(CL::Sfx(5, 9, "door.wav", -3)), 0x4F, "Sfx", 5, 9, 0, "door.wav"},
        {Make(CL::SfxAmbient(5, 9, "rain.ogg")), 0x50, "Ambient Sfx", 5, 9, 0, "rain.ogg"},
        {Make(CL::Osc(8, "desk", "/go")), 0x51, "OSC", 8, 8, 0, "/go"},
        {Make(CL::Osc(8, "", "/cue", {7, 0.1F, 2.0F, std::string("blue")})), 0x51, "OSC", 8, 8, 0,
         "/cue 7 0.1 2.0 blue"},
    };
}

}  // namespace

TEST(Edit, OfEachKind_TellsItsCodeNamePlaceAndValue) {
    for (const EditRow& row : OneOfEachKind()) {
        SCOPED_TRACE(std::string(row.name) + " '" + row.value + "'");
        EXPECT_EQ(row.code, row.edit->code());
        EXPECT_EQ(row.name, codes::EditName(row.edit->code()));
        EXPECT_EQ(row.start, row.edit->abs_time());
        EXPECT_EQ(row.start, row.edit->start());
        EXPECT_EQ(row.end, row.edit->end());
        EXPECT_EQ(row.intValue, row.edit->int_value());
        EXPECT_EQ(row.value, row.edit->value());
    }
}

TEST(Edit, Written_IsOneLine) {
    std::ostringstream os;
    CL::Repeat(960, 1920, 3).WriteString(os);
    CL::Cut(1, 2).WriteString(os);
    EXPECT_EQ("Repeat: tick = 960, start = 960, end = 1920, value = 3\nCut: tick = 1, start = 1, end = 2\n", os.str());
}

TEST(EventCodes, VampOrRepeat_IsTheRangeBelowCut) {
    EXPECT_FALSE(codes::IsVampOrRepeat(0x3F));
    EXPECT_TRUE(codes::IsVampOrRepeat(codes::Vamp));
    EXPECT_TRUE(codes::IsVampOrRepeat(codes::Repeat));
    EXPECT_FALSE(codes::IsVampOrRepeat(codes::Cut));
    EXPECT_FALSE(codes::IsVampOrRepeat(codes::Fermata));
}

TEST(EventCodes, NameOfWhatIsNoEdit_IsEmpty) {
    for (const unsigned char code : {codes::Tempo, codes::PageNum, static_cast<unsigned char>(0)})
        EXPECT_EQ("", codes::EditName(code));
    EXPECT_EQ(12U, codes::editNameByTavoEventCode.size());
}

TEST(TempoScale, ValueWithinRange_AtTheBounds) {
    struct Row {
        float scale;
        bool within;
    };
    for (const auto& [scale, within] :
         {Row{0.49999F, false}, Row{0.5F, true}, Row{1, true}, Row{2, true}, Row{2.0001F, false}})
        EXPECT_EQ(within, CL::TempoScale(0, 1, scale).ValueWithinRange()) << scale;
}

TEST(Click, ClocksPerClick_CountsTheMetersThirtySeconds) {
    struct Row {
        int value;
        unsigned char thirtySecondsPerQuarter;
        unsigned int clocks;
    };
    for (const Row& row : {Row{8, 8, 24}, Row{4, 8, 12}, Row{1, 8, 3}, Row{12, 8, 36}, Row{128, 8, 384}, Row{8, 16, 12},
                           Row{1, 255, 0}, Row{8, 0, 0}, Row{0, 8, 0}, Row{-4, 8, 0}})
        EXPECT_EQ(row.clocks, CL::Click(0, 1, row.value).ClocksPerClick(row.thirtySecondsPerQuarter)) << row.value;
}

TEST(Caesura, IgnoredVersionTarget_IsTheHighestNumberAndTheChoiceIsKept) {
    EXPECT_EQ(0xFFFFFFFFU, CL::GetCaesuraIgnoredVersionTarget());
    CL::SetCaesuraVersionTarget(7);
    EXPECT_EQ(7U, CL::GetCaesuraVersionTarget());
    CL::SetCaesuraVersionTarget(0);
    EXPECT_EQ(0U, CL::GetCaesuraVersionTarget());
    EXPECT_EQ(3U, CL::Caesura(1, "", 3).VersionTarget());
}
