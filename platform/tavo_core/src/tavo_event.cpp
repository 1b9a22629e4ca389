#include "tavo_core/tavo_event.h"

#include <ostream>

#include "tavo_core/event_codes.h"

namespace cmn {

TavoEvent::~TavoEvent() = default;

unsigned int TavoEvent::start() const {
    return abs_time();
}

unsigned int TavoEvent::end() const {
    return abs_time();
}

std::string TavoEvent::value() const {
    return {};
}

int TavoEvent::int_value() const {
    return 0;
}

void TavoEvent::WriteString(std::basic_ostream<char>& os) const {
    const std::string& name = codes::EditName(code());
    os << (name.empty() ? "Event" : name) << ": tick = " << abs_time() << ", start = " << start()
       << ", end = " << end();
    const std::string text = value();
    if (!text.empty()) os << ", value = " << text;
    os << '\n';
}

}  // namespace cmn
