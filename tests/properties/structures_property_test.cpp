#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <deque>
#include <list>
#include <map>
#include <tuple>
#include <vector>

#include "player_core/loop_event_list.h"
#include "player_core/paired_event_map.h"
#include "tavo_core/change_log_events.h"
#include "tavo_core/event_codes.h"

// The two structures against the plain ones they stand for: a map of lists that is walked, and a list that is appended
// to and sorted again.
namespace {

rc::Gen<int> Among(int from, int to) {
    return rc::gen::resize(rc::kNominalSize, rc::gen::inRange(from, to));
}

struct Range {
    int key = 0;
    int start = 0;
    int length = 0;
};

rc::Gen<std::vector<Range>> RandomRanges(int lastTick) {
    return rc::gen::container<std::vector<Range>>(rc::gen::build<Range>(
        rc::gen::set(&Range::key, Among(0, lastTick)), rc::gen::set(&Range::start, Among(0, lastTick)),
        rc::gen::set(&Range::length, rc::gen::weightedOneOf<int>({{9, Among(0, 12)}, {1, Among(0, lastTick)}}))));
}

using PlainMap = std::map<unsigned int, std::list<const cmn::TavoEvent*>>;

std::vector<const cmn::TavoEvent*> CoveringInPlainWalk(const PlainMap& plain, unsigned int tick) {
    std::vector<const cmn::TavoEvent*> covering;
    for (const auto& [key, events] : plain) {
        if (key > tick) break;
        for (const cmn::TavoEvent* event : events) {
            if (event->end() > tick) covering.push_back(event);
        }
    }
    return covering;
}

RC_GTEST_PROP(PairedEventMapProperty, AnswersAsAMapOfListsThatIsWalked, ()) {
    const int lastTick = *rc::gen::element(8, 60, 2000);
    const auto ranges = *rc::gen::scale(6, RandomRanges(lastTick));
    std::deque<CL::Vamp> owned;
    std::vector<PairedEventMap::Entry> entries;
    PlainMap plain;
    for (const Range& range : ranges) {
        const auto start = static_cast<unsigned int>(range.start);
        const CL::Vamp& event = owned.emplace_back(start, start + static_cast<unsigned int>(range.length), 0);
        // Keys and starts may differ: a caesura is met where its countdown begins.
        entries.push_back({static_cast<unsigned int>(range.key), &event});
        plain[static_cast<unsigned int>(range.key)].push_back(&event);
    }
    for (auto& [key, events] : plain) {
        events.sort([](const cmn::TavoEvent* a, const cmn::TavoEvent* b) { return a->end() < b->end(); });
    }
    const PairedEventMap map(entries);
    RC_ASSERT(map.IsEmpty() == plain.empty());

    // Questions in random order and in runs, since the map remembers where it was.
    const auto questions = *rc::gen::container<std::vector<int>>(Among(0, lastTick + 2));
    for (const int question : questions) {
        for (unsigned int tick = static_cast<unsigned int>(question), run = 0; run < 3; ++run, ++tick) {
            const auto from = plain.lower_bound(tick);
            const auto key = map.FindFirstKeyFrom(tick);
            RC_ASSERT(key.has_value() == (from != plain.end()));
            if (key) RC_ASSERT(*key == from->first);
            const auto after = plain.upper_bound(tick);
            const auto next = map.FindFirstKeyAfter(tick);
            RC_ASSERT(next.has_value() == (after != plain.end()));
            if (next) RC_ASSERT(*next == after->first);
            const auto at = plain.find(tick);
            const auto events = map.EventsAt(tick);
            const std::list<const cmn::TavoEvent*> expected = at == plain.end() ? PlainMap::mapped_type() : at->second;
            RC_ASSERT(std::equal(events.begin(), events.end(), expected.begin(), expected.end()));
            std::vector<const cmn::TavoEvent*> visited;
            map.VisitCovering(tick, [&visited](const cmn::TavoEvent& event) {
                visited.push_back(&event);
                return true;
            });
            RC_ASSERT(visited == CoveringInPlainWalk(plain, tick));
        }
    }
}

bool IsBefore(const LoopEvent& a, const LoopEvent& b) {
    if (a.end != b.end) return a.end < b.end;
    if (a.start != b.start) return a.start > b.start;
    return a.type < b.type;
}

bool AreSame(const LoopEvent& a, const LoopEvent& b) {
    return a.start == b.start && a.end == b.end && a.type == b.type;
}

/// Append and sort; every removal a walk.
struct PlainLoops {
    std::list<LoopEvent> events;

    bool Insert(const LoopEvent& event) {
        for (const LoopEvent& other : events) {
            if (AreSame(other, event)) return false;
        }
        events.push_back(event);
        events.sort(IsBefore);
        return true;
    }
    template <class Predicate>
    LoopEvent* First(Predicate predicate) {
        for (LoopEvent& event : events) {
            if (predicate(event)) return &event;
        }
        return nullptr;
    }
    LoopEvent* FirstActive(unsigned char type = 0) {
        return First([type](const LoopEvent& e) { return !e.canceled && (type == 0 || e.type == type); });
    }
    void RemoveEqualToFirst(unsigned char type) {
        const LoopEvent* first = First([type](const LoopEvent& e) { return e.type == type; });
        if (first == nullptr) return;
        events.remove_if([copy = *first](const LoopEvent& e) { return AreSame(e, copy); });
    }
};

void RequireSame(LoopEventList list, PlainLoops plain) {
    const auto hasActive = [&plain](unsigned char type) { return plain.FirstActive(type) != nullptr; };
    RC_ASSERT(list.IsEmpty() == !hasActive(0));
    RC_ASSERT(list.GetHasVamp() == hasActive(codes::Vamp));
    RC_ASSERT(list.GetHasVampOrFermata() == (hasActive(codes::Vamp) || hasActive(codes::Fermata)));
    RC_ASSERT(list.HasVampOrRepeat() == (hasActive(codes::Vamp) || hasActive(codes::Repeat)));
    RC_ASSERT(list.GetHasRepeat() ==
              (plain.First([](const LoopEvent& e) { return e.type == codes::Repeat; }) != nullptr));
    if (hasActive(codes::Vamp)) RC_ASSERT(list.GetFirstVampLoopEvent() == *plain.FirstActive(codes::Vamp));
    // Element by element, canceled ones too: each is uncovered by taking the ones in front of it away.
    for (; !plain.events.empty(); plain.events.pop_front(), list.RemoveFirstLoopEvent()) {
        const LoopEvent& expected = plain.events.front();
        if (expected.canceled) {
            RC_ASSERT(!list.InsertLoopEvent(expected));
            continue;
        }
        RC_ASSERT(AreSame(list.GetFirstLoopEvent(), expected));
        RC_ASSERT(list.GetFirstLoopEvent().count == expected.count);
    }
    RC_ASSERT(list.IsEmpty());
}

void DoTheSame(LoopEventList& list, PlainLoops& plain, int operation, unsigned int tick, const LoopEvent& event) {
    switch (operation) {
        case 0:
            plain.events.remove_if([](const LoopEvent& e) { return e.canceled; });
            return list.RemoveCanceledEvents();
        case 1:
            if (LoopEvent* vamp = plain.FirstActive(codes::Vamp)) vamp->canceled = true;
            return list.CancelVamp();
        case 2:
            plain.events.remove_if([](const LoopEvent& e) { return e.canceled && e.type == codes::Vamp; });
            plain.RemoveEqualToFirst(codes::Vamp);
            return list.RemoveVamp();
        case 3:
            plain.RemoveEqualToFirst(codes::Fermata);
            return list.RemoveFermata();
        case 4:
            if (plain.events.empty()) return;
            plain.events.pop_front();
            return list.RemoveFirstLoopEvent();
        case 5:
            while (!plain.events.empty() && !(plain.events.front().start <= tick && tick < plain.events.front().end)) {
                plain.events.pop_front();
            }
            return list.RemoveInactiveEvents(tick);
        case 6:
            plain.events.remove_if([tick](const LoopEvent& e) { return e.canceled && e.end <= tick; });
            return list.RemoveCanceledEventsEndingOnOrBefore(tick);
        case 7:
            plain.events.remove_if([tick](const LoopEvent& e) { return e.canceled && e.start > tick; });
            return list.RemoveCanceledEventsStartingAfter(tick);
        case 8:
            if (plain.FirstActive() == nullptr) return;
            plain.FirstActive()->canceled = true;
            list.GetFirstLoopEvent().canceled = true;
            return;
        case 9:
            if (plain.FirstActive() == nullptr) return;
            ++plain.FirstActive()->count;
            ++list.GetFirstLoopEvent().count;
            return;
        default:
            RC_ASSERT(list.InsertLoopEvent(event) == plain.Insert(event));
            return;
    }
}

RC_GTEST_PROP(LoopEventListProperty, IsAListThatIsAppendedToAndSorted, ()) {
    LoopEventList list;
    PlainLoops plain;
    const auto steps = *rc::gen::container<std::vector<std::tuple<int, int, int, int>>>(
        rc::gen::tuple(Among(0, 26), Among(0, 12), Among(-2, 8), Among(0, 3)));
    for (const auto& [operation, tick, length, type] : steps) {
        constexpr unsigned char Types[]{codes::Vamp, codes::Repeat, codes::Fermata};
        LoopEvent event;
        event.start = static_cast<unsigned int>(tick);
        event.end = static_cast<unsigned int>(std::max(0, tick + length));
        event.type = Types[type];
        DoTheSame(list, plain, operation, static_cast<unsigned int>(tick), event);
        RequireSame(list, plain);
    }
}

}  // namespace
