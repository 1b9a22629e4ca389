#include "stage/offline/story.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <utility>

namespace stage {

namespace {

constexpr std::size_t Fields = 4;
// Two passes of the display feed: what it sends in them belongs together.
constexpr double LongestMomentSeconds = 0.066;

std::array<std::string_view, Fields> SplitLine(std::string_view line) {
    std::array<std::string_view, Fields> fields;
    if (line.ends_with('\n')) line.remove_suffix(1);
    for (std::size_t i = 0; i < Fields; ++i) {
        const std::size_t end = i + 1 < Fields ? line.find('\t') : std::string_view::npos;
        fields.at(i) = line.substr(0, end);
        line.remove_prefix(end == std::string_view::npos ? line.size() : end + 1);
    }
    return fields;
}

/// Events that need no more than a sentence; {} stands for the details.
struct Plain {
    std::string_view event;
    std::string_view sentence;
};
constexpr std::array PlainEvents{
    Plain{"start", "playback starts"},
    Plain{"stop", "playback stops"},
    Plain{"song-end", "song {} has ended"},
    Plain{"no-next-song", "there is no next song"},
    Plain{"loop-begin", "begins: {}"},
    Plain{"loop-release", "left, to be played to its end: {}"},
    Plain{"loop-end", "over: {}"},
    Plain{"cut", "cut: {}"},
    Plain{"hold", "the fermata before {} holds"},
    Plain{"release", "the fermata is released"},
    Plain{"caesura", "stops at the caesura before {}"},
    Plain{"cue", "cue: {}"},
    Plain{"cue-missing", "a cue that nobody notices: {}"},
    Plain{"operator", "the operator: {}"},
    Plain{"end", "the end of the render"},
};

/// How a value of the display is told; an empty one, "-", is not.
constexpr std::array DisplayValues{
    Plain{"meter", "{}"},
    Plain{"key", "{}"},
    Plain{"tempo", "tempo {}"},
    Plain{"tempo-scale", "tempo scale {}"},
    Plain{"page", "page {}"},
    Plain{"marker", "marker {}"},
    Plain{"transposition", "transposed by {}"},
};

template <std::size_t N>
const Plain* Find(const std::array<Plain, N>& list, std::string_view event) {
    const auto found = std::find_if(list.begin(), list.end(), [=](const Plain& each) { return each.event == event; });
    return found == list.end() ? nullptr : &*found;
}

std::string DescribeStatus(std::string_view word, std::string_view count) {
    if (word == "Caesura") return fmt::format("{} beats to the caesura", count);
    if (word == "EndOfSong") return fmt::format("{} clicks to the end of the song", count);
    if (word == "AdvanceAttacca") return fmt::format("{} clicks to the next song, attacca", count);
    return "";
}

}  // namespace

Story::Story(Trace::Sink sink, std::uint32_t framesPerSecond)
    : sink_(std::move(sink)), framesPerSecond_(static_cast<double>(framesPerSecond)) {}

void Story::Hear(std::string_view line) {
    const auto [frame, tick, event, detailsText] = SplitLine(line);
    std::int64_t at = 0;
    std::from_chars(frame.data(), frame.data() + frame.size(), at);
    const std::string details(detailsText);
    // What says nothing that another line does not.
    if (event == "click" || event == "title" || event == "target-tempo") return;
    if (Find(DisplayValues, event) != nullptr) return HearValue_(event, at, details);
    // The display hears of a bar before it hears what is new there.
    TellValues_();
    frame_ = at;
    if (event == "bar") {
        bar_ = details;
    } else if (event == "song") {
        bar_.clear();
        Tell_("song " + details);
        isSongNew_ = true;
    } else if (event == "attacca") {
        bar_.clear();
        Tell_("attacca: the next song follows without a gap");
    } else if (event == "jump") {
        Tell_(details.ends_with(", seek") ? "the playhead is put: " + details.substr(0, details.rfind(','))
                                          : "round again: " + details);
    } else if (event == "vamp-on" || event == "vamp-off") {
        const bool isOn = event == "vamp-on";
        if (std::exchange(isLampOn_, isOn) != isOn) Tell_(isOn ? "the vamp lamp lights" : "the vamp lamp goes out");
    } else if (event == "status") {
        HearStatus_(details);
    } else if (const Plain* plain = Find(PlainEvents, event)) {
        Tell_(fmt::format(fmt::runtime(plain->sentence), details));
    }
}

void Story::HearValue_(std::string_view event, std::int64_t frame, const std::string& details) {
    const bool saysNothing =
        details == "-" || (isSongNew_ && (details == "+0" || details == "100%")) || (event == "page" && details == "0");
    if (saysNothing) return;
    if (static_cast<double>(frame - valuesFrame_) > LongestMomentSeconds * framesPerSecond_) TellValues_();
    if (values_.empty()) valuesFrame_ = frame;
    values_.push_back(fmt::format(fmt::runtime(Find(DisplayValues, event)->sentence), details));
}

void Story::HearStatus_(const std::string& details) {
    const std::size_t blank = details.find(' ');
    std::string word = details.substr(0, blank);
    if (word == std::exchange(status_, word) || blank == std::string::npos) return;
    const std::string text = DescribeStatus(word, details.substr(blank + 1));
    if (!text.empty()) Tell_(text);
}

void Story::TellValues_() {
    if (values_.empty()) return;
    isSongNew_ = false;
    frame_ = valuesFrame_;
    Tell_(fmt::format("{}", fmt::join(std::exchange(values_, {}), ", ")));
}

void Story::Tell_(const std::string& sentence) {
    // Tenths that are cut off, not rounded: no "1:60.0".
    const auto tenths = static_cast<std::int64_t>(std::floor(static_cast<double>(frame_) * 10 / framesPerSecond_));
    sink_(fmt::format("{:3}:{:02}.{}  {:<9} {}\n", tenths / 600, tenths / 10 % 60, tenths % 10,
                      bar_.empty() ? "" : "bar " + bar_, sentence));
}

}  // namespace stage
