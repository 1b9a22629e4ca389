#include "player_core/gui_records.h"

#include <gtest/gtest.h>

#include <memory>
#include <utility>
#include <vector>

#include "tavo_core/event_codes.h"

namespace {

TEST(GuiRecords, AnswerTickCodeAndValueOfTheirEntries) {
    const TL::BarsBeats beat(960, 3, "12");
    const TL::Key key(960, -3, false);
    const TL::Meter meter(960, 6, 8);
    const TL::PageNum page(960, 17);
    const TL::Tempo tempo(960, 500000);
    std::vector<std::pair<std::unique_ptr<cmn::TavoEvent>, unsigned char>> records;
    records.emplace_back(std::make_unique<gui::BarsBeats>(&beat), codes::BarsBeats);
    records.emplace_back(std::make_unique<gui::Key>(&key), codes::Key);
    records.emplace_back(std::make_unique<gui::Meter>(&meter), codes::Meter);
    records.emplace_back(std::make_unique<gui::PageNum>(&page), codes::PageNum);
    records.emplace_back(std::make_unique<gui::Tempo>(&tempo), codes::Tempo);
    for (const auto& [record, code] : records) {
        EXPECT_EQ(960U, record->abs_time());
        EXPECT_EQ(960U, record->start());
        EXPECT_EQ(960U, record->end());
        EXPECT_EQ(code, record->code());
    }
    EXPECT_EQ("12:3", records[0].first->value());
    EXPECT_EQ("Eb major", records[1].first->value());
    EXPECT_EQ("6/8", records[2].first->value());
    EXPECT_EQ(17, records[3].first->int_value());
    EXPECT_EQ("120", records[4].first->value());
}

TEST(GuiRecords, ValueQueriesThatAKindDoesNotHave_AnswerAsAnyEvent) {
    const TL::Key key(0, 0, false);
    const TL::PageNum page(0, 17);
    EXPECT_EQ(0, gui::Key(&key).int_value());
    EXPECT_EQ("", gui::PageNum(&page).value());
}

TEST(GuiRecords, MeterHandsOutItsEntry) {
    const TL::Meter meter(0, 3, 4);
    EXPECT_EQ(&meter, gui::Meter(&meter).get_wrapped());
}

TEST(GuiRecords, TempoCountsClicksOfItsMeter_AndQuartersWithoutOne) {
    const TL::Tempo tempo(0, 500000);
    // Dotted quarters click in this 6/8: 36 of 24 MIDI clocks a quarter.
    const TL::Meter meter(0, 6, 8, 36);
    gui::Tempo record(&tempo);
    EXPECT_EQ("120", record.value());
    record.meter(&meter);
    EXPECT_EQ("80", record.value());
    record.meter(nullptr);
    EXPECT_EQ("120", record.value());
}

TEST(GuiRecords, CopiesPointAtTheSameEntry) {
    TL::Key key(960, 0, false);
    const gui::Key first(&key);
    gui::Key second(first);
    const TL::Key other(0, 2, false);
    gui::Key third(&other);
    third = second;
    gui::Key fourth(std::move(second));
    key = TL::Key(1920, 1, true);
    for (const gui::Key* record :
         {&first, static_cast<const gui::Key*>(&third), static_cast<const gui::Key*>(&fourth)}) {
        EXPECT_EQ(1920U, record->abs_time());
        EXPECT_EQ("E minor", record->value());
    }
}

TEST(GuiRecords, CopiedTempoKeepsItsMeter) {
    const TL::Tempo tempo(0, 500000);
    const TL::Meter meter(0, 6, 8, 36);
    gui::Tempo record(&tempo);
    record.meter(&meter);
    const gui::Tempo copy(record);
    EXPECT_EQ("80", copy.value());
}

}  // namespace
