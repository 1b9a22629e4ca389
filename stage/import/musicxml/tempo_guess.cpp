#include "stage/import/musicxml/tempo_guess.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

#include "stage/import/musicxml/song_layout.h"
#include "stage/import/musicxml/tempo_words.h"

namespace stage::musicxml {

namespace {

constexpr double UsualTempo = 120;
constexpr std::size_t MostNamed = 3;

bool IsTempo(const WrittenMark& mark) {
    return mark.kind == MarkKind::Tempo && mark.passes.empty() && mark.value > 0;
}

bool BeginsWithTempo(const WrittenBar& bar) {
    return std::any_of(bar.marks.begin(), bar.marks.end(),
                       [](const WrittenMark& mark) { return IsTempo(mark) && mark.position == 0; });
}

/// What the first bar holds, and the downbeat after a pick-up, is said of the beginning.
class Head {
public:
    explicit Head(const std::vector<WrittenBar>& bars) {
        const bool hasPickup =
            bars.size() > 1 && !bars[1].meter && (bars[0].isImplicit || bars[0].length < bars[1].length);
        for (const WrittenMark& mark : bars.front().marks)
            marks_.push_back(&mark);
        if (!hasPickup) return;
        for (const WrittenMark& mark : bars[1].marks)
            if (mark.position == 0) marks_.push_back(&mark);
    }

    /// Its first number, be it after the first note.
    [[nodiscard]] const WrittenMark* FindNumber() const {
        const auto found = std::find_if(marks_.begin(), marks_.end(), [](const auto* mark) { return IsTempo(*mark); });
        return found == marks_.end() ? nullptr : *found;
    }

    /// Its first words that name a tempo.
    [[nodiscard]] const WrittenMark* FindWords() const {
        const auto found = std::find_if(marks_.begin(), marks_.end(), [](const WrittenMark* mark) {
            return mark->kind == MarkKind::Words && ReadTempoWords(mark->text, true);
        });
        return found == marks_.end() ? nullptr : *found;
    }

private:
    std::vector<const WrittenMark*> marks_;
};

WrittenMark MakeTempo(Units position, double quartersPerMinute, std::string words, bool isGuessed) {
    WrittenMark mark;
    mark.kind = MarkKind::Tempo;
    mark.position = position;
    mark.value = quartersPerMinute;
    mark.text = std::move(words);
    mark.isGuessed = isGuessed;
    return mark;
}

/// Whole numbers that a player can follow, however often "più mosso" is written.
double RoundTempo(double quartersPerMinute) {
    return std::clamp(std::round(quartersPerMinute), 20.0, 400.0);
}

class Guess {
public:
    explicit Guess(std::vector<WrittenBar>& bars) : bars_(bars) {}

    void GuessAll() {
        const WrittenMark* const heading = Head(bars_).FindWords();
        // The words of the beginning say nothing once more after a pick-up.
        const std::optional<WrittenMark> used =
            heading == nullptr ? std::nullopt : std::optional<WrittenMark>(*heading);
        if (bars_.front().meter) meter_ = *bars_.front().meter;
        if (!BeginsWithTempo(bars_.front())) {
            const double first = used ? Round(ReadTempoWords(used->text, true)->value) : UsualTempo;
            bars_.front().marks.insert(bars_.front().marks.begin(),
                                       MakeTempo(0, first, used ? used->text : std::string(), true));
        }
        first_ = std::find_if(bars_.front().marks.begin(), bars_.front().marks.end(), IsTempo)->value;
        running_ = first_;
        for (std::size_t bar = 0; bar < bars_.size(); ++bar)
            GuessBar(bars_[bar], bar < 2 && used ? used->text : std::string());
    }

private:
    [[nodiscard]] double Round(double beatsPerMinute) const {
        return RoundTempo(GetQuartersPerMinute(beatsPerMinute, meter_));
    }

    void GuessBar(WrittenBar& bar, const std::string& usedWords) {
        if (bar.meter) meter_ = *bar.meter;
        const auto number = std::find_if(bar.marks.rbegin(), bar.marks.rend(), IsTempo);
        if (number != bar.marks.rend()) {
            running_ = number->value;
            return;
        }
        std::vector<WrittenMark> marks;
        marks.reserve(bar.marks.size());
        Units taken = -1;
        for (WrittenMark& mark : bar.marks) {
            // Of several words at one place the first ones count.
            if (mark.kind == MarkKind::Words && mark.text != usedWords && mark.position != taken)
                if (AppendGuess(mark, marks)) taken = mark.position;
            marks.push_back(std::move(mark));
        }
        bar.marks = std::move(marks);
    }

    /// Whether the words say a tempo.
    bool AppendGuess(const WrittenMark& words, std::vector<WrittenMark>& marks) {
        const std::optional<WordTempo> tempo = ReadTempoWords(words.text, false);
        if (!tempo) return false;
        const double value = Resolve(*tempo);
        if (value != running_) marks.push_back(MakeTempo(words.position, value, words.text, true));
        running_ = value;
        return true;
    }

    [[nodiscard]] double Resolve(const WordTempo& tempo) const {
        if (tempo.kind == WordTempo::Kind::First) return first_;
        if (tempo.kind == WordTempo::Kind::Relative) return RoundTempo(running_ * tempo.value);
        return Round(tempo.value);
    }

    std::vector<WrittenBar>& bars_;
    WrittenMeter meter_{{4}, 4};
    double first_ = UsualTempo;
    double running_ = UsualTempo;
};

/// Puts a tempo on a bar's downbeat, in the place of another one.
void SetTempo(WrittenBar& bar, double quartersPerMinute) {
    std::erase_if(bar.marks, [](const WrittenMark& mark) { return IsTempo(mark) && mark.position == 0; });
    bar.marks.insert(bar.marks.begin(), MakeTempo(0, quartersPerMinute, {}, false));
}

std::vector<TempoSetting> SetTempos(std::vector<WrittenBar>& bars, const std::vector<TempoSetting>& settings) {
    const std::vector<std::string> labels = LabelBars(bars);
    std::vector<TempoSetting> left;
    for (const TempoSetting& setting : settings) {
        bool isFound = setting.bar.empty();
        if (isFound) SetTempo(bars.front(), setting.quartersPerMinute);
        for (std::size_t bar = 0; bar < bars.size(); ++bar) {
            if (setting.bar.empty() || labels[bar] != setting.bar) continue;
            SetTempo(bars[bar], setting.quartersPerMinute);
            isFound = true;
        }
        if (!isFound) left.push_back(setting);
    }
    return left;
}

}  // namespace

std::vector<TempoSetting> CompleteTempos(WrittenScore& score, const std::vector<TempoSetting>& settings) {
    std::vector<WrittenBar>& bars = score.bars;
    if (bars.empty()) return settings;
    for (WrittenBar& bar : bars)
        std::erase_if(bar.marks, [](const WrittenMark& mark) { return mark.isGuessed; });
    const WrittenMark* const number = Head(bars).FindNumber();
    const bool isGiven = number != nullptr;
    if (isGiven && !BeginsWithTempo(bars.front())) {
        const double tempo = number->value;
        SetTempo(bars.front(), tempo);
    }
    std::vector<TempoSetting> left = SetTempos(bars, settings);
    if (!isGiven) Guess(bars).GuessAll();
    return left;
}

TempoAccount DescribeGuessedTempos(const WrittenScore& score) {
    TempoAccount account;
    const std::vector<std::string> labels = LabelBars(score.bars);
    std::size_t count = 0;
    for (std::size_t bar = 0; bar < score.bars.size(); ++bar) {
        for (const WrittenMark& mark : score.bars[bar].marks) {
            if (!mark.isGuessed) continue;
            if (++count > MostNamed) continue;
            std::string& text = account.text;
            if (bar == 0 && count == 1 && mark.text.empty()) {
                account.isUnknown = true;
                text = fmt::format("no tempo is given; {} quarters a minute are taken, for no tempo word is known",
                                   mark.value);
            } else if (bar == 0 && count == 1) {
                text =
                    fmt::format("no tempo is given; {} quarters a minute are taken from \"{}\"", mark.value, mark.text);
            } else {
                text += fmt::format("{}{}{} from \"{}\" at bar {}", text.empty() ? "" : ", and ", mark.value,
                                    text.empty() ? " quarters a minute are taken" : "", mark.text, labels[bar]);
            }
        }
    }
    if (count > MostNamed) account.text += fmt::format(", and {} more", count - MostNamed);
    return account;
}

}  // namespace stage::musicxml
