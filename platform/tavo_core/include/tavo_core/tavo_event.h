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
    virtual ~TavoEvent();

    /// The tick index where the event stands.
    virtual unsigned int abs_time() const = 0;
    /// First tick of what the event covers; abs_time() unless a derived class says otherwise.
    virtual unsigned int start() const;
    /// First tick after what the event covers; abs_time() for an event that covers nothing.
    virtual unsigned int end() const;
    /// One byte that says what kind it is; the codes are listed in event_codes.h.
    virtual unsigned char code() const = 0;
    /// The event's value as a display shows it; empty for a kind that has none.
    virtual std::string value() const;
    /// The event's value as a whole number (a loop's number of passes, a page number); 0 for a kind that has none.
    virtual int int_value() const;
    /// Writes the event as one line of text, line end included, for diagnostics.
    virtual void WriteString(std::basic_ostream<char>& os) const;

protected:
    TavoEvent(const TavoEvent&) = default;
    TavoEvent(TavoEvent&&) = default;
    TavoEvent& operator=(const TavoEvent&) = default;
    TavoEvent& operator=(TavoEvent&&) = default;
};

}  // namespace cmn
