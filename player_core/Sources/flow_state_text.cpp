// The text of a flow state. Every kind of value is described once, for writing and for reading.

#include <charconv>
#include <concepts>
#include <limits>
#include <stdexcept>
#include <type_traits>

#include "flow_state_check.h"
#include "json_line_reader.h"
#include "player_core/flow_state.h"

namespace {

constexpr int Version = 1;
constexpr std::size_t LongestText = std::size_t{16} << 20U;

/// The type that is described, const when it is written.
template <class Given, class Described>
concept IsA = std::same_as<std::remove_const_t<Given>, Described>;

template <class Fields, IsA<gui::DisplayState::Status> Status>
void Describe(Fields& fields, Status& status) {
    fields("tick", status.tick);
    fields("type", status.type);
    fields("count", status.count);
}

template <class Fields, IsA<gui::DisplayState> Display>
void Describe(Fields& fields, Display& display) {
    fields("tick", display.tick);
    fields("seekFromTick", display.seekFromTick);
    fields("seekForward", display.seekForward);
    fields("seekPending", display.seekPending);
    fields("resetDisplay", display.resetDisplay);
    fields("filed", display.filed);
    fields("sentUntilTick", display.sentUntilTick);
    fields("zeroTick", display.zeroTick);
    fields("shown", display.shown);
}

template <class Fields, IsA<FlowState::Loop> Loop>
void Describe(Fields& fields, Loop& loop) {
    fields.Kind("type", loop.type);
    fields("start", loop.start);
    fields("end", loop.end);
    fields("limit", loop.limit);
    fields("pass", loop.pass);
    fields("canceled", loop.canceled);
}

template <class Fields, IsA<FlowState::Caesura> Caesura>
void Describe(Fields& fields, Caesura& caesura) {
    fields("tick", caesura.tick);
    fields("countdown", caesura.countdown);
    fields("zeroShown", caesura.zeroShown);
}

template <class Fields, IsA<FlowState::Range> Range>
void Describe(Fields& fields, Range& range) {
    fields("start", range.start);
    fields("end", range.end);
}

template <class Fields, IsA<FlowState::Spent> Spent>
void Describe(Fields& fields, Spent& spent) {
    fields.Kind("type", spent.type);
    fields("start", spent.start);
    fields("end", spent.end);
    fields("value", spent.value);
}

template <class Fields, IsA<FlowState::Result> Result>
void Describe(Fields& fields, Result& result) {
    fields("loopStartsHere", result.loopStartsHere);
    fields("stopBeforeEnd", result.stopBeforeEnd);
    fields("caesuraHere", result.caesuraHere);
    fields("cutHere", result.cutHere);
    fields("tick", result.tick);
}

template <class Fields, IsA<FlowState> State>
void Describe(Fields& fields, State& state) {
    fields.Version("flowState");
    fields("song", state.song);
    fields("tick", state.tick);
    fields("trackerTick", state.trackerTick);
    fields("attacca", state.attacca);
    fields("loops", state.loops);
    fields("fermata", state.fermata);
    fields("fermataCanceledCaesura", state.fermataCanceledCaesura);
    fields("spent", state.spent);
    fields("caesuras", state.caesuras);
    fields("atCaesura", state.atCaesura);
    fields("caesuraPost", state.caesuraPost);
    fields("caesuraTick", state.caesuraTick);
    fields("caesuraShownTick", state.caesuraShownTick);
    fields("jump", state.jump);
    fields("jumpForVampRepeatOrCut", state.jumpForVampRepeatOrCut);
    fields("preJumpTick", state.preJumpTick);
    fields("jumpTargetTick", state.jumpTargetTick);
    fields("lastSeekTick", state.lastSeekTick);
    fields("seekIsOwn", state.seekIsOwn);
    fields("ownCutEnd", state.ownCutEnd);
    fields("result", state.result);
    fields("tempoScale", state.tempoScale);
    fields("transposition", state.transposition);
    fields("vampLamp", state.vampLamp);
    fields("display", state.display);
}

class Writer {
public:
    template <class Value>
    void operator()(const char* name, const Value& value) {
        Name_(name);
        Write(value);
    }
    void Kind(const char* name, unsigned char code) { (*this)(name, std::string(flow_state::KindName(code))); }
    void Version(const char* name) { (*this)(name, ::Version); }

    void Write(bool value) { text_ += value ? "true" : "false"; }
    void Write(int value) { text_ += std::to_string(value); }
    void Write(unsigned int value) { text_ += std::to_string(value); }
    void Write(double value) {
        // The shortest digits that read as the same number.
        char digits[32];
        text_.append(digits, std::to_chars(digits, digits + sizeof digits, value).ptr);
    }
    void Write(const std::string& value);
    template <class Value>
    void Write(const std::optional<Value>& value) {
        if (value) {
            Write(*value);
        } else {
            text_ += "null";
        }
    }
    template <class Value>
    void Write(const std::vector<Value>& values) {
        text_ += '[';
        for (const Value& value : values) {
            if (&value != &values.front()) text_ += ',';
            Write(value);
        }
        text_ += ']';
    }
    template <class Value>
    requires std::is_class_v<Value>
    void Write(const Value& value) {
        text_ += '{';
        Describe(*this, value);
        text_ += '}';
    }

    [[nodiscard]] const std::string& GetText() const { return text_; }

private:
    void Name_(const char* name) {
        if (text_.back() != '{') text_ += ',';
        ((text_ += '"') += name) += "\":";
    }

    std::string text_;
};

void Writer::Write(const std::string& value) {
    constexpr const char* HexDigits = "0123456789abcdef";
    text_ += '"';
    for (const char c : value) {
        const auto code = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            (text_ += '\\') += c;
        } else if (code < ' ') {
            ((text_ += "\\u00") += HexDigits[code >> 4U]) += HexDigits[code & 0xFU];
        } else {
            text_ += c;
        }
    }
    text_ += '"';
}

class Reader {
public:
    explicit Reader(std::string_view text) : json_(text, "the flow state") {}

    void Read(bool& value) { value = json_.ReadBool(); }
    void Read(int& value) { value = static_cast<int>(ReadInRangeOf_<int>()); }
    void Read(unsigned int& value) { value = static_cast<unsigned int>(ReadInRangeOf_<unsigned int>()); }
    void Read(double& value) { value = json_.ReadNumber(); }
    void Read(std::string& value) { value = json_.ReadString(); }
    template <class Value>
    void Read(std::optional<Value>& value) {
        if (json_.TakeNull()) return;
        value = Value();
        Read(*value);
    }
    template <class Value>
    void Read(std::vector<Value>& values) {
        json_.ReadArray([&] { Read(values.emplace_back()); });
    }
    template <class Value>
    requires std::is_class_v<Value>
    void Read(Value& value) {
        Collector collector{*this, {}};
        Describe(collector, value);
        json_.ReadObject(collector.fields);
    }
    void ReadEnd() { json_.ReadEnd(); }

private:
    struct Collector {
        template <class Value>
        void operator()(const char* name, Value& value) {
            fields.push_back({name, [this, &value] { reader.Read(value); }});
        }
        void Kind(const char* name, unsigned char& code) {
            fields.push_back({name, [this, &code] { reader.ReadKind_(code); }});
        }
        void Version(const char* name) {
            fields.push_back({name, [this] { reader.ReadVersion_(); }});
        }

        Reader& reader;
        std::vector<JsonLineReader::Field> fields;
    };

    template <class Integer>
    std::int64_t ReadInRangeOf_() {
        return json_.ReadInteger(std::numeric_limits<Integer>::min(), std::numeric_limits<Integer>::max());
    }
    void ReadKind_(unsigned char& code) {
        code = flow_state::KindOf(json_.ReadString());
        if (code == 0) json_.Refuse("vamp, repeat, cut or fermata is expected");
    }
    void ReadVersion_() {
        const std::int64_t version = ReadInRangeOf_<int>();
        if (version != Version) json_.Refuse("version " + std::to_string(version) + " is not known here");
    }

    JsonLineReader json_;
};

}  // namespace

std::string ToText(const FlowState& state) {
    Writer writer;
    writer.Write(state);
    return writer.GetText();
}

FlowState FlowStateFromText(std::string_view text) {
    if (text.size() > LongestText)
        throw std::invalid_argument("the flow state cannot be read: it is longer than 16 MiB");
    FlowState state;
    Reader reader(text);
    reader.Read(state);
    reader.ReadEnd();
    flow_state::RequireSound(state);
    return state;
}
