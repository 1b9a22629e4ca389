#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kit/file.h"
#include "stage/pages/page_package.h"
#include "tavo_midi/show_data.h"
#include "tavo_security/cipher_format.h"

namespace stage {

struct PagePackRequest {
    /// PNG and SVG files, whatever their names end in, or folders, of which all files named .png or .svg are taken in
    /// the order in which people number them.
    std::vector<std::string> paths;
    /// Numbers the pages in their order; without it a page's number is the last run of digits in its file's name.
    std::optional<std::uint32_t> firstNumber;
    std::string scorePath;
    kit::ExistingFile existing = kit::ExistingFile::Keep;
    /// Not kept.
    std::string_view passphrase;
    tavo_sec::CipherOptions options;
    /// Called before each file is read, which happens twice, with the count of readings done and of all.
    std::function<void(std::size_t done, std::size_t total, const std::string& file)> reportProgress;
};

/// Writes a `.score` file; a crash at any moment leaves the old state or the new one. Memory is one page. Returns the
/// pages ascending by number. Throws kit::FileExistsError if the file is there and to be kept, otherwise
/// std::runtime_error with one sentence that names the file: no PNG or SVG, too large, without a number, with the
/// number of another file.
std::vector<ScorePage> PackPages(const PagePackRequest& request);

/// Where a song turns to a page.
struct PageTurn {
    std::string song;
    unsigned int tick = 0;
    /// The tick in bars, as TL::BarPositions writes it.
    std::string place;
};

/// All turns by page number, in show order.
[[nodiscard]] std::map<std::uint32_t, std::vector<PageTurn>> FindPageTurns(const tavo_midi::ShowData& show);

/// One sentence for the pages that songs turn to and the score lacks, one for those that no song turns to; as far as
/// there are any.
[[nodiscard]] std::vector<std::string> CompareWithShow(const std::vector<ScorePage>& pages,
                                                       const std::map<std::uint32_t, std::vector<PageTurn>>& turns);

}  // namespace stage
