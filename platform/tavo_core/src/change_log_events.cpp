#include "tavo_core/change_log_events.h"

#include <fmt/format.h>

#include <atomic>
#include <limits>

#include "number_text.h"
#include "tavo_core/event_codes.h"

namespace CL {

namespace {

std::atomic<unsigned int> caesuraVersionTarget{0};

std::string AsText(const OscArgument& argument) {
    if (const auto* number = std::get_if<int>(&argument)) return std::to_string(*number);
    if (const auto* number = std::get_if<float>(&argument)) return tavo_core::ShortestText(*number);
    return std::get<std::string>(argument);
}

}  // namespace

unsigned char Vamp::code() const {
    return codes::Vamp;
}
unsigned char Repeat::code() const {
    return codes::Repeat;
}
unsigned char Cut::code() const {
    return codes::Cut;
}
unsigned char Fermata::code() const {
    return codes::Fermata;
}
unsigned char Caesura::code() const {
    return codes::Caesura;
}
unsigned char TempoScale::code() const {
    return codes::TempoScale;
}
unsigned char Transposition::code() const {
    return codes::Transposition;
}
unsigned char Click::code() const {
    return codes::Click;
}
unsigned char Marker::code() const {
    return codes::Marker;
}
unsigned char Sfx::code() const {
    return codes::Sfx;
}
unsigned char SfxAmbient::code() const {
    return codes::SfxAmbient;
}
unsigned char Osc::code() const {
    return codes::Osc;
}

std::string Vamp::value() const {
    return maxCount_ == 0 ? std::string() : std::to_string(maxCount_);
}

std::string Repeat::value() const {
    return std::to_string(count_);
}

std::string TempoScale::value() const {
    return fmt::format("{:.2f}%", static_cast<double>(scale_) * 100.0);
}

std::string Transposition::value() const {
    return semitones_ > 0 ? fmt::format("+{}", semitones_) : std::to_string(semitones_);
}

std::string Click::value() const {
    return std::to_string(value_);
}

unsigned int Click::ClocksPerClick(unsigned char thirtySecondsPerQuarter) const {
    if (thirtySecondsPerQuarter == 0 || value_ <= 0) return 0;
    return static_cast<unsigned int>(value_) * 24U / thirtySecondsPerQuarter;
}

std::string Osc::value() const {
    std::string text = address_;
    for (const OscArgument& argument : arguments_)
        text.append(" ").append(AsText(argument));
    return text;
}

unsigned int GetCaesuraIgnoredVersionTarget() {
    return std::numeric_limits<unsigned int>::max();
}

void SetCaesuraVersionTarget(unsigned int target) {
    caesuraVersionTarget = target;
}

unsigned int GetCaesuraVersionTarget() {
    return caesuraVersionTarget;
}

}  // namespace CL
