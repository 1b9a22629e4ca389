#include "stage/import/musicxml/reading.h"

#include <fmt/format.h>

#include <stdexcept>

namespace stage::musicxml {

namespace {

constexpr std::size_t MaxWarnings = 100;

}  // namespace

std::string Reading::GetMeasure() const {
    return label.empty() ? fmt::format("measure at place {}", bar + 1) : fmt::format("measure {}", label);
}

std::string Reading::GetPlace() const {
    std::string place = fmt::format("\"{}\"", name);
    if (part != nullptr) place += fmt::format(", {}, {}", part->place, GetMeasure());
    return place;
}

void Reading::Fail(const std::string& problem) const {
    throw std::runtime_error(fmt::format("{}: {}", GetPlace(), problem));
}

void Reading::CountMark() {
    if (++marks > MaxMarks) Fail(fmt::format("the score has more than {} marks", MaxMarks));
}

void Reading::Warn(const std::string& oddity) {
    if (score.warnings.size() < MaxWarnings)
        score.warnings.push_back(fmt::format("{}: {}", GetPlace(), oddity));
    else if (score.warnings.size() == MaxWarnings)
        score.warnings.push_back(fmt::format("\"{}\": there is more that is odd", name));
}

void Reading::WarnOnce(PartReading& reader, const std::string& oddity) {
    if (reader.told.insert(oddity).second) Warn(oddity);
}

}  // namespace stage::musicxml
