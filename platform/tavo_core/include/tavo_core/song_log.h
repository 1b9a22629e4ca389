#pragma once

#include "tavo_core/change_log_events.h"
#include "tavo_core/sequence.h"

namespace CL {

/// How a song follows on; the byte kept in a song log.
inline constexpr unsigned char AttaccaNormal = 0;  ///< playback stops at the song's end, and the next song stands ready
inline constexpr unsigned char AttaccaNext = 1;    ///< the next song follows without a stop
inline constexpr unsigned char AttaccaSkip = 2;    ///< passed over between its neighbours; it can still be loaded

/// The edits of one song. A plain value; not thread-safe: the guards of active_change_log.h protect the one in use.
class SongLog {
public:
    /// AttaccaNormal, AttaccaNext or AttaccaSkip; read when the song ends, or a step to the next one looks for it.
    [[nodiscard]] unsigned char GetAttacca() const { return attacca_; }
    /// Takes any byte; ChangeLog::Save refuses one above AttaccaSkip.
    void SetAttacca(unsigned char attacca) { attacca_ = attacca; }

    /// May lie side by side, or inside one another and repeats, but do not cross. What is said here of the twelve kinds
    /// is what edit_rules.h asks for; a log that was read may break it.
    [[nodiscard]] const ChangeLogSequence<Vamp>& GetVamps() const { return vamps_; }
    /// Likewise. One inside another loop is played in full in each pass of that.
    [[nodiscard]] const ChangeLogSequence<Repeat>& GetRepeats() const { return repeats_; }
    /// Do not overlap; one may begin where another ends, and playback then leaves out both.
    [[nodiscard]] const ChangeLogSequence<Cut>& GetCuts() const { return cuts_; }
    /// Do not overlap; outside of them the music is as written.
    [[nodiscard]] const ChangeLogSequence<Transposition>& GetTranspositions() const { return transpositions_; }
    /// Likewise.
    [[nodiscard]] const ChangeLogSequence<TempoScale>& GetTempoScales() const { return tempoScales_; }
    /// Do not overlap; outside of them the beats are as written.
    [[nodiscard]] const ChangeLogSequence<Click>& GetClicks() const { return clicks_; }
    /// One at a tick; those to be ignored (GetCaesuraIgnoredVersionTarget) are among them.
    [[nodiscard]] const ChangeLogSequence<Caesura>& GetCaesuras() const { return caesuras_; }
    /// Do not overlap, nor cross cuts; a cut may lie inside of one, or over it.
    [[nodiscard]] const ChangeLogSequence<Fermata>& GetFermatas() const { return fermatas_; }
    /// Effects only, without the ambiences. May overlap; all sound together.
    [[nodiscard]] const ChangeLogSequence<Sfx>& GetSfxs() const { return sfxs_; }
    /// May overlap; all sound together.
    [[nodiscard]] const ChangeLogSequence<SfxAmbient>& GetSfxAmbients() const { return sfxAmbients_; }
    /// Those of one tick are sent in this order.
    [[nodiscard]] const ChangeLogSequence<Osc>& GetOscs() const { return oscs_; }
    /// The editor keeps one at a tick; of several in an older log the last is shown.
    [[nodiscard]] const ChangeLogSequence<Marker>& GetMarkers() const { return markers_; }

    /// These twelve are for building a log, and for editing one that nobody plays; nothing is checked (edit_rules.h).
    ChangeLogSequence<Vamp>& GetVamps() { return vamps_; }
    /// Likewise.
    ChangeLogSequence<Repeat>& GetRepeats() { return repeats_; }
    /// Likewise.
    ChangeLogSequence<Cut>& GetCuts() { return cuts_; }
    /// Likewise.
    ChangeLogSequence<Transposition>& GetTranspositions() { return transpositions_; }
    /// Likewise.
    ChangeLogSequence<TempoScale>& GetTempoScales() { return tempoScales_; }
    /// Likewise.
    ChangeLogSequence<Click>& GetClicks() { return clicks_; }
    /// Likewise.
    ChangeLogSequence<Caesura>& GetCaesuras() { return caesuras_; }
    /// Likewise.
    ChangeLogSequence<Fermata>& GetFermatas() { return fermatas_; }
    /// Likewise.
    ChangeLogSequence<Sfx>& GetSfxs() { return sfxs_; }
    /// Likewise.
    ChangeLogSequence<SfxAmbient>& GetSfxAmbients() { return sfxAmbients_; }
    /// Likewise.
    ChangeLogSequence<Osc>& GetOscs() { return oscs_; }
    /// Likewise.
    ChangeLogSequence<Marker>& GetMarkers() { return markers_; }

    /// Calls `visit(sequence)` for each kind in the order in which a change-log panel lists them, markers last.
    template <class Visitor>
    void ForEachSequence(Visitor&& visit) const {
        VisitAll_(*this, visit);
    }
    /// The same; `visit` may edit.
    template <class Visitor>
    void ForEachSequence(Visitor&& visit) {
        VisitAll_(*this, visit);
    }

private:
    template <class Self, class Visitor>
    static void VisitAll_(Self& self, Visitor& visit) {
        visit(self.vamps_), visit(self.repeats_), visit(self.cuts_), visit(self.transpositions_);
        visit(self.tempoScales_), visit(self.clicks_), visit(self.caesuras_), visit(self.fermatas_);
        visit(self.sfxs_), visit(self.sfxAmbients_), visit(self.oscs_), visit(self.markers_);
    }

    unsigned char attacca_ = AttaccaNormal;
    ChangeLogSequence<Vamp> vamps_;
    ChangeLogSequence<Repeat> repeats_;
    ChangeLogSequence<Cut> cuts_;
    ChangeLogSequence<Transposition> transpositions_;
    ChangeLogSequence<TempoScale> tempoScales_;
    ChangeLogSequence<Click> clicks_;
    ChangeLogSequence<Caesura> caesuras_;
    ChangeLogSequence<Fermata> fermatas_;
    ChangeLogSequence<Sfx> sfxs_;
    ChangeLogSequence<SfxAmbient> sfxAmbients_;
    ChangeLogSequence<Osc> oscs_;
    ChangeLogSequence<Marker> markers_;
};

}  // namespace CL
