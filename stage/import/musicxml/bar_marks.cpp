#include "stage/import/musicxml/bar_marks.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace stage::musicxml {

namespace {

auto GetIdentity(const WrittenMark& mark) {
    return std::tie(mark.position, mark.kind, mark.text, mark.passes);
}

/// Of two marks that are one, whether the left one is to be kept: the later statement of an earlier part.
bool Outranks(const DraftMark& left, const DraftMark& right) {
    if (left.rank != right.rank) return left.rank > right.rank;
    return left.part < right.part;
}

}  // namespace

void AddMark(Reading& reading, BarDraft& bar, DraftMark mark) {
    reading.CountMark();
    mark.part = reading.part == nullptr ? std::uint16_t{0} : reading.part->index;
    bar.marks.push_back(std::move(mark));
}

std::vector<WrittenMark> MergeMarks(std::vector<DraftMark> marks, Units barLength) {
    std::vector<std::size_t> order(marks.size());
    for (std::size_t index = 0; index < marks.size(); ++index) {
        order[index] = index;
        WrittenMark& mark = marks[index].mark;
        mark.position = marks[index].isAtEnd ? barLength : std::clamp(mark.position, Units{0}, barLength);
    }
    std::sort(order.begin(), order.end(), [&](std::size_t left, std::size_t right) {
        return std::tuple_cat(GetIdentity(marks[left].mark), std::tie(left)) <
               std::tuple_cat(GetIdentity(marks[right].mark), std::tie(right));
    });
    // The first of each run stands for the others and keeps its place among the marks of its position.
    std::vector<std::size_t> kept;
    for (const std::size_t index : order) {
        if (kept.empty() || GetIdentity(marks[kept.back()].mark) != GetIdentity(marks[index].mark)) {
            kept.push_back(index);
            continue;
        }
        DraftMark& first = marks[kept.back()];
        const DraftMark& other = marks[index];
        if (first.mark.aim == JumpAim::Any) first.mark.aim = other.mark.aim;
        first.mark.length = std::max(first.mark.length, other.mark.length);
        if (!Outranks(first, other)) {
            first.mark.value = other.mark.value;
            first.rank = other.rank;
            first.part = other.part;
        }
    }
    std::sort(kept.begin(), kept.end(), [&](std::size_t left, std::size_t right) {
        return std::tie(marks[left].mark.position, left) < std::tie(marks[right].mark.position, right);
    });
    std::vector<WrittenMark> merged;
    merged.reserve(kept.size());
    for (const std::size_t index : kept)
        merged.push_back(std::move(marks[index].mark));
    return merged;
}

}  // namespace stage::musicxml
