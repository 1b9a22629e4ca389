#pragma once

#include "tavo_core/change_log_events.h"
#include "tavo_core/sequence.h"

namespace CL {

/// How a song follows on; the byte kept in a song log.
inline constexpr unsigned char AttaccaNormal = 0;
inline constexpr unsigned char AttaccaNext = 1;  ///< the next song follows without a stop
inline constexpr unsigned char AttaccaSkip = 2;  ///< the song is passed over in the show

/// The edits of one song. A plain value; not thread-safe: the guards of active_change_log.h protect the one in use.
class SongLog {
public:
    [[nodiscard]] unsigned char GetAttacca() const { return attacca_; }
    void SetAttacca(unsigned char attacca) { attacca_ = attacca; }

    [[nodiscard]] const ChangeLogSequence<Vamp>& GetVamps() const { return vamps_; }
    [[nodiscard]] const ChangeLogSequence<Repeat>& GetRepeats() const { return repeats_; }
    [[nodiscard]] const ChangeLogSequence<Cut>& GetCuts() const { return cuts_; }
    [[nodiscard]] const ChangeLogSequence<Transposition>& GetTranspositions() const { return transpositions_; }
    [[nodiscard]] const ChangeLogSequence<TempoScale>& GetTempoScales() const { return tempoScales_; }
    [[nodiscard]] const ChangeLogSequence<Click>& GetClicks() const { return clicks_; }
    [[nodiscard]] const ChangeLogSequence<Caesura>& GetCaesuras() const { return caesuras_; }
    [[nodiscard]] const ChangeLogSequence<Fermata>& GetFermatas() const { return fermatas_; }
    [[nodiscard]] const ChangeLogSequence<Sfx>& GetSfxs() const { return sfxs_; }
    [[nodiscard]] const ChangeLogSequence<SfxAmbient>& GetSfxAmbients() const { return sfxAmbients_; }
    [[nodiscard]] const ChangeLogSequence<Osc>& GetOscs() const { return oscs_; }
    [[nodiscard]] const ChangeLogSequence<Marker>& GetMarkers() const { return markers_; }

    ChangeLogSequence<Vamp>& GetVamps() { return vamps_; }
    ChangeLogSequence<Repeat>& GetRepeats() { return repeats_; }
    ChangeLogSequence<Cut>& GetCuts() { return cuts_; }
    ChangeLogSequence<Transposition>& GetTranspositions() { return transpositions_; }
    ChangeLogSequence<TempoScale>& GetTempoScales() { return tempoScales_; }
    ChangeLogSequence<Click>& GetClicks() { return clicks_; }
    ChangeLogSequence<Caesura>& GetCaesuras() { return caesuras_; }
    ChangeLogSequence<Fermata>& GetFermatas() { return fermatas_; }
    ChangeLogSequence<Sfx>& GetSfxs() { return sfxs_; }
    ChangeLogSequence<SfxAmbient>& GetSfxAmbients() { return sfxAmbients_; }
    ChangeLogSequence<Osc>& GetOscs() { return oscs_; }
    ChangeLogSequence<Marker>& GetMarkers() { return markers_; }

    /// Calls `visit(sequence)` for each kind in the order in which a change-log panel lists them, markers last.
    template <class Visitor>
    void ForEachSequence(Visitor&& visit) const {
        VisitAll_(*this, visit);
    }
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
