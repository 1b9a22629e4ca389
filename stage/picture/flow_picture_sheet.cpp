#include "stage/picture/flow_picture_sheet.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "player_core/caesura_counter.h"
#include "tavo_core/as_string.h"
#include "tavo_core/beat_ticks.h"
#include "tavo_core/edit_text.h"

namespace stage::flow {

namespace {

/// The label of an edit: what a list says of its value, with the kind before it where the value does not say it.
std::string MakeLabel(const cmn::TavoEvent& edit, const std::string& kind) {
    const std::string value = CL::DescribeValue(edit);
    if (kind.empty() || value.empty()) return kind + value;
    return kind + ' ' + value;
}

class Gatherer {
public:
    Gatherer(const tavo_midi::SongData& song, const CL::SongLog& edits)
        : song_(song), timeline_(song.GetTimeline()), edits_(edits) {}

    Sheet Gather() {
        sheet_.startTick = timeline_.GetStartTickIndex();
        sheet_.endTick = std::max(timeline_.GetEndTickIndex(), sheet_.startTick + 1);
        sheet_.ticksPerQuarter = song_.GetTicksPerQuarter();
        sheet_.bars = TL::BarPositions(timeline_).GetBars();
        if (sheet_.bars.empty()) sheet_.bars.push_back({"", sheet_.startTick, sheet_.endTick});
        sheet_.meters.assign(timeline_.GetMeters().begin(), timeline_.GetMeters().end());
        sheet_.beatTicks = CollectBeatTicks(timeline_.GetBarsBeats(), edits_.GetClicks(), timeline_.GetMeters(),
                                            sheet_.endTick, sheet_.ticksPerQuarter);
        sheet_.tempos = MakeTempoSteps(song_, edits_);
        sheet_.isTempoTold = ChooseToldTempos(sheet_.tempos, sheet_.ticksPerQuarter);
        sheet_.lowestTempo = sheet_.highestTempo = sheet_.tempos.front().heard;
        for (const TempoStep& step : sheet_.tempos) {
            sheet_.lowestTempo = std::min({sheet_.lowestTempo, step.heard, step.written});
            sheet_.highestTempo = std::max({sheet_.highestTempo, step.heard, step.written});
        }
        GatherSignposts();
        GatherFlow();
        GatherCountdown();
        GatherGroups();
        return std::move(sheet_);
    }

private:
    [[nodiscard]] Item MakeItem(const cmn::TavoEvent& edit, Ink ink, std::string label) const {
        // A range that ends before it begins is played the other way round.
        const auto [first, last] = std::minmax({edit.start(), edit.end()});
        return {std::clamp(first, sheet_.startTick, sheet_.endTick), std::clamp(last, sheet_.startTick, sheet_.endTick),
                ink, std::move(label)};
    }
    [[nodiscard]] Item MakePoint(unsigned int tick, Ink ink, std::string label) const {
        const unsigned int inside = std::clamp(tick, sheet_.startTick, sheet_.endTick);
        return {inside, inside, ink, std::move(label)};
    }

    void GatherSignposts() {
        for (const CL::Marker& marker : edits_.GetMarkers())
            sheet_.signposts.push_back(MakePoint(marker.abs_time(), Ink::Marker, marker.value()));
        for (const TL::PageNum& page : timeline_.GetPageNums())
            sheet_.signposts.push_back(MakePoint(page.abs_time(), Ink::Page, fmt::format("p. {}", page.page_number())));
        for (const TL::Key& key : timeline_.GetKeys())
            sheet_.signposts.push_back(MakePoint(key.abs_time(), Ink::Key, as_string(key)));
    }

    void GatherFlow() {
        for (const CL::Vamp& vamp : edits_.GetVamps())
            sheet_.loops.push_back(
                MakeItem(vamp, Ink::Vamp,
                         vamp.int_value() > 0 ? fmt::format("vamp, at most \u00d7{}", vamp.int_value()) : "vamp"));
        for (const CL::Repeat& repeat : edits_.GetRepeats())
            sheet_.loops.push_back(MakeItem(repeat, Ink::Repeat, fmt::format("\u00d7{}", repeat.int_value())));
        for (const CL::Cut& cut : edits_.GetCuts())
            sheet_.holds.push_back(MakeItem(cut, Ink::Cut, "cut"));
        for (const CL::Fermata& fermata : edits_.GetFermatas())
            sheet_.holds.push_back(MakeItem(fermata, Ink::Fermata, ""));
        for (const CL::Caesura& caesura : edits_.GetCaesuras()) {
            std::string label = caesura.value();
            if (caesura.VersionTarget() == CL::GetCaesuraIgnoredVersionTarget()) {
                label += label.empty() ? "left out" : " (left out)";
            } else if (caesura.VersionTarget() != 0) {
                label += fmt::format("{}version {}", label.empty() ? "" : ", ", caesura.VersionTarget());
            }
            sheet_.holds.push_back(MakePoint(caesura.abs_time(), Ink::Caesura, std::move(label)));
        }
    }

    void GatherCountdown() {
        CaesuraCounter counter(edits_, timeline_, sheet_.ticksPerQuarter, [](unsigned int tick) { return tick; });
        for (const CountdownCaesura& caesura : counter.GetCountdownCaesuras()) {
            auto beat = std::lower_bound(sheet_.beatTicks.begin(), sheet_.beatTicks.end(),
                                         caesura.GetFirstCountdownTickIndex());
            for (; beat != sheet_.beatTicks.end() && *beat < caesura.GetTickIndex(); ++beat)
                sheet_.countdown.push_back(
                    MakePoint(*beat, Ink::Caesura, fmt::format("{}", caesura.GetCountdown(*beat))));
        }
    }

    template <class Sequence>
    void GatherGroup(const Sequence& sequence, Ink ink, const std::string& kind) {
        std::vector<Item> items;
        for (const auto& edit : sequence)
            items.push_back(MakeItem(edit, ink, MakeLabel(edit, kind)));
        if (!items.empty()) sheet_.groups.push_back(std::move(items));
    }

    void GatherGroups() {
        GatherGroup(edits_.GetTempoScales(), Ink::Scale, "tempo");
        GatherGroup(edits_.GetTranspositions(), Ink::Transposition, "");
        GatherGroup(edits_.GetClicks(), Ink::Click, "click");
        GatherGroup(edits_.GetSfxAmbients(), Ink::Ambience, "");
        GatherGroup(edits_.GetSfxs(), Ink::Sound, "");
        GatherGroup(edits_.GetOscs(), Ink::Cue, "");
    }

    const tavo_midi::SongData& song_;
    const TL::Timeline& timeline_;
    const CL::SongLog& edits_;
    Sheet sheet_;
};

}  // namespace

bool Sheet::Has(Ink ink) const {
    const auto isIn = [ink](const std::vector<Item>& items) {
        return std::any_of(items.begin(), items.end(), [ink](const Item& item) { return item.ink == ink; });
    };
    return isIn(signposts) || isIn(loops) || isIn(holds) || isIn(countdown) ||
           std::any_of(groups.begin(), groups.end(), isIn);
}

Sheet MakeSheet(const tavo_midi::SongData& song, const CL::SongLog& edits) {
    return Gatherer(song, edits).Gather();
}

TempoUnit FindTempoUnit(const std::vector<TL::Meter>& meters, unsigned int tick) {
    const auto after = std::upper_bound(meters.begin(), meters.end(), tick,
                                        [](unsigned int t, const TL::Meter& meter) { return t < meter.abs_time(); });
    if (after == meters.begin()) return {};
    switch (std::prev(after)->clocks_per_click()) {
        case 12:
            return {Sign::Kind::ShortNote, 0.5};
        case 36:
            return {Sign::Kind::DottedNote, 1.5};
        case 48:
            return {Sign::Kind::HalfNote, 2};
        default:
            return {};
    }
}

}  // namespace stage::flow
