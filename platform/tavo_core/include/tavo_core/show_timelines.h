#pragma once

#include <string>
#include <vector>

#include "tavo_core/timeline.h"

namespace TL {

/// The songs of a show as an editor needs to know them.
class ShowTimelines {
public:
    /// In show order.
    [[nodiscard]] virtual std::vector<std::string> GetSongNumbers() const = 0;
    /// An unknown number throws std::out_of_range with a sentence that names it. The timeline stays where it is for as
    /// long as the show.
    [[nodiscard]] virtual const Timeline& GetTimelineOf(const std::string& songNumber) const = 0;

protected:
    ShowTimelines() = default;
    /// These four, and the destructor, are for derived classes: nobody owns or copies a show by way of this class.
    ShowTimelines(const ShowTimelines&) = default;
    /// For derived classes.
    ShowTimelines(ShowTimelines&&) = default;
    /// For derived classes; timelines that were handed out before are those of the old show.
    ShowTimelines& operator=(const ShowTimelines&) = default;
    /// For derived classes, likewise.
    ShowTimelines& operator=(ShowTimelines&&) = default;
    ~ShowTimelines() = default;
};

}  // namespace TL
