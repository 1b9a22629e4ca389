#pragma once

#include <cstddef>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "stage/import/musicxml/played_order.h"

namespace test_support {

/// "1,3": {1, 3}.
inline std::vector<int> ParseNumbers(const std::string& text) {
    std::vector<int> numbers;
    std::istringstream stream(text);
    for (std::string number; std::getline(stream, number, ',');)
        numbers.push_back(std::stoi(number));
    return numbers;
}

/// Bars of 4/4 with the flow that a text writes, words with blanks between them:
///   A B 12      bars with these labels
///   |:  :|  :|3  :|a    repeat signs: twice, three times, also after a jump
///   [1,2  ]     an ending begins with the next bar, stops behind the last
///   DC DS Fine ToCoda segno coda    over the last bar; segno and coda over the next one
///   DS=x ToCoda=x segno=x coda=x    with a label;  DC@2 Fine@1,2  in these passes only
///   "al_Fine" "Vamp"                words over the last bar; _ stands for a blank
inline std::vector<stage::musicxml::WrittenBar> ParseFlow(const std::string& text) {
    using namespace stage::musicxml;
    std::vector<WrittenBar> bars;
    WrittenBar next;
    std::istringstream stream(text);
    const auto last = [&bars]() -> WrittenBar& {
        if (bars.empty()) throw std::invalid_argument("no bar yet");
        return bars.back();
    };
    for (std::string word; stream >> word;) {
        const std::size_t at = word.find('@');
        const std::vector<int> passes =
            at == std::string::npos ? std::vector<int>{} : ParseNumbers(word.substr(at + 1));
        const std::string head = word.substr(0, at);
        const std::string name = head.substr(0, head.find('='));
        const std::string label = head.find('=') == std::string::npos ? "" : head.substr(head.find('=') + 1);
        const auto mark = [&](MarkKind kind, Units position) {
            return WrittenMark{kind, position, 0, 0, label, passes, {}};
        };
        if (word == "|:") {
            next.startsRepeat = true;
        } else if (word.starts_with(":|")) {
            last().endsRepeat = true;
            last().repeatsAfterJump = word == ":|a";
            if (word.size() > 2 && word != ":|a") last().repeatTimes = std::stoi(word.substr(2));
        } else if (word[0] == '[') {
            next.endingStart = WrittenEnding{ParseNumbers(word.substr(1))};
        } else if (word == "]") {
            last().endingStop = WrittenEnding{};
        } else if (name == "segno" || name == "coda") {
            next.marks.push_back(mark(name == "segno" ? MarkKind::Segno : MarkKind::Coda, 0));
        } else if (name == "DC" || name == "DS" || name == "Fine" || name == "ToCoda") {
            last().marks.push_back(mark(name == "DC"     ? MarkKind::DaCapo
                                        : name == "DS"   ? MarkKind::DalSegno
                                        : name == "Fine" ? MarkKind::Fine
                                                         : MarkKind::ToCoda,
                                        last().length));
        } else if (word[0] == '"') {
            WrittenMark words{MarkKind::Words, 0, 0, 0, word.substr(1, word.size() - 2), {}};
            for (char& character : words.text)
                if (character == '_') character = ' ';
            last().marks.push_back(words);
        } else {
            next.label = word;
            next.length = 4 * 480;
            if (bars.empty()) next.meter = WrittenMeter{{4}, 4};
            bars.push_back(next);
            next = {};
        }
    }
    return bars;
}

/// The labels of the played bars with blanks between them.
inline std::string PrintOrder(const std::vector<stage::musicxml::WrittenBar>& bars,
                              const stage::musicxml::PlayedOrder& order) {
    std::string text;
    for (const stage::musicxml::PlayedBar& played : order.bars)
        text += (text.empty() ? "" : " ") + bars[played.bar].label;
    return text;
}

}  // namespace test_support
