#pragma once

#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "tavo_core/change_log.h"
#include "tavo_core/show_timelines.h"

/// What lies between two states of a change log: the unit of editing, of undoing, of the journal, and of comparing
/// versions. Plain values; not thread-safe.
namespace CL {

/// An edit of any kind.
using AnyEdit =
    std::variant<Vamp, Repeat, Cut, Transposition, TempoScale, Click, Caesura, Fermata, Sfx, SfxAmbient, Osc, Marker>;

/// Whether the two are of one kind and alike in every field.
[[nodiscard]] bool IsSameEdit(const AnyEdit& a, const AnyEdit& b);

/// The event inside, valid as long as `edit`.
[[nodiscard]] const cmn::TavoEvent& EventOf(const AnyEdit& edit);

/// What changes in one song.
struct SongChange {
    /// What follows the song, before the change and after it.
    struct Attacca {
        unsigned char before = AttaccaNormal;  ///< for undoing; Apply does not look at it
        unsigned char after = AttaccaNormal;   ///< AttaccaNormal, AttaccaNext or AttaccaSkip
        /// Compares both.
        bool operator==(const Attacca&) const = default;
    };

    std::string songNumber;          ///< need not be one of the show's
    std::vector<AnyEdit> removed;    ///< each takes out one edit that is like it, of several the last
    std::vector<AnyEdit> added;      ///< put in after that; each goes after what stands at its tick
    std::optional<Attacca> attacca;  ///< nothing where it stays
};

/// A song at most once; no song without a change.
struct LogChange {
    std::vector<SongChange> songs;  ///< in the order of their numbers where Compare made them

    /// What Compare gives for logs alike in edits and attacca, whatever their versions and names.
    [[nodiscard]] bool IsEmpty() const { return songs.empty(); }
};

/// Whether the two are alike in every field and order.
[[nodiscard]] bool IsSameChange(const LogChange& a, const LogChange& b);

/// The change that takes back `change`.
[[nodiscard]] LogChange Invert(const LogChange& change);

/// What turns `before` into `after`, edits in the order of their places. Linear but for sorting.
[[nodiscard]] LogChange Compare(const ChangeLog& before, const ChangeLog& after);

/// Makes the change; a song that the log does not know is added to it. Throws std::invalid_argument with one sentence,
/// and changes nothing, where an edit to be removed is not there.
void Apply(const LogChange& change, ChangeLog& log);

/// One line for each edit: "song 7: vamp bars 12 to 16 removed"; an edit removed and one of its kind added that share
/// a start or an end are one line: "song 7: vamp bars 12 to 16 changed to vamp bars 12 to 18". A song that the show
/// does not have is given in ticks.
[[nodiscard]] std::vector<std::string> DescribeChange(const LogChange& change, const TL::ShowTimelines& timelines);

}  // namespace CL
