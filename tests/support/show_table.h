#pragma once

#include <cstddef>
#include <fstream>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/corpus.h"

namespace test_support {

/// The table of tab-separated values in a file: one map from column to value a line.
inline std::vector<std::map<std::string, std::string>> ReadTable(const std::filesystem::path& path) {
    const auto split = [](const std::string& line) {
        std::vector<std::string> cells(1);
        for (const char character : line) {
            if (character == '\t')
                cells.emplace_back();
            else if (character != '\r')
                cells.back() += character;
        }
        return cells;
    };
    std::ifstream file(path);
    std::string line;
    if (!std::getline(file, line)) throw std::runtime_error("cannot read " + path.string());
    const std::vector<std::string> columns = split(line);
    std::vector<std::map<std::string, std::string>> rows;
    while (std::getline(file, line)) {
        const std::vector<std::string> cells = split(line);
        std::map<std::string, std::string>& row = rows.emplace_back();
        for (std::size_t index = 0; index < columns.size(); ++index)
            row[columns[index]] = index < cells.size() ? cells[index] : "";
    }
    return rows;
}

/// What the table beside a real work says about one of its songs.
struct ShowTableRow {
    std::string number;
    std::string title;
    std::filesystem::path midi;
    int division = 0;
    std::size_t tracks = 0;
    std::size_t tempoEvents = 0;
    std::size_t meterEvents = 0;
    /// The kinds of meter in order of their first use, "4/4 2/4".
    std::string meters;
    std::size_t keyEvents = 0;
    /// The kinds of key in order of their first use, sharps as +, flats as -, "m" for minor: "+3 +0m".
    std::string keys;
    std::size_t markers = 0;
    std::size_t barsPlayed = 0;
    double seconds = 0;
    std::string notes;
    /// Length in whole notes of a pick-up that the MIDI file does not mark; 0 for none.
    double pickupWholes = 0;
};

/// "pick-up 1/8 of a whole note" in the notes of a row.
inline double PickupIn(const std::string& notes) {
    const std::string words = "pick-up 1/";
    const std::size_t at = notes.find(words);
    return at == std::string::npos ? 0 : 1 / std::stod(notes.substr(at + words.size()));
}

/// The songs of one work of the corpus ("show_holmes_melodies").
inline std::vector<ShowTableRow> ReadShowTable(const std::string& work) {
    std::vector<ShowTableRow> rows;
    const auto count = [](const std::string& text) { return static_cast<std::size_t>(std::stoul(text)); };
    for (const auto& cells : ReadTable(CorpusPath() / work / "show.tsv")) {
        ShowTableRow& row = rows.emplace_back();
        row.number = cells.at("no");
        row.title = cells.at("title");
        row.midi = CorpusPath() / work / cells.at("midi");
        row.division = std::stoi(cells.at("division"));
        row.tracks = count(cells.at("tracks"));
        row.tempoEvents = count(cells.at("tempo_events"));
        row.meterEvents = count(cells.at("meter_events"));
        row.meters = cells.at("meters");
        row.keyEvents = count(cells.at("key_events"));
        row.keys = cells.at("keys(sharps+/flats-)");
        row.markers = count(cells.at("marker_events"));
        row.barsPlayed = count(cells.at("bars_played"));
        row.seconds = std::stod(cells.at("seconds"));
        row.notes = cells.at("notes");
        row.pickupWholes = PickupIn(row.notes);
    }
    return rows;
}

inline const std::vector<std::string>& Works() {
    static const std::vector<std::string> works{"show_holmes_melodies", "show_schubert_muellerin", "show_harrer_abel"};
    return works;
}

}  // namespace test_support
