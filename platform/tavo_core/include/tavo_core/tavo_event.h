#pragma once

#include <iosfwd>
#include <string>

namespace cmn {

/// The common face of everything that stands at a place in a song: the production's edits, the timeline's entries as
/// a display lists them, a countdown. Positions are tick indices, counted from the start of the song's data.
/// Plain values; not thread-safe. Derived classes may be copied as their own type only.
class TavoEvent {
public:
    TavoEvent() = default;
    /// Virtual, for lists that own events of several kinds.
    virtual ~TavoEvent();

    /// The tick index where the event stands; of a range its first tick.
    virtual unsigned int abs_time() const = 0;
    /// First tick of what the event covers; abs_time() unless a derived class says otherwise.
    virtual unsigned int start() const;
    /// First tick after what the event covers; abs_time() for an event that covers nothing.
    virtual unsigned int end() const;
    /// One byte that says what kind it is; event_codes.h lists the codes and says what each kind does.
    virtual unsigned char code() const = 0;
    /// The event's value as a display shows it ("+2", "90.00%", a marker's text); empty for a kind that has none.
    virtual std::string value() const;
    /// The event's value as a whole number (a loop's number of passes, semitones, thirty-second notes to a click, a
    /// page number); 0 for a kind that has none.
    virtual int int_value() const;
    /// Writes the event as one line of text, line end included, for diagnostics: "Vamp: tick = 960, start = 960, ...".
    virtual void WriteString(std::basic_ostream<char>& os) const;

protected:
    /// For derived classes, as the three below: no copy through this class cuts an event down to nothing.
    TavoEvent(const TavoEvent&) = default;
    /// For derived classes.
    TavoEvent(TavoEvent&&) = default;
    /// For derived classes: assigns between events of one kind only.
    TavoEvent& operator=(const TavoEvent&) = default;
    /// For derived classes, likewise.
    TavoEvent& operator=(TavoEvent&&) = default;
};

}  // namespace cmn
