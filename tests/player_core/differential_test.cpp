// The indexed structures beside plain transcriptions of what they stand for: walks over ordered maps and lists. Fixed
// seeds, thousands of cases, small ranges so that equal ticks and borders are met all the time.

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "player_core/caesura_counter.h"
#include "player_core/future_status_flow_control_updates.h"
#include "player_core/loop_event_list.h"
#include "player_core/paired_event_map.h"
#include "tavo_core/beat_ticks.h"
#include "tavo_core/gui_dispatcher.h"

namespace {

using Generator = std::mt19937;
using PlainMap = std::map<unsigned int, std::list<const cmn::TavoEvent*>>;

unsigned int Draw(Generator& random, unsigned int from, unsigned int to) {
    return std::uniform_int_distribution<unsigned int>(from, to)(random);
}

/// Events of all kinds that control the flow, some without length or turned round, now and then one over all the rest.
std::vector<std::unique_ptr<cmn::TavoEvent>> DrawEvents(Generator& random, unsigned int lastTick) {
    std::vector<std::unique_ptr<cmn::TavoEvent>> events(Draw(random, 0, 300) * Draw(random, 0, 1) +
                                                        Draw(random, 0, 12));
    for (auto& event : events) {
        const unsigned int start = Draw(random, 0, lastTick);
        const bool isLong = Draw(random, 0, 9) == 0;
        const unsigned int end = isLong ? Draw(random, 0, lastTick) : start + Draw(random, 0, 12);
        switch (Draw(random, 0, 3)) {
            case 0:
                event = std::make_unique<CL::Vamp>(start, end);
                break;
            case 1:
                event = std::make_unique<CL::Repeat>(start, end, 2);
                break;
            case 2:
                event = std::make_unique<CL::Cut>(start, end);
                break;
            default:
                event = std::make_unique<CL::Fermata>(start, end);
                break;
        }
    }
    return events;
}

std::vector<const cmn::TavoEvent*> WalkCovering(const PlainMap& map, unsigned int tick) {
    std::vector<const cmn::TavoEvent*> covering;
    for (auto it = map.begin(); it != map.end() && it->first <= tick; ++it) {
        for (const cmn::TavoEvent* event : it->second)
            if (event->end() > tick) covering.push_back(event);
    }
    return covering;
}

void ExpectSameAnswers(const PairedEventMap& indexed, const PlainMap& plain, unsigned int tick) {
    const auto keyOf = [&plain](PlainMap::const_iterator it) {
        return it == plain.end() ? std::nullopt : std::optional<unsigned int>(it->first);
    };
    ASSERT_EQ(indexed.FindFirstKeyFrom(tick), keyOf(plain.lower_bound(tick))) << "from tick " << tick;
    ASSERT_EQ(indexed.FindFirstKeyAfter(tick), keyOf(plain.upper_bound(tick))) << "after tick " << tick;

    const auto found = plain.find(tick);
    const auto atKey = indexed.EventsAt(tick);
    const std::list<const cmn::TavoEvent*> expectedAtKey =
        found == plain.end() ? std::list<const cmn::TavoEvent*>() : found->second;
    ASSERT_TRUE(std::equal(atKey.begin(), atKey.end(), expectedAtKey.begin(), expectedAtKey.end())) << "at " << tick;

    std::vector<const cmn::TavoEvent*> visited;
    indexed.VisitCovering(tick, [&visited](const cmn::TavoEvent& event) {
        visited.push_back(&event);
        return true;
    });
    ASSERT_EQ(visited, WalkCovering(plain, tick)) << "covering tick " << tick;
}

}  // namespace

TEST(PairedEventMapDifferential, RandomEventsAskedAnywhere_AnswersAsAWalkOverAMapOfLists) {
    Generator random(1);
    for (int round = 0; round < 400; ++round) {
        const unsigned int lastTick = round % 3 == 0 ? 20 : round % 3 == 1 ? 400 : 100000;
        const auto events = DrawEvents(random, lastTick);
        std::vector<PairedEventMap::Entry> entries;
        PlainMap plain;
        for (const auto& event : events) {
            // A caesura lies at another key than its own tick: keys and events are independent.
            const unsigned int key = Draw(random, 0, 5) == 0 ? Draw(random, 0, lastTick) : event->start();
            entries.push_back({key, event.get()});
            plain[key].push_back(event.get());
        }
        for (auto& [key, list] : plain)
            list.sort([](const cmn::TavoEvent* a, const cmn::TavoEvent* b) { return a->end() < b->end(); });
        const PairedEventMap indexed(entries);
        ASSERT_EQ(indexed.IsEmpty(), plain.empty());
        unsigned int playhead = 0;
        for (int question = 0; question < 60; ++question) {
            // Half of them as playback asks, going on a little, and half anywhere.
            playhead = question % 2 == 0 ? playhead + Draw(random, 0, 3) : Draw(random, 0, lastTick + 2);
            ExpectSameAnswers(indexed, plain, playhead);
        }
        ExpectSameAnswers(indexed, plain, ~0U);
    }
}

TEST(PairedEventMapDifferential, VisitorSaysStop_NothingMoreIsVisited) {
    Generator random(2);
    for (int round = 0; round < 300; ++round) {
        const auto events = DrawEvents(random, 60);
        std::vector<PairedEventMap::Entry> entries;
        for (const auto& event : events)
            entries.push_back({event->start(), event.get()});
        const PairedEventMap indexed(entries);
        const unsigned int tick = Draw(random, 0, 62);
        std::vector<const cmn::TavoEvent*> all;
        indexed.VisitCovering(tick, [&all](const cmn::TavoEvent& event) { return all.push_back(&event), true; });
        if (all.empty()) continue;
        const std::size_t wanted = Draw(random, 1, static_cast<unsigned int>(all.size()));
        std::vector<const cmn::TavoEvent*> some;
        indexed.VisitCovering(tick, [&](const cmn::TavoEvent& event) {
            some.push_back(&event);
            return some.size() < wanted;
        });
        all.resize(wanted);
        ASSERT_EQ(some, all);
    }
}

TEST(LoopEventListDifferential, RandomInsertionsAndRemovals_IsAListAppendedToAndSorted) {
    Generator random(3);
    for (int round = 0; round < 2000; ++round) {
        LoopEventList list;
        std::list<LoopEvent> plain;
        for (int step = 0; step < 25; ++step) {
            const unsigned int start = Draw(random, 0, 12);
            const LoopEvent event(CL::Repeat(start, start + Draw(random, 0, 8), static_cast<int>(Draw(random, 0, 3))));
            LoopEvent typed = event;
            typed.type = static_cast<unsigned char>(Draw(random, 0x40, 0x42));
            const bool isKnown = std::find(plain.begin(), plain.end(), typed) != plain.end();
            if (!isKnown) {
                plain.push_back(typed);
                plain.sort();
            }
            ASSERT_EQ(list.InsertLoopEvent(typed), !isKnown);
            if (Draw(random, 0, 5) == 0) {
                const unsigned int tick = Draw(random, 0, 20);
                list.RemoveInactiveEvents(tick);
                while (!plain.empty() && !(plain.front().start <= tick && tick < plain.front().end))
                    plain.pop_front();
            }
            ASSERT_EQ(list.GetSize(), plain.size());
        }
        // Taken out one by one, so that every place is compared, with what equality leaves out.
        for (; !plain.empty(); plain.pop_front(), list.RemoveFirstLoopEvent()) {
            ASSERT_EQ(list.GetFirstLoopEvent(), plain.front());
            ASSERT_EQ(list.GetFirstLoopEvent().maxCount, plain.front().maxCount);
        }
        ASSERT_TRUE(list.IsEmpty());
    }
}

namespace {

/// A countdown as a walk over the list of all beats tells it.
std::list<unsigned int> WalkCountdown(const std::list<unsigned int>& beats, unsigned int caesura) {
    std::list<unsigned int> countdown;
    auto anchor = beats.begin();
    while (anchor != beats.end() && *anchor < caesura)
        ++anchor;
    while (anchor != beats.begin() && countdown.size() < 5) {
        countdown.push_front(anchor == beats.end() ? caesura : *anchor);
        --anchor;
    }
    return countdown;
}

}  // namespace

TEST(CaesuraCounterDifferential, RandomBeatsClicksAndCaesuras_CountsAsAWalkOverTheBeatList) {
    Generator random(4);
    for (int round = 0; round < 1500; ++round) {
        TL::Timeline timeline(0, Draw(random, 0, 3000));
        timeline.GetMeters().Append({0, 4, 4});
        unsigned int tick = Draw(random, 0, 100);
        const unsigned int beatCount = Draw(random, 0, 40);
        for (unsigned int beat = 0; beat < beatCount; ++beat, tick += Draw(random, 1, 120))
            timeline.GetBarsBeats().Append({tick, beat % 4 + 1, std::to_string(beat / 4 + 1)});
        CL::SongLog songLog;
        const unsigned int clickCount = Draw(random, 0, 2);
        for (unsigned int i = 0; i < clickCount; ++i) {
            const unsigned int start = Draw(random, 0, 2000);
            songLog.GetClicks().Add({start, start + Draw(random, 0, 500), static_cast<int>(Draw(random, 1, 16))});
        }
        const unsigned int caesuraCount = Draw(random, 1, 8);
        for (unsigned int i = 0; i < caesuraCount; ++i)
            songLog.GetCaesuras().Add({Draw(random, 0, 3200), "", 0});

        const std::list<unsigned int> beats = CreateBeatTicks(timeline.GetBarsBeats_(), songLog.GetClicks(),
                                                              timeline.GetMeters_(), timeline.GetEndTickIndex(), 96);
        CaesuraCounter counter(songLog, timeline, 96, [](unsigned int t) { return t + t % 3; });
        auto& caesuras = counter.GetCountdownCaesuras();
        ASSERT_EQ(caesuras.size(), songLog.GetCaesuras().size());
        for (std::size_t i = 0; i < caesuras.size(); ++i) {
            const unsigned int written = songLog.GetCaesuras()[i].abs_time();
            const unsigned int place = written + written % 3;
            ASSERT_EQ(caesuras[i].GetTickIndex(), place);
            ASSERT_TRUE(counter.HasCaesuraAtTickIndex(place));
            const std::list<unsigned int> countdown = WalkCountdown(beats, place);
            CountdownCaesura fromList(place, beats);
            ASSERT_EQ(caesuras[i].GetFirstCountdownTickIndex(), countdown.empty() ? place : countdown.front());
            for (unsigned int t = place < 700 ? 0 : place - 700; t < place + 200; t += Draw(random, 1, 7)) {
                const auto after =
                    std::count_if(countdown.begin(), countdown.end(), [t](unsigned int b) { return b > t; });
                const bool isBeat = std::find(countdown.begin(), countdown.end(), t) != countdown.end();
                ASSERT_EQ(caesuras[i].GetCountdown(t), after);
                ASSERT_EQ(caesuras[i].GetCountdownAtTickIndex(t), isBeat ? after : -1);
                ASSERT_EQ(caesuras[i].WithinCountdownRange(t),
                          !countdown.empty() && countdown.front() <= t && t < place);
                ASSERT_EQ(fromList.GetCountdownAtTickIndex(t), caesuras[i].GetCountdownAtTickIndex(t));
            }
        }
    }
}

namespace {

/// The statuses as rules read in order: everything filed is walked at every send.
struct PlainStatuses {
    std::map<unsigned int, std::pair<std::string, int>> updates;
    bool zeroPending = false;
    unsigned int zeroTick = 0;
    unsigned int sentUntil = 0;
    std::vector<std::pair<std::string, int>> sent;

    void Add(const std::string& type, int count, unsigned int tick) {
        const auto found = updates.find(tick);
        if (found != updates.end() && found->second == std::pair<std::string, int>("Caesura", 0)) {
            zeroPending = true;
            zeroTick = tick;
        }
        updates[tick] = {type, count};
    }
    void SendUntil(unsigned int tick) {
        if (tick < sentUntil) sentUntil = 0;
        if (zeroPending && tick == zeroTick) {
            sent.emplace_back("Caesura", 0);
            return;
        }
        for (auto it = updates.begin(); it != updates.end();) {
            if (sentUntil < it->first && it->first <= tick) {
                sent.push_back(it->second);
                it = updates.erase(it);
            } else {
                ++it;
            }
        }
        sentUntil = tick;
    }
    void ClearCaesura(unsigned int tick) {
        zeroPending = false;
        const auto found = updates.find(tick);
        if (tick != 0 && found != updates.end() && found->second == std::pair<std::string, int>("Caesura", 0)) {
            updates.erase(found);
        }
    }
    void Clear() {
        updates.clear();
        sentUntil = 0;
    }
};

}  // namespace

TEST(FutureStatusDifferential, RandomFilingAndSending_SendsWhatAWalkOverEverythingSends) {
    std::vector<std::pair<std::string, int>> heard;
    const auto handler = notify::guiDispatcher.AddHandler([&heard](const notify::GuiNotification& notification) {
        if (notification.type == notify::GuiNotificationType::StatusFlowControl) {
            heard.emplace_back(notification.text, notification.number);
        }
    });
    const std::vector<std::string> words{"Caesura", "Vamp", "Repeat", "", "EndOfSong"};
    Generator random(5);
    for (int round = 0; round < 1500; ++round) {
        gui::FutureStatusFlowControlUpdates indexed;
        PlainStatuses plain;
        heard.clear();
        const unsigned int lastTick = round % 2 == 0 ? 15 : 300;
        for (int step = 0; step < 60; ++step) {
            const unsigned int tick = Draw(random, 0, lastTick);
            const unsigned int what = Draw(random, 0, 20);
            if (what < 10) {
                const std::string& word = words[Draw(random, 0, static_cast<unsigned int>(words.size() - 1))];
                const int count = static_cast<int>(Draw(random, 0, 2));
                indexed.AddFutureStatusFlowControl(word, count, tick);
                plain.Add(word, count, tick);
            } else if (what < 18) {
                indexed.SendUntil(tick);
                plain.SendUntil(tick);
            } else if (what < 20) {
                indexed.ClearCaesura(tick);
                plain.ClearCaesura(tick);
            } else {
                indexed.ClearFutureUpdates();
                plain.Clear();
            }
        }
        notify::guiDispatcher.Drain();
        ASSERT_EQ(heard, plain.sent) << "round " << round;
    }
    notify::guiDispatcher.RemoveHandler(handler);
}
