#include "stage/import/musicxml/song_layout.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cmath>
#include <limits>
#include <optional>
#include <stdexcept>
#include <utility>

#include "stage/import/musicxml/repeat_plan.h"
#include "tavo_midi/show_file.h"
#include "tavo_midi/tempo_map.h"

namespace stage::musicxml {

namespace {

constexpr Units MostNumerator = 255;
constexpr Units FinestDenominator = 128;

/// What shows an operator or a conductor how the show goes on, not how to play.
constexpr std::array<const char*, 9> CueWords{"vamp",     "safety",   "attacca", "segue",     "cue",
                                              "dialogue", "applause", "tacet",   "underscore"};

std::optional<unsigned int> ReadNumber(const std::string& text) {
    unsigned int number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (text.empty() || error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return number;
}

/// A meter for a bar, and whether the bar is as long as it.
struct FittedMeter {
    std::uint8_t numerator = 4;
    std::uint8_t denominator = 4;
    bool isExact = true;

    [[nodiscard]] bool IsSame(const FittedMeter& other) const {
        return numerator == other.numerator && denominator == other.denominator;
    }
};

/// The meter of a bar of `length`: the written one if it fits, else the first that does of the same beat, shorter ones
/// and longer ones. A length that none fits ends within a bar of the written beat.
FittedMeter FitMeter(Units length, const WrittenMeter& written, Units unitsPerQuarter) {
    const Units whole = 4 * unitsPerQuarter;
    const auto fits = [&](Units denominator) {
        return length * denominator % whole == 0 && length * denominator / whole <= MostNumerator;
    };
    const auto make = [&](Units denominator, bool isExact) {
        const Units beats = (length * denominator + whole - 1) / whole;
        return FittedMeter{static_cast<std::uint8_t>(beats), static_cast<std::uint8_t>(denominator), isExact};
    };
    const Units own = std::clamp<Units>(written.beatType, 1, FinestDenominator);
    for (Units denominator = own; denominator <= FinestDenominator; denominator *= 2)
        if (fits(denominator)) return make(denominator, true);
    for (Units denominator = own; denominator >= 1; denominator /= 2)
        if (fits(denominator)) return make(denominator, true);
    for (Units denominator = own; denominator >= 1; denominator /= 2)
        if (length * denominator / whole < MostNumerator) return make(denominator, false);
    return {0, 1, false};
}

/// What is in force where a bar begins, as it is written.
struct Inherited {
    const WrittenMeter* meter;
    WrittenKey key;
    double tempo = 0;  ///< 0: none is written up to here
    bool isGuessedTempo = false;
    unsigned int page = 0;
};

class Layout {
public:
    Layout(const WrittenScore& score, const PlayedOrder& order, const SongGrid& grid)
        : score_(score), order_(order), grid_(grid), labels_(LabelBars(score.bars)) {
        CollectInherited();
    }

    SongLayout Make() {
        for (std::size_t i = 0; i < order_.bars.size(); ++i) {
            const PlayedBar& played = order_.bars[i];
            const bool follows = i > 0 && played.bar == order_.bars[i - 1].bar + 1;
            const std::uint32_t tick = grid_.GetBarTick(i);
            const Inherited& inherited = inherited_[played.bar];
            AppendMeter(tick, played, *inherited.meter);
            AppendKey(tick, inherited.key);
            AppendPage(tick, inherited.page);
            if (!follows && inherited.tempo > 0) AppendTempo(tick, inherited.tempo, inherited.isGuessedTempo);
            for (const WrittenMark& mark : score_.bars[played.bar].marks)
                AppendMark(grid_.ToTick(grid_.GetBarStart(i) + mark.position), played, mark);
            AppendLabel(i, AddTime(labels_[played.bar], played.time));
        }
        return std::move(layout_);
    }

private:
    void CollectInherited() {
        Inherited now{&commonTime_, {}, 0, false, 0};
        for (std::size_t bar = 0; bar < score_.bars.size(); ++bar) {
            const WrittenBar& written = score_.bars[bar];
            if (written.meter) now.meter = &*written.meter;
            if (written.key) now.key = *written.key;
            if (written.startsPage) now.page = FindPageNumber(written, now.page);
            inherited_.push_back(now);
            for (const WrittenMark& mark : written.marks)
                if (mark.kind == MarkKind::Tempo && mark.passes.empty() && mark.value > 0) {
                    now.tempo = mark.value;
                    now.isGuessedTempo = mark.isGuessed;
                }
        }
    }

    unsigned int FindPageNumber(const WrittenBar& bar, unsigned int last) {
        const std::optional<unsigned int> printed = ReadNumber(bar.pageNumber);
        if (printed) layout_.printsPageNumbers = true;
        return printed.value_or(last + 1);
    }

    /// The text of a bar or a place that is played for that time.
    std::string AddTime(const std::string& text, std::uint32_t time) {
        textBytes_ += text.size();
        if (textBytes_ > tavo_midi::MaxShowJsonBytes)
            throw std::runtime_error(
                fmt::format("its bar labels and markers come to more than {} bytes when it is played",
                            tavo_midi::MaxShowJsonBytes));
        return time == 1 ? text : fmt::format("{} ({})", text, time);
    }

    void AppendMeter(std::uint32_t tick, const PlayedBar& played, const WrittenMeter& written) {
        const FittedMeter meter = FitMeter(score_.bars[played.bar].length, written, score_.unitsPerQuarter);
        if (meter.numerator == 0)
            throw std::runtime_error(
                fmt::format("{} is longer than {} whole notes", NameBar(score_.bars, played.bar), MostNumerator));
        if (!meter.isExact && played.time == 1)
            layout_.notes.push_back(fmt::format(
                "no meter is as long as {}, which is {:.5g} quarter notes: it is counted as {}/{} and ends "
                "early",
                NameBar(score_.bars, played.bar),
                static_cast<double>(score_.bars[played.bar].length) / static_cast<double>(score_.unitsPerQuarter),
                meter.numerator, meter.denominator));
        if (layout_.meters.empty() || !meter_.isExact || !meter_.IsSame(meter))
            layout_.meters.emplace_back(tick, meter.numerator, meter.denominator);
        meter_ = meter;
    }

    void AppendKey(std::uint32_t tick, const WrittenKey& key) {
        if (!layout_.keys.empty() && key == key_) return;
        key_ = key;
        layout_.keys.emplace_back(tick, key.fifths, key.isMinor);
    }

    void AppendPage(std::uint32_t tick, unsigned int page) {
        if (page == 0 || (!layout_.pages.empty() && layout_.pages.back().page_number() == page)) return;
        layout_.pages.emplace_back(tick, page);
    }

    void AppendTempo(std::uint32_t tick, double quartersPerMinute, bool isGuessed) {
        const double exact = 60e6 / quartersPerMinute;
        const auto microseconds = static_cast<std::uint32_t>(std::lround(std::clamp(exact, 1.0, 16777215.0)));
        auto& tempos = layout_.tempos;
        // A score that names its first tempo late begins as any other does.
        if (tempos.empty() && tick > 0)
            tempos.push_back({0, tavo_midi::TempoMap::DefaultMicrosecondsPerQuarter, false});
        if (!tempos.empty() && tempos.back().tick == tick) tempos.pop_back();
        if (tempos.empty() || tempos.back().microsecondsPerQuarter != microseconds)
            tempos.push_back({tick, microseconds, isGuessed});
    }

    void AppendMark(std::uint32_t tick, const PlayedBar& played, const WrittenMark& mark) {
        const auto pass = static_cast<int>(played.pass);
        const bool holds = mark.passes.empty() || std::count(mark.passes.begin(), mark.passes.end(), pass) > 0;
        if (mark.kind == MarkKind::Tempo && holds && mark.value > 0) AppendTempo(tick, mark.value, mark.isGuessed);
        const bool isCue = mark.kind == MarkKind::Words &&
                           std::any_of(CueWords.begin(), CueWords.end(),
                                       [&mark](const char* word) { return HoldsWord(mark.text, word); });
        if ((mark.kind == MarkKind::Rehearsal || isCue) && !mark.text.empty())
            layout_.markers.emplace_back(tick, AddTime(mark.text, played.time));
    }

    void AppendLabel(std::size_t index, const std::string& label) {
        if (index == 0 || label != std::to_string(count_)) layout_.labels.push_back({index, label});
        if (const std::optional<unsigned int> number = ReadNumber(label)) count_ = std::uint64_t{*number} + 1;
    }

    const WrittenScore& score_;
    const PlayedOrder& order_;
    const SongGrid& grid_;
    const WrittenMeter commonTime_{{4}, 4};
    std::vector<Inherited> inherited_;       // by written bar
    const std::vector<std::string> labels_;  // by written bar
    FittedMeter meter_;
    WrittenKey key_;
    std::uint64_t count_ = 1;
    std::size_t textBytes_ = 0;
    SongLayout layout_;
};

}  // namespace

std::vector<std::string> LabelBars(const std::vector<WrittenBar>& bars) {
    std::vector<std::string> labels;
    bool isPart = false;  // the last of the labels names the next part of a split bar
    for (const WrittenBar& bar : bars) {
        const bool followsPart = std::exchange(isPart, false);
        if (!bar.label.empty() || labels.empty()) {
            labels.push_back(!bar.label.empty() ? bar.label : bar.isImplicit ? "0" : "1");
            continue;
        }
        std::string label = labels.back();
        const std::optional<unsigned int> number = ReadNumber(label.substr(0, label.find_first_not_of("0123456789")));
        isPart = !number || bar.isImplicit;
        if (!isPart)
            label = std::to_string(std::uint64_t{*number} + 1);
        else if (!followsPart)
            label += "b";
        else if (label.back() < 'z')
            ++label.back();
        labels.push_back(std::move(label));
    }
    return labels;
}

SongGrid::SongGrid(const WrittenScore& score, const PlayedOrder& order)
    : unitsPerQuarter_(std::max<Units>(score.unitsPerQuarter, 1)), starts_{0} {
    constexpr Units Most = std::numeric_limits<std::int32_t>::max() / ScoreTicksPerQuarter;
    starts_.reserve(order.bars.size() + 1);
    for (const PlayedBar& played : order.bars) {
        const Units length = score.bars[played.bar].length;
        if (length > Most * unitsPerQuarter_ - starts_.back())
            throw std::runtime_error(
                fmt::format("the music is longer than {} quarter notes at {}", Most, NameBar(score.bars, played.bar)));
        starts_.push_back(starts_.back() + length);
    }
}

std::uint32_t SongGrid::ToTick(Units position) const {
    position = std::clamp<Units>(position, 0, starts_.back());
    const Units quarters = position / unitsPerQuarter_;
    const Units rest = position % unitsPerQuarter_;
    return static_cast<std::uint32_t>(quarters * ScoreTicksPerQuarter +
                                      (rest * ScoreTicksPerQuarter + unitsPerQuarter_ / 2) / unitsPerQuarter_);
}

SongLayout LayOutSong(const WrittenScore& score, const PlayedOrder& order, const SongGrid& grid) {
    return Layout(score, order, grid).Make();
}

bool HoldsWord(const std::string& text, const std::string& word) {
    std::string now;
    for (std::size_t i = 0; i <= text.size(); ++i) {
        const auto character = static_cast<unsigned char>(i < text.size() ? text[i] : ' ');
        if (std::isalpha(character)) {
            now += static_cast<char>(std::tolower(character));
        } else {
            if (now == word) return true;
            now.clear();
        }
    }
    return false;
}

}  // namespace stage::musicxml
