#include "player_core/loop_event_list.h"

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>

#include "tavo_core/change_log_events.h"

namespace {

LoopEvent Vamp(unsigned int start, unsigned int end, int maxCount = 0) {
    return LoopEvent(CL::Vamp(start, end, maxCount));
}
LoopEvent Repeat(unsigned int start, unsigned int end, int count = 2) {
    return LoopEvent(CL::Repeat(start, end, count));
}
LoopEvent Fermata(unsigned int start, unsigned int end) {
    return LoopEvent(CL::Fermata(start, end));
}

LoopEvent Canceled(LoopEvent event) {
    event.canceled = true;
    return event;
}

LoopEventList ListOf(std::initializer_list<LoopEvent> events) {
    LoopEventList list;
    for (const LoopEvent& event : events)
        EXPECT_TRUE(list.InsertLoopEvent(event));
    return list;
}

std::string Printed(const LoopEventList& list) {
    testing::internal::CaptureStdout();
    list.print_loops();
    return testing::internal::GetCapturedStdout();
}

std::string MessageOf(const std::function<void()>& call) {
    try {
        call();
    } catch (const std::logic_error& error) {
        return error.what();
    }
    return "no exception";
}

}  // namespace

TEST(LoopEvent, MadeFromAnEdit_IsInItsFirstPass) {
    const LoopEvent repeat = Repeat(100, 200, 3);
    EXPECT_EQ(100U, repeat.start);
    EXPECT_EQ(200U, repeat.end);
    EXPECT_EQ(3, repeat.maxCount);
    EXPECT_EQ(1, repeat.count);
    EXPECT_EQ('A', repeat.type);
    EXPECT_FALSE(repeat.canceled);
}

TEST(LoopEvent, EqualityLooksAtPlaceAndKindOnly) {
    LoopEvent counted = Vamp(100, 200, 4);
    counted.count = 3;
    EXPECT_EQ(Vamp(100, 200), Canceled(counted));
    EXPECT_NE(Vamp(100, 200), Repeat(100, 200));
    EXPECT_NE(Vamp(100, 200), Vamp(101, 200));
    EXPECT_NE(Vamp(100, 200), Vamp(100, 201));
}

TEST(LoopEventList, LoopsThatEndTogether_TheInnerOneComesFirst) {
    LoopEventList list = ListOf({Repeat(50, 200), Vamp(120, 200)});
    EXPECT_EQ(Vamp(120, 200), list.GetFirstLoopEvent());
}

TEST(LoopEventList, NestedLoops_TheOneThatEndsSoonerComesFirst) {
    LoopEventList list = ListOf({Vamp(0, 300), Vamp(100, 200)});
    EXPECT_EQ(Vamp(100, 200), list.GetFirstLoopEvent());
}

TEST(LoopEventList, SamePlace_VampBeforeRepeatBeforeFermata) {
    LoopEventList list = ListOf({Fermata(0, 100), Repeat(0, 100), Vamp(0, 100)});
    EXPECT_EQ('@', list.GetFirstLoopEvent().type);
    list.RemoveFirstLoopEvent();
    EXPECT_EQ('A', list.GetFirstLoopEvent().type);
    list.RemoveFirstLoopEvent();
    EXPECT_EQ('M', list.GetFirstLoopEvent().type);
}

TEST(LoopEventList, CanceledCopyInTheList_BlocksRegisteringAgainUntilSweptOut) {
    LoopEventList list = ListOf({Canceled(Vamp(100, 200))});
    EXPECT_FALSE(list.InsertLoopEvent(Vamp(100, 200)));
    EXPECT_TRUE(list.IsEmpty());
    list.RemoveCanceledEvents();
    EXPECT_TRUE(list.InsertLoopEvent(Vamp(100, 200)));
}

TEST(LoopEventList, EndMovedThroughAReference_TheNextInsertionSortsTheWholeList) {
    LoopEventList list = ListOf({Vamp(0, 100), Vamp(0, 200), Vamp(0, 300)});
    list.GetFirstLoopEvent().end = 400;
    EXPECT_TRUE(list.InsertLoopEvent(Vamp(0, 250)));
    for (const unsigned int end : {200U, 250U, 300U, 400U}) {
        EXPECT_EQ(end, list.GetFirstLoopEvent().end);
        list.RemoveFirstLoopEvent();
    }
}

TEST(LoopEventList, SizeCountsActiveEvents_PrintingCountsAll) {
    const LoopEventList list = ListOf({Canceled(Vamp(0, 100)), Repeat(0, 200), Fermata(0, 300)});
    EXPECT_EQ(2U, list.GetSize());
    EXPECT_EQ(0U, Printed(list).find("Loops: size=3"));
}

TEST(LoopEventList, Printed_MixesColonsAndEqualsSigns) {
    LoopEventList list = ListOf({Repeat(960, 1920, 3), Canceled(Vamp(0, 3840))});
    EXPECT_EQ(
        "Loops: size=2"
        "\n  type: Repeat, start: 960, end: 1920, maxCount = 3, count = 1, canceled = 0\n"
        "\n  type: Vamp, start: 0, end: 3840, maxCount = 0, count = 1, canceled = 1\n"
        "\n\n\n",
        Printed(list));
}

TEST(LoopEventList, PrintedByTheFreeFunction_IsTheSame) {
    const LoopEventList list = ListOf({Fermata(0, 100)});
    testing::internal::CaptureStdout();
    print_loops(list);
    const std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_EQ(Printed(list), printed);
}

TEST(LoopEventList, EventOfUnknownKind_PrintsAnEmptyName) {
    LoopEvent strange = Vamp(0, 100);
    strange.type = 0x7A;
    const LoopEventList list = ListOf({strange});
    EXPECT_NE(std::string::npos, Printed(list).find("type: , start: 0"));
}

TEST(LoopEventList, OnlyCanceledEvents_IsEmpty) {
    const LoopEventList list = ListOf({Canceled(Vamp(0, 100)), Canceled(Repeat(0, 200))});
    EXPECT_TRUE(list.IsEmpty());
    EXPECT_EQ(0U, list.GetSize());
}

TEST(LoopEventList, HasRepeat_AloneCountsACanceledOne) {
    const LoopEventList list = ListOf({Canceled(Repeat(0, 200))});
    EXPECT_TRUE(list.GetHasRepeat());
    EXPECT_FALSE(list.HasVampOrRepeat());
    EXPECT_FALSE(ListOf({Vamp(0, 200)}).GetHasRepeat());
}

TEST(LoopEventList, QueriesByKind) {
    struct Row {
        LoopEvent event;
        bool vamp, vampOrFermata, vampOrRepeat;
    };
    for (const Row& row : {Row{Vamp(0, 1), true, true, true}, Row{Repeat(0, 1), false, false, true},
                           Row{Fermata(0, 1), false, true, false}, Row{Canceled(Vamp(0, 1)), false, false, false},
                           Row{Canceled(Fermata(0, 1)), false, false, false}}) {
        const LoopEventList list = ListOf({row.event});
        EXPECT_EQ(row.vamp, list.GetHasVamp());
        EXPECT_EQ(row.vampOrFermata, list.GetHasVampOrFermata());
        EXPECT_EQ(row.vampOrRepeat, list.HasVampOrRepeat());
    }
}

TEST(LoopEventList, QueriesForAnEventThatIsNotThere_Throw) {
    LoopEventList list;
    EXPECT_EQ("LoopEventList is empty", MessageOf([&] { list.GetFirstLoopEvent(); }));
    list = ListOf({Fermata(0, 100), Canceled(Vamp(0, 200)), Canceled(Repeat(0, 200))});
    EXPECT_EQ("LoopEventList does not have a vamp.", MessageOf([&] { list.GetFirstVampLoopEvent(); }));
    EXPECT_EQ("LoopEventList does not have a vamp or repeat.", MessageOf([&] { list.GetFirstVampOrRepeat(); }));
}

TEST(LoopEventList, FirstOfAKind_PassesOverTheOthers) {
    LoopEventList list = ListOf({Fermata(0, 100), Repeat(0, 200), Vamp(0, 300)});
    EXPECT_EQ(Fermata(0, 100), list.GetFirstLoopEvent());
    EXPECT_EQ(Repeat(0, 200), list.GetFirstVampOrRepeat());
    EXPECT_EQ(Vamp(0, 300), list.GetFirstVampLoopEvent());
}

TEST(LoopEventList, CancelVamp_MarksTheFirstActiveOneAndLeavesItInTheList) {
    LoopEventList list = ListOf({Vamp(0, 100), Vamp(0, 200)});
    list.CancelVamp();
    EXPECT_EQ(Vamp(0, 200), list.GetFirstVampLoopEvent());
    list.CancelVamp();
    list.CancelVamp();
    EXPECT_TRUE(list.IsEmpty());
    EXPECT_FALSE(list.InsertLoopEvent(Vamp(0, 100)));
}

TEST(LoopEventList, RemoveVamp_SweepsCanceledVampsAndTheFirstOneLeft) {
    LoopEventList list = ListOf({Canceled(Vamp(0, 100)), Vamp(0, 200), Vamp(0, 300), Canceled(Repeat(0, 50))});
    list.RemoveVamp();
    EXPECT_EQ(Vamp(0, 300), list.GetFirstVampLoopEvent());
    EXPECT_TRUE(list.GetHasRepeat());
    EXPECT_TRUE(list.InsertLoopEvent(Vamp(0, 100)));
}

TEST(LoopEventList, RemoveFermata_TakesTheFirstEvenIfCanceled) {
    LoopEventList list = ListOf({Canceled(Fermata(0, 100)), Fermata(0, 200)});
    list.RemoveFermata();
    EXPECT_EQ(Fermata(0, 200), list.GetFirstLoopEvent());
    list.RemoveFermata();
    list.RemoveFermata();
    EXPECT_TRUE(list.IsEmpty());
}

TEST(LoopEventList, RemoveFirstLoopEvent_TakesACanceledOneToo) {
    LoopEventList list = ListOf({Canceled(Vamp(0, 100)), Repeat(0, 200)});
    list.RemoveFirstLoopEvent();
    EXPECT_TRUE(list.InsertLoopEvent(Vamp(0, 100)));
}

TEST(LoopEventList, RemoveInactiveEvents_StopsAtTheFirstThatContainsTheTick) {
    // The second does not contain 150 but stays, since the one before it does.
    LoopEventList list = ListOf({Vamp(100, 200), Vamp(180, 300)});
    list.RemoveInactiveEvents(150);
    EXPECT_EQ(2U, list.GetSize());
}

TEST(LoopEventList, RemoveInactiveEvents_TheEndIsOutsideAndTheStartInside) {
    struct Row {
        unsigned int tick;
        bool stays;
    };
    for (const Row& row : {Row{99, false}, Row{100, true}, Row{199, true}, Row{200, false}}) {
        LoopEventList list = ListOf({Vamp(100, 200)});
        list.RemoveInactiveEvents(row.tick);
        EXPECT_EQ(row.stays, !list.IsEmpty()) << row.tick;
    }
}

TEST(LoopEventList, RemoveInactiveEvents_ACanceledOneThatContainsTheTickStops) {
    LoopEventList list = ListOf({Canceled(Vamp(100, 200)), Repeat(300, 400)});
    list.RemoveInactiveEvents(150);
    EXPECT_EQ(1U, list.GetSize());
}

TEST(LoopEventList, SweepsOfCanceledEvents_AtTheirBounds) {
    struct Row {
        const char* what;
        std::function<void(LoopEventList&)> sweep;
        bool sweepsEarly, sweepsLate, sweepsRepeat;
    };
    // Canceled: a vamp 100..200, a vamp 201..300 and a repeat 100..200.
    const Row rows[] = {
        {"all", [](LoopEventList& list) { list.RemoveCanceledEvents(); }, true, true, true},
        {"vamps", [](LoopEventList& list) { list.RemoveCanceledVamps(); }, true, true, false},
        {"ending by 199", [](LoopEventList& list) { list.RemoveCanceledEventsEndingOnOrBefore(199); }, false, false,
         false},
        {"ending by 200", [](LoopEventList& list) { list.RemoveCanceledEventsEndingOnOrBefore(200); }, true, false,
         true},
        {"starting after 200", [](LoopEventList& list) { list.RemoveCanceledEventsStartingAfter(200); }, false, true,
         false},
        {"starting after 201", [](LoopEventList& list) { list.RemoveCanceledEventsStartingAfter(201); }, false, false,
         false},
    };
    for (const Row& row : rows) {
        LoopEventList list =
            ListOf({Canceled(Vamp(100, 200)), Canceled(Vamp(201, 300)), Canceled(Repeat(100, 200)), Fermata(0, 150)});
        row.sweep(list);
        EXPECT_EQ(1U, list.GetSize()) << row.what;
        EXPECT_EQ(row.sweepsEarly, list.InsertLoopEvent(Vamp(100, 200))) << row.what;
        EXPECT_EQ(row.sweepsLate, list.InsertLoopEvent(Vamp(201, 300))) << row.what;
        EXPECT_EQ(row.sweepsRepeat, list.InsertLoopEvent(Repeat(100, 200))) << row.what;
    }
}

TEST(LoopEventList, Copies_OwnTheirEvents) {
    LoopEventList list = ListOf({Vamp(0, 100)});
    LoopEventList copy = list;
    copy.GetFirstLoopEvent().count = 7;
    EXPECT_EQ(1, list.GetFirstLoopEvent().count);
    list.Clear();
    EXPECT_TRUE(list.IsEmpty());
    EXPECT_FALSE(copy.IsEmpty());
}
