#include "tavo_core/event_codes.h"

namespace codes {

// Threads may still read while the process ends.
const std::map<unsigned char, std::string>& editNameByTavoEventCode = *new std::map<unsigned char, std::string>{
    {Vamp, "Vamp"},
    {Repeat, "Repeat"},
    {Cut, "Cut"},
    {Transposition, "Transposition"},
    {TempoScale, "Tempo Scale"},
    {Click, "Click"},
    {Marker, "Marker"},
    {Fermata, "Fermata"},
    {Caesura, "Caesura"},
    {Sfx, "Sfx"},
    {SfxAmbient, "Ambient Sfx"},
    {Osc, "OSC"},
};

const std::string& EditName(unsigned char code) {
    static const std::string& none = *new std::string;
    const auto found = editNameByTavoEventCode.find(code);
    return found == editNameByTavoEventCode.end() ? none : found->second;
}

}  // namespace codes
