#include "tavo_core/event_codes.h"

namespace codes {

const std::map<unsigned char, std::string> editNameByTavoEventCode{
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
    static const std::string none;
    const auto found = editNameByTavoEventCode.find(code);
    return found == editNameByTavoEventCode.end() ? none : found->second;
}

}  // namespace codes
