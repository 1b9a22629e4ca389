#include "click_repair.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <optional>

#include "tavo_core/edit_text.h"

namespace CL {

namespace {

/// The allowed length nearest to `value`; of two as near the shorter one. Empty where no length divides the bar.
std::optional<int> FindNearestValue(int value, const std::vector<int>& allowed) {
    const auto nearest = std::min_element(allowed.begin(), allowed.end(),
                                          [value](int a, int b) { return std::abs(a - value) < std::abs(b - value); });
    return nearest == allowed.end() ? std::nullopt : std::optional(*nearest);
}

void AddReason(std::string& reasons, const std::string& reason) {
    reasons += (reasons.empty() ? "" : "; ") + reason;
}

/// The click as it fits after those that end by `freeFrom`; empty where nothing is left of it. `reasons` tells what
/// was done and why, and stays empty where the click fits as it is.
std::optional<Click> Fit(const Click& click, const TL::Timeline& timeline, unsigned int freeFrom,
                         std::string& reasons) {
    if (click.end() <= click.start()) {
        AddReason(reasons, "deleted, its end does not lie after its start");
        return std::nullopt;
    }
    unsigned int start = std::max(click.start(), timeline.GetStartTickIndex());
    const unsigned int end = std::min(click.end(), timeline.GetEndTickIndex());
    if (end <= start) {
        AddReason(reasons, "deleted, it lies outside the song");
        return std::nullopt;
    }
    if (start != click.start()) AddReason(reasons, "moved to the song's start, before which it began");
    if (end != click.end()) AddReason(reasons, "cut off at the song's end, behind which it ended");
    if (end <= freeFrom) {
        AddReason(reasons, "deleted, another click covers all of it");
        return std::nullopt;
    }
    if (start < freeFrom) {
        start = freeFrom;
        AddReason(reasons, "begins later, where the click before it ends");
    }
    const auto value = FindNearestValue(click.int_value(), timeline.GetAllowedClickValuesAtTickIndex(start));
    if (!value) {
        AddReason(reasons, "deleted, no click divides the bar there");
        return std::nullopt;
    }
    if (*value != click.int_value())
        AddReason(reasons, fmt::format("every {} does not divide the bar, every {} is taken instead",
                                       DescribeNoteLength(click.int_value()), DescribeNoteLength(*value)));
    return Click(start, end, *value);
}

}  // namespace

ClickRepairs FindClickRepairs(const ChangeLog& log, const TL::ShowTimelines& timelines) {
    ClickRepairs repairs;
    for (const std::string& number : timelines.GetSongNumbers()) {
        const auto songLog = log.GetSongLogs().find(number);
        if (songLog == log.GetSongLogs().end()) continue;
        const TL::Timeline& timeline = timelines.GetTimelineOf(number);
        SongChange song{number, {}, {}, {}};
        unsigned int freeFrom = 0;
        for (const Click& click : songLog->second.GetClicks()) {
            std::string reasons;
            const std::optional<Click> fitting = Fit(click, timeline, freeFrom, reasons);
            if (fitting) freeFrom = fitting->end();
            if (reasons.empty()) continue;
            song.removed.emplace_back(click);
            if (fitting) song.added.emplace_back(*fitting);
            repairs.modified[number].push_back({click, reasons});
        }
        if (!song.removed.empty()) repairs.change.songs.push_back(std::move(song));
    }
    return repairs;
}

}  // namespace CL
