#include "stage/import/musicxml/direction_reader.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "stage/import/musicxml/bar_marks.h"
#include "stage/import/musicxml/divisions.h"
#include "stage/import/musicxml/dynamics.h"
#include "stage/import/musicxml/jump_words.h"
#include "stage/import/musicxml/metronome.h"
#include "stage/import/musicxml/xml_values.h"

namespace stage::musicxml {

namespace {

constexpr int FromMetronome = 1;
constexpr int FromSound = 2;
constexpr int MaxWedges = 100;

/// Reads what stands at one place of one part.
class PlaceReader {
public:
    PlaceReader(Reading& reading, PartReading& part, BarDraft& bar, Units position)
        : reading_(reading), part_(part), bar_(bar), position_(position) {}

    /// Reads what a direction shows; `sound` beside it says some of that more exactly.
    void ReadTypes(const pugi::xml_node& direction, const pugi::xml_node& sound);
    [[nodiscard]] bool HasDynamics() const { return hasDynamics_; }
    /// What the words say of the jump that `sound` orders.
    [[nodiscard]] JumpAim GetAim() const { return aim_; }
    void ReadSoundAttributes(const pugi::xml_node& sound, JumpAim aim);

private:
    void ReadType(const pugi::xml_node& type, const pugi::xml_node& sound);
    void Add(MarkKind kind, std::string text = {}, JumpAim aim = JumpAim::Any) {
        AddMark(reading_, bar_, DraftMark{{kind, position_, 0, 0, std::move(text), passes_, aim}, 0, 0, false});
    }
    /// An order in words, unless `sound` gives it, too.
    void AddOrder(const WrittenMark& order, const pugi::xml_node& sound);
    void AddTempo(std::optional<double> tempo, int rank);
    void ReadWords(const std::string& words, const pugi::xml_node& sound);
    void ReadWedge(const pugi::xml_node& wedge);
    void ReadPedal(const pugi::xml_node& pedal);
    void AddPedal(bool isDown) {
        reading_.CountMark();
        bar_.pedals.push_back({bar_.index, part_.index, position_, isDown});
    }

    Reading& reading_;
    PartReading& part_;
    BarDraft& bar_;
    Units position_;
    std::vector<int> passes_;
    bool hasDynamics_ = false;
    JumpAim aim_ = JumpAim::Any;
    /// Whether the direction is one order, "To" with a coda sign, that is read already.
    bool isOrder_ = false;
};

void PlaceReader::AddTempo(std::optional<double> tempo, int rank) {
    if (!tempo) return;
    if (*tempo < MinTempo || *tempo > MaxTempo) {
        reading_.Warn(fmt::format("the tempo {} is left out", *tempo));
        return;
    }
    reading_.tempo = *tempo;
    AddMark(reading_, bar_, DraftMark{{MarkKind::Tempo, position_, 0, *tempo, {}, passes_, {}}, rank, 0, false});
}

const char* GetSoundAttribute(MarkKind kind) {
    switch (kind) {
        case MarkKind::DaCapo:
            return "dacapo";
        case MarkKind::DalSegno:
            return "dalsegno";
        case MarkKind::Fine:
            return "fine";
        case MarkKind::ToCoda:
            return "tocoda";
        case MarkKind::Segno:
            return "segno";
        default:
            return "coda";
    }
}

bool SaysSomething(const std::string& words) {
    return std::any_of(words.begin(), words.end(), [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c & '\x80') != 0;
    });
}

void PlaceReader::ReadWords(const std::string& words, const pugi::xml_node& sound) {
    if (!SaysSomething(words)) return;
    if (const std::optional<WrittenMark> order = ReadJumpWords(words))
        AddOrder(*order, sound);
    else
        Add(MarkKind::Words, words);
}

void PlaceReader::AddOrder(const WrittenMark& order, const pugi::xml_node& sound) {
    if (sound.attribute(GetSoundAttribute(order.kind)))
        aim_ = order.aim;
    else
        Add(order.kind, order.text, order.aim);
}

void PlaceReader::ReadWedge(const pugi::xml_node& wedge) {
    const std::string_view type = wedge.attribute("type").value();
    const std::int64_t number = ReadWhole(wedge.attribute("number").value()).value_or(1);
    DynamicEvent event{DynamicEvent::Kind::WedgeStop, bar_.index, position_, 0,
                       static_cast<int>(std::clamp<std::int64_t>(number, 1, MaxWedges))};
    if (type == "crescendo")
        event.kind = DynamicEvent::Kind::Crescendo;
    else if (type == "diminuendo")
        event.kind = DynamicEvent::Kind::Diminuendo;
    else if (type != "stop")
        return;
    AddDynamicEvent(reading_, part_, event);
}

void PlaceReader::ReadPedal(const pugi::xml_node& pedal) {
    const std::string_view type = pedal.attribute("type").value();
    if (type == "stop" || type == "change" || type == "discontinue") AddPedal(false);
    if (type == "start" || type == "change" || type == "resume") AddPedal(true);
}

/// "To" or "D.S. al" with a sign after it, which then says where to go and not that the sign's place is here. No value
/// where no sign stands beside words.
std::optional<WrittenMark> ReadOrderWithSign(const pugi::xml_node& direction) {
    std::string words;
    std::string withSigns;
    bool hasSign = false;
    for (const pugi::xml_node& type : direction.children("direction-type"))
        for (const pugi::xml_node& node : type.children()) {
            const std::string_view name = node.name();
            const bool isSign = name == "segno" || name == "coda";
            hasSign = hasSign || isSign;
            if (isSign) withSigns += fmt::format(" {} ", name);
            if (name != "words") continue;
            words += node.child_value();
            withSigns += node.child_value();
        }
    if (!hasSign) return std::nullopt;
    std::optional<WrittenMark> order = ReadJumpWords(MakeLine(withSigns));
    if (!order) order = ReadJumpWords(MakeLine(words));
    const bool leadsAway = order && order->kind != MarkKind::Coda && order->kind != MarkKind::Fine;
    return leadsAway ? order : std::nullopt;
}

void PlaceReader::ReadTypes(const pugi::xml_node& direction, const pugi::xml_node& sound) {
    if (const std::optional<WrittenMark> order = ReadOrderWithSign(direction)) {
        isOrder_ = true;
        AddOrder(*order, sound);
    }
    for (const pugi::xml_node& type : direction.children("direction-type"))
        ReadType(type, sound);
}

void PlaceReader::ReadType(const pugi::xml_node& type, const pugi::xml_node& sound) {
    std::string words;
    for (const pugi::xml_node& node : type.children()) {
        const std::string_view name = node.name();
        if (name == "words") {
            // A change of the font within a text divides it: "1", "o", " Tempo".
            words += node.child_value();
        } else if (name == "rehearsal") {
            Add(MarkKind::Rehearsal, ReadLine(node));
        } else if (name == "segno" || name == "coda") {
            if (!isOrder_ && !sound.attribute(node.name())) Add(name == "segno" ? MarkKind::Segno : MarkKind::Coda);
        } else if (name == "metronome") {
            if (!sound.attribute("tempo")) AddTempo(ReadMetronome(node, reading_.tempo), FromMetronome);
        } else if (name == "dynamics") {
            const std::optional<int> velocity = ReadVelocity(sound.attribute("dynamics"));
            hasDynamics_ = AddDynamics(reading_, part_, bar_.index, position_, node, velocity) || hasDynamics_;
        } else if (name == "wedge") {
            ReadWedge(node);
        } else if (name == "pedal") {
            ReadPedal(node);
        }
    }
    if (!isOrder_) ReadWords(MakeLine(words), sound);
}

void PlaceReader::ReadSoundAttributes(const pugi::xml_node& sound, JumpAim aim) {
    passes_ = ReadNumbers(sound.attribute("time-only").value());
    if (const pugi::xml_attribute tempo = sound.attribute("tempo")) AddTempo(ReadDecimal(tempo.value()), FromSound);
    constexpr auto Labelled = std::to_array<std::pair<const char*, MarkKind>>({
        {"segno", MarkKind::Segno},
        {"coda", MarkKind::Coda},
        {"tocoda", MarkKind::ToCoda},
        {"dalsegno", MarkKind::DalSegno},
    });
    for (const auto& [name, kind] : Labelled)
        if (const pugi::xml_attribute label = sound.attribute(name))
            Add(kind, ReadLine(label), kind == MarkKind::DalSegno ? aim : JumpAim::Any);
    if (IsYes(sound.attribute("dacapo"))) Add(MarkKind::DaCapo, {}, aim);
    // Its value may be "yes" or the length of the last note.
    if (const pugi::xml_attribute fine = sound.attribute("fine"); fine && std::string_view(fine.value()) != "no")
        Add(MarkKind::Fine);
    if (IsYes(sound.attribute("forward-repeat"))) bar_.bar.startsRepeat = true;
    if (const pugi::xml_attribute pedal = sound.attribute("damper-pedal")) {
        const std::optional<double> depth = ReadDecimal(pedal.value());
        AddPedal(depth ? *depth > 0 : IsYes(pedal));
    }
    if (sound.child("midi-instrument") || sound.child("instrument-change"))
        reading_.WarnOnce(part_, "a change of the instrument's sound inside the song is not read");
}

/// Reads the attributes of a <sound>, whose own offset counts from `position`; returns where it stands.
Units ReadSoundAt(Reading& reading, PartReading& part, BarDraft& bar, Units position, const pugi::xml_node& sound,
                  JumpAim aim = JumpAim::Any) {
    position = std::max(Units{0}, position + ReadOffset(reading, part, sound.child("offset")));
    PlaceReader(reading, part, bar, position).ReadSoundAttributes(sound, aim);
    return position;
}

}  // namespace

void ReadDirection(Reading& reading, PartReading& part, BarDraft& bar, Units cursor, const pugi::xml_node& direction) {
    const pugi::xml_node sound = direction.child("sound");
    // An offset is where the direction is drawn, and where it sounds only if it says so.
    const pugi::xml_node offset = direction.child("offset");
    const Units moved = IsYes(offset.attribute("sound")) ? ReadOffset(reading, part, offset) : 0;
    const Units position = std::max(Units{0}, cursor + moved);
    PlaceReader place(reading, part, bar, position);
    place.ReadTypes(direction, sound);
    const std::optional<int> velocity = ReadVelocity(sound.attribute("dynamics"));
    // Dynamics that no mark shows: a level of their own.
    if (velocity && !place.HasDynamics())
        AddDynamicEvent(reading, part, {DynamicEvent::Kind::Level, bar.index, position, *velocity, 1});
    ReadSoundAt(reading, part, bar, position, sound, place.GetAim());
}

void ReadSound(Reading& reading, PartReading& part, BarDraft& bar, Units cursor, const pugi::xml_node& sound) {
    const Units position = ReadSoundAt(reading, part, bar, cursor, sound);
    if (const std::optional<int> velocity = ReadVelocity(sound.attribute("dynamics")))
        AddDynamicEvent(reading, part, {DynamicEvent::Kind::Level, bar.index, position, *velocity, 1});
}

}  // namespace stage::musicxml
