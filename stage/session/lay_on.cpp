#include "stage/session/lay_on.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <memory>
#include <stdexcept>

namespace stage {

namespace {

using Edits = std::vector<CL::AnyEdit>;

bool TakeSame(Edits& edits, const CL::AnyEdit& edit) {
    const auto found =
        std::find_if(edits.begin(), edits.end(), [&](const CL::AnyEdit& other) { return CL::IsSameEdit(other, edit); });
    if (found == edits.end()) return false;
    edits.erase(found);
    return true;
}

std::ptrdiff_t CountSame(const Edits& edits, const CL::AnyEdit& edit) {
    return std::count_if(edits.begin(), edits.end(),
                         [&](const CL::AnyEdit& other) { return CL::IsSameEdit(other, edit); });
}

Edits CopyEdits(const CL::ChangeLog& log, const std::string& songNumber) {
    Edits edits;
    const auto song = log.GetSongLogs().find(songNumber);
    if (song == log.GetSongLogs().end()) return edits;
    song->second.ForEachSequence([&edits](const auto& sequence) {
        for (const auto& edit : sequence)
            edits.emplace_back(edit);
    });
    return edits;
}

unsigned char FindAttacca(const CL::ChangeLog& log, const std::string& songNumber) {
    const auto song = log.GetSongLogs().find(songNumber);
    return song == log.GetSongLogs().end() ? static_cast<unsigned char>(CL::AttaccaNormal) : song->second.GetAttacca();
}

/// What the changes come to, song by song: an edit that was added and removed again is in neither list.
std::map<std::string, CL::SongChange> AddUp(const std::vector<CL::LogChange>& changes) {
    std::map<std::string, CL::SongChange> sums;
    for (const CL::LogChange& change : changes) {
        for (const CL::SongChange& song : change.songs) {
            CL::SongChange& sum = sums[song.songNumber];
            sum.songNumber = song.songNumber;
            for (const CL::AnyEdit& edit : song.removed) {
                if (!TakeSame(sum.added, edit)) sum.removed.push_back(edit);
            }
            for (const CL::AnyEdit& edit : song.added) {
                if (!TakeSame(sum.removed, edit)) sum.added.push_back(edit);
            }
            if (song.attacca && !sum.attacca) sum.attacca = song.attacca;
            if (song.attacca) sum.attacca->after = song.attacca->after;
        }
    }
    return sums;
}

class Layer {
public:
    Layer(CL::Editor& editor, CL::LogHolder& holder, const TL::ShowTimelines& timelines)
        : editor_(editor), holder_(holder), timelines_(timelines) {}

    void LayOn(const CL::SongChange& sum, const Edits& base) {
        Remove_(sum, base);
        Add_(sum, base);
        if (sum.attacca && sum.attacca->before != sum.attacca->after) SetAttacca_(sum);
    }
    std::vector<std::string> TakeRefusals() { return std::move(refusals_); }

private:
    void Remove_(const CL::SongChange& sum, const Edits& base) {
        for (const CL::AnyEdit& edit : sum.removed) {
            const auto left = CountSame(base, edit) - CountSame(sum.removed, edit);
            if (CountSame(CopyHeld_(sum.songNumber), edit) <= std::max<std::ptrdiff_t>(left, 0)) continue;
            const std::string refusal = Try_([&] { editor_.Remove(sum.songNumber, {edit}); });
            if (!refusal.empty()) Refuse_({sum.songNumber, {edit}, {}, {}}, refusal);
        }
    }

    // The rules may want another order than that of the places: what is refused is tried again while anything goes in.
    void Add_(const CL::SongChange& sum, const Edits& base) {
        Edits waiting = sum.added;
        std::vector<std::string> refusals;
        for (bool goesOn = true; goesOn && !waiting.empty();) {
            goesOn = false;
            refusals.clear();
            for (const CL::AnyEdit& edit : std::exchange(waiting, {})) {
                const auto wanted = CountSame(base, edit) + CountSame(sum.added, edit);
                if (CountSame(CopyHeld_(sum.songNumber), edit) >= wanted) continue;
                const std::string refusal = Try_([&] { editor_.Add(sum.songNumber, edit); });
                goesOn = goesOn || refusal.empty();
                if (refusal.empty()) continue;
                waiting.push_back(edit);
                refusals.push_back(refusal);
            }
        }
        for (std::size_t i = 0; i < waiting.size(); ++i)
            Refuse_({sum.songNumber, {}, {waiting[i]}, {}}, refusals[i]);
    }

    void SetAttacca_(const CL::SongChange& sum) {
        const unsigned char now = FindAttacca(*holder_.Peek(), sum.songNumber);
        if (now == sum.attacca->after) return;
        const std::string refusal = now == sum.attacca->before
                                        ? Try_([&] { editor_.SetAttacca(sum.songNumber, sum.attacca->after); })
                                        : std::string("it was changed otherwise since");
        if (!refusal.empty()) Refuse_({sum.songNumber, {}, {}, sum.attacca}, refusal);
    }

    template <class Edit>
    static std::string Try_(Edit edit) {
        try {
            edit();
        } catch (const std::exception& problem) {
            return problem.what();
        }
        return {};
    }

    void Refuse_(const CL::SongChange& change, const std::string& why) {
        for (const std::string& line : CL::DescribeChange({{change}}, timelines_))
            refusals_.push_back(fmt::format("{}: {}", line, why));
    }

    [[nodiscard]] Edits CopyHeld_(const std::string& songNumber) const {
        return CopyEdits(*holder_.Peek(), songNumber);
    }

    CL::Editor& editor_;
    CL::LogHolder& holder_;
    const TL::ShowTimelines& timelines_;
    std::vector<std::string> refusals_;
};

}  // namespace

std::vector<std::string> LayOn(const std::vector<CL::LogChange>& changes, const CL::ChangeLog* base, CL::Editor& editor,
                               CL::LogHolder& holder, const TL::ShowTimelines& timelines) {
    Layer layer(editor, holder, timelines);
    for (const auto& [songNumber, sum] : AddUp(changes))
        layer.LayOn(sum, base == nullptr ? Edits() : CopyEdits(*base, songNumber));
    return layer.TakeRefusals();
}

}  // namespace stage
