#include "stage/show/edit_list.h"

#include <algorithm>
#include <array>

namespace stage {

namespace {

template <class Edits, class GetTick>
void SortByPlace(Edits& edits, GetTick getTick) {
    std::stable_sort(edits.begin(), edits.end(), [&](const auto& a, const auto& b) { return getTick(a) < getTick(b); });
}

}  // namespace

std::vector<ListedEdit> ListEdits(const CL::SongLog& songLog) {
    std::vector<ListedEdit> edits;
    songLog.ForEachSequence([&](const auto& sequence) {
        for (const auto& edit : sequence)
            edits.push_back({0, &edit});
    });
    SortByPlace(edits, [](const ListedEdit& listed) { return listed.edit->abs_time(); });
    for (std::size_t i = 0; i < edits.size(); ++i)
        edits[i].id = i + 1;
    return edits;
}

std::vector<CL::AnyEdit> CopyListedEdits(const CL::SongLog& songLog) {
    std::vector<CL::AnyEdit> edits;
    songLog.ForEachSequence([&](const auto& sequence) {
        for (const auto& edit : sequence)
            edits.emplace_back(edit);
    });
    SortByPlace(edits, [](const CL::AnyEdit& edit) { return CL::EventOf(edit).abs_time(); });
    return edits;
}

std::string DescribeAttacca(unsigned char attacca) {
    constexpr std::array<const char*, 3> Words{"normal", "attacca", "skip"};
    return attacca < Words.size() ? Words[attacca] : "unknown";
}

}  // namespace stage
