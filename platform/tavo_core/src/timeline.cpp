#include "tavo_core/timeline.h"

#include "tavo_core/event_codes.h"

namespace TL {

unsigned char BarsBeats::code() const {
    return codes::BarsBeats;
}
unsigned char Meter::code() const {
    return codes::Meter;
}
unsigned char Key::code() const {
    return codes::Key;
}
unsigned char Tempo::code() const {
    return codes::Tempo;
}
unsigned char PageNum::code() const {
    return codes::PageNum;
}

std::vector<int> Timeline::GetAllowedClickValuesAtTickIndex(unsigned int tickIndex) const {
    constexpr unsigned int LongestClick = 128;
    const Meter* meter = meters_.FindInForceAt(tickIndex);
    if (meter == nullptr && !meters_.empty()) meter = &meters_.front();
    const unsigned int numerator = meter == nullptr ? 4 : meter->numerator();
    const unsigned int denominator = meter == nullptr ? 4 : meter->denominator();

    std::vector<int> values;
    if (numerator == 0 || denominator == 0) return values;
    for (unsigned int value = 1; value <= LongestClick; ++value) {
        if (numerator * 32 % (denominator * value) == 0) values.push_back(static_cast<int>(value));
    }
    return values;
}

}  // namespace TL
