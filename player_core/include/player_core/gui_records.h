#pragma once

#include <string>

#include "tavo_core/tavo_event.h"
#include "tavo_core/timeline.h"

/// The timeline's entries as a display lists them. A record points at its entry, which must outlive it and is never
/// null; a copy points at the same entry. Plain values; not thread-safe.
namespace gui {

/// What all records have in common.
template <class Entry>
class TimelineRecord : public cmn::TavoEvent {
public:
    /// The entry's tick index.
    unsigned int abs_time() const override { return entry_->abs_time(); }
    /// The entry's code (event_codes.h): tempo, meter, key, beat or page.
    unsigned char code() const override { return entry_->code(); }

protected:
    /// Keeps the pointer.
    explicit TimelineRecord(const Entry* entry) : entry_(entry) {}
    /// Good as long as the entry is.
    [[nodiscard]] const Entry& GetEntry() const { return *entry_; }

private:
    const Entry* entry_;
};

/// The bar and beat that a display shows from the record's tick on.
class BarsBeats : public TimelineRecord<TL::BarsBeats> {
public:
    /// Keeps the pointer.
    explicit BarsBeats(const TL::BarsBeats* entry) : TimelineRecord(entry) {}
    /// "12:3", bar label and beat.
    std::string value() const override;
};

/// The key that a display shows from the record's tick on.
class Key : public TimelineRecord<TL::Key> {
public:
    /// Keeps the pointer.
    explicit Key(const TL::Key* entry) : TimelineRecord(entry) {}
    /// The written key, "Eb major".
    std::string value() const override;
};

/// The meter that a display shows from the record's tick on.
class Meter : public TimelineRecord<TL::Meter> {
public:
    /// Keeps the pointer.
    explicit Meter(const TL::Meter* entry) : TimelineRecord(entry) {}
    /// "6/8".
    std::string value() const override;
    /// The entry itself, not owned by the caller and never null.
    [[nodiscard]] const TL::Meter* get_wrapped() const { return &GetEntry(); }
};

/// The page of the score that a display shows from the record's tick on.
class PageNum : public TimelineRecord<TL::PageNum> {
public:
    /// Keeps the pointer.
    explicit PageNum(const TL::PageNum* entry) : TimelineRecord(entry) {}
    /// Number of the page.
    int int_value() const override;
};

/// The tempo that a display shows from the record's tick on.
class Tempo : public TimelineRecord<TL::Tempo> {
public:
    /// Keeps the pointer.
    explicit Tempo(const TL::Tempo* entry) : TimelineRecord(entry) {}
    /// In clicks of the meter a minute; in quarter notes a minute while no meter is set.
    std::string value() const override;
    /// The meter in force at the tempo; it must outlive the record.
    void meter(const TL::Meter* meter) { meter_ = meter; }

private:
    const TL::Meter* meter_ = nullptr;
};

}  // namespace gui
