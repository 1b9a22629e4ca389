#include "stage/pages/page_packer.h"

#include <fmt/format.h>
#include <strings.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <filesystem>
#include <limits>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "kit/numeric_string_compare.h"
#include "kit/path.h"
#include "stage/pages/page_entries.h"
#include "stage/pages/page_tar.h"
#include "tavo_core/bar_positions.h"
#include "tavo_security/cipher_writer.h"

namespace stage {

namespace {

namespace fs = std::filesystem;

struct PageFile {
    std::string path;
    ScorePage page;
};

bool HasPageExtension(const std::string& name) {
    const std::string extension = kit::path::extension(name);
    return ::strcasecmp(extension.c_str(), ".png") == 0 || ::strcasecmp(extension.c_str(), ".svg") == 0;
}

std::vector<std::string> ListPageFiles(const std::vector<std::string>& paths) {
    std::vector<std::string> files;
    for (const std::string& path : paths) {
        std::error_code ignored;
        if (!fs::is_directory(path, ignored)) {
            files.push_back(path);
            continue;
        }
        std::vector<std::string> names = kit::listdir(path);
        std::erase_if(names, [](const std::string& name) { return !HasPageExtension(name); });
        if (names.empty()) throw std::runtime_error(fmt::format("the folder \"{}\" holds no .png or .svg file", path));
        std::sort(names.begin(), names.end(), kit::NumericStringCompare());
        for (const std::string& name : names)
            files.push_back(kit::path::Join(path, name));
    }
    if (files.empty()) throw std::runtime_error("there are no pages to pack");
    if (files.size() > MaxPages)
        throw std::runtime_error(
            fmt::format("there are {} pages, more than the {} that a score may have", files.size(), MaxPages));
    return files;
}

std::uint32_t FindNumberInName(const std::string& path) {
    const std::string name = kit::path::basename_no_ext(path);
    const auto isDigit = [](unsigned char c) { return std::isdigit(c) != 0; };
    const auto end = std::find_if(name.rbegin(), name.rend(), isDigit).base();
    const auto begin = std::find_if_not(std::make_reverse_iterator(end), name.rend(), isDigit).base();
    if (begin == end) throw std::runtime_error(fmt::format("the file \"{}\" has no page number in its name", path));
    const std::string digits(begin, end);
    std::uint32_t number = 0;
    if (std::from_chars(digits.data(), digits.data() + digits.size(), number).ec != std::errc())
        throw std::runtime_error(fmt::format("the page number in the name of the file \"{}\" is too large", path));
    return number;
}

std::uint32_t CountFrom(std::uint32_t first, std::size_t index) {
    if (index > std::numeric_limits<std::uint32_t>::max() - first)
        throw std::runtime_error(fmt::format("the page numbers from {} on become too large", first));
    return first + static_cast<std::uint32_t>(index);
}

std::string ReadPageFile(const PageFile& file, ScorePage& page) {
    std::string bytes = kit::ReadFile(file.path, MaxPageBytes);
    page.type = FindPageType(bytes, fmt::format("the file \"{}\"", file.path));
    page.bytes = bytes.size();
    return bytes;
}

/// The files in the order of their numbers, each read once so that all mistakes show before anything is written.
std::vector<PageFile> ReadPages(const PagePackRequest& request, const std::vector<std::string>& paths) {
    std::vector<PageFile> files;
    for (const std::string& path : paths) {
        PageFile file{path, {}};
        file.page.number = request.firstNumber ? CountFrom(*request.firstNumber, files.size()) : FindNumberInName(path);
        files.push_back(file);
    }
    std::stable_sort(files.begin(), files.end(),
                     [](const PageFile& a, const PageFile& b) { return a.page.number < b.page.number; });
    const auto twice = std::adjacent_find(files.begin(), files.end(), [](const PageFile& a, const PageFile& b) {
        return a.page.number == b.page.number;
    });
    if (twice != files.end())
        throw std::runtime_error(fmt::format("the files \"{}\" and \"{}\" have one page number, {}", twice->path,
                                             (twice + 1)->path, twice->page.number));
    for (std::size_t i = 0; i < files.size(); ++i) {
        if (request.reportProgress) request.reportProgress(i, 2 * files.size(), files[i].path);
        static_cast<void>(ReadPageFile(files[i], files[i].page));
    }
    return files;
}

void WriteEntry(tavo_sec::CipherWriter& writer, const std::string& name, std::string_view bytes) {
    writer.Write(tar::MakeHeader({name, bytes.size()}));
    writer.Write(bytes);
    writer.Write(std::string(static_cast<std::size_t>(tar::PadToBlock(bytes.size())) - bytes.size(), '\0'));
}

void WriteScore(const PagePackRequest& request, const std::vector<PageFile>& files,
                const std::vector<ScorePage>& pages) {
    tavo_sec::CipherWriter writer(request.scorePath, request.passphrase, request.existing, request.options);
    WriteEntry(writer, PageIndexName, MakePageIndex(pages));
    for (std::size_t i = 0; i < files.size(); ++i) {
        if (request.reportProgress) request.reportProgress(files.size() + i, 2 * files.size(), files[i].path);
        ScorePage page = files[i].page;
        const std::string bytes = ReadPageFile(files[i], page);
        if (page != files[i].page)
            throw std::runtime_error(fmt::format("the file \"{}\" changed while it was packed", files[i].path));
        WriteEntry(writer, GetEntryName(page), bytes);
    }
    writer.Write(std::string(tar::EndBytes, '\0'));
    writer.Commit();
}

/// "1 to 3, 7 and 9"; a run of two is two numbers.
std::string DescribeNumbers(const std::vector<std::uint32_t>& numbers) {
    std::vector<std::string> runs;
    for (std::size_t first = 0; first < numbers.size();) {
        std::size_t last = first;
        while (last + 1 < numbers.size() && numbers[last + 1] - numbers[last] == 1)
            ++last;
        if (last - first < 2) last = first;
        runs.push_back(first == last ? fmt::format("{}", numbers[first])
                                     : fmt::format("{} to {}", numbers[first], numbers[last]));
        first = last + 1;
    }
    const std::string end = runs.back();
    runs.pop_back();
    return runs.empty() ? end : fmt::format("{} and {}", fmt::join(runs, ", "), end);
}

}  // namespace

std::vector<ScorePage> PackPages(const PagePackRequest& request) {
    const std::vector<std::string> paths = ListPageFiles(request.paths);
    if (request.existing == kit::ExistingFile::Keep && fs::exists(request.scorePath))
        throw kit::FileExistsError(
            fmt::format("the file \"{}\" exists already and is not overwritten", request.scorePath));
    const std::vector<PageFile> files = ReadPages(request, paths);
    std::vector<ScorePage> pages;
    for (const PageFile& file : files)
        pages.push_back(file.page);
    WriteScore(request, files, pages);
    return pages;
}

std::map<std::uint32_t, std::vector<PageTurn>> FindPageTurns(const tavo_midi::ShowData& show) {
    std::map<std::uint32_t, std::vector<PageTurn>> turns;
    for (const tavo_midi::SongData& song : show.GetSongs()) {
        const TL::BarPositions positions(song.GetTimeline());
        for (const TL::PageNum& page : song.GetTimeline().GetPageNums())
            turns[page.page_number()].push_back(
                {song.GetSongNumber(), page.abs_time(), positions.DescribeTick(page.abs_time())});
    }
    return turns;
}

std::vector<std::string> CompareWithShow(const std::vector<ScorePage>& pages,
                                         const std::map<std::uint32_t, std::vector<PageTurn>>& turns) {
    std::vector<std::uint32_t> missing;
    std::vector<std::uint32_t> unused;
    for (const auto& [number, where] : turns) {
        if (std::none_of(pages.begin(), pages.end(), [n = number](const ScorePage& page) { return page.number == n; }))
            missing.push_back(number);
    }
    for (const ScorePage& page : pages) {
        if (!turns.contains(page.number)) unused.push_back(page.number);
    }
    std::vector<std::string> sentences;
    if (turns.empty()) {
        sentences.emplace_back("no song of the show turns to a page");
        return sentences;
    }
    if (!missing.empty())
        sentences.push_back(
            fmt::format("the songs turn to page {}, which the score does not have", DescribeNumbers(missing)));
    if (!unused.empty()) sentences.push_back(fmt::format("no song turns to page {}", DescribeNumbers(unused)));
    return sentences;
}

}  // namespace stage
