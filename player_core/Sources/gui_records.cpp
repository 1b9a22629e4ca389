#include "player_core/gui_records.h"

#include "tavo_core/as_string.h"

namespace gui {

std::string BarsBeats::value() const {
    return as_string(GetEntry());
}

std::string Key::value() const {
    return as_string(GetEntry());
}

std::string Meter::value() const {
    return as_string(GetEntry());
}

int PageNum::int_value() const {
    return static_cast<int>(GetEntry().page_number());
}

std::string Tempo::value() const {
    return meter_ == nullptr ? as_string(GetEntry()) : as_string(GetEntry(), *meter_);
}

}  // namespace gui
