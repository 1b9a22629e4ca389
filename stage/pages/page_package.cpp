#include "stage/pages/page_package.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <istream>
#include <stdexcept>
#include <utility>

#include "kit/json_object.h"
#include "stage/pages/page_entries.h"
#include "stage/pages/page_tar.h"

namespace stage {

namespace {

constexpr const char* FormatName = "tavo score";
constexpr std::uint32_t FormatVersion = 1;

[[noreturn]] void Fail(const std::string& place, const std::string& problem) {
    throw std::runtime_error(place + " " + problem);
}

constexpr std::array<std::pair<std::string_view, PageType>, 2> MediaTypes{
    {{"image/png", PageType::Png}, {"image/svg+xml", PageType::Svg}}};

ScorePage ReadPageEntry(kit::JsonObject entry) {
    ScorePage page;
    page.number = entry.Get("page").AsUnsigned();
    page.type = entry.Get("type").AsOneOf(MediaTypes);
    page.bytes = static_cast<std::uint64_t>(entry.Get("bytes").AsInteger(0, MaxPageBytes));
    const kit::JsonValue file = entry.Get("file");
    if (file.AsText() != GetEntryName(page)) file.FailAs(fmt::format("must be \"{}\"", GetEntryName(page)));
    entry.RefuseOtherKeys();
    return page;
}

/// What comes before the first element of an XML text: byte order mark, declaration, comments, document type.
std::string_view SkipProlog(std::string_view text) {
    if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
    const auto skipBehind = [&](std::string_view end) {
        const std::size_t at = text.find(end);
        text.remove_prefix(at == std::string_view::npos ? text.size() : at + end.size());
    };
    while (true) {
        text.remove_prefix(std::min(text.find_first_not_of(" \t\r\n"), text.size()));
        if (text.starts_with("<?")) {
            skipBehind("?>");
        } else if (text.starts_with("<!--")) {
            skipBehind("-->");
        } else if (text.starts_with("<!DOCTYPE")) {
            // A subset of its own stands in brackets and holds angles.
            const bool hasSubset = text.find('[') < text.find('>');
            skipBehind(hasSubset ? "]" : ">");
            if (hasSubset) skipBehind(">");
        } else {
            return text;
        }
    }
}

bool IsSvg(std::string_view bytes) {
    std::string_view text = SkipProlog(bytes);
    for (const std::string_view start : {"<svg:svg", "<svg"}) {
        if (text.starts_with(start) && text.size() > start.size())
            return std::string_view(" \t\r\n/>").find(text[start.size()]) != std::string_view::npos;
    }
    return false;
}

}  // namespace

std::string GetEntryName(const ScorePage& page) {
    return fmt::format("pages/{}.{}", page.number, page.type == PageType::Png ? "png" : "svg");
}

std::string_view GetMediaType(PageType type) {
    return type == PageType::Png ? "image/png" : "image/svg+xml";
}

PageType FindPageType(std::string_view bytes, const std::string& place) {
    // The signature, then the length and the type of the first chunk, which is always the same.
    constexpr std::string_view PngStart("\x89PNG\r\n\x1A\n\0\0\0\rIHDR", 16);
    if (bytes.starts_with(PngStart)) return PageType::Png;
    if (IsSvg(bytes)) return PageType::Svg;
    Fail(place, "is neither a PNG nor an SVG image");
}

std::string MakePageIndex(const std::vector<ScorePage>& pages) {
    std::string text = fmt::format("{{\"format\":\"{}\",\"version\":{},\"pages\":[", FormatName, FormatVersion);
    for (const ScorePage& page : pages)
        text += fmt::format("{}\n{{\"page\":{},\"file\":\"{}\",\"type\":\"{}\",\"bytes\":{}}}",
                            &page == pages.data() ? "" : ",", page.number, GetEntryName(page), GetMediaType(page.type),
                            page.bytes);
    return text + "\n]}\n";
}

std::vector<ScorePage> ParsePageIndex(const std::string& text, const std::string& place) {
    const kit::JsonText json(text, place, {.bytes = MaxPageIndexBytes});
    kit::JsonObject index = json.Object();
    const kit::JsonValue format = index.Get("format");
    if (format.AsText() != FormatName) format.FailAs(fmt::format("must be \"{}\"", FormatName));
    const kit::JsonValue version = index.Get("version");
    if (version.AsUnsigned() != FormatVersion)
        version.Fail(fmt::format("is {}, but only {} can be read", version.AsUnsigned(), FormatVersion));
    std::vector<ScorePage> pages;
    for (const kit::JsonValue& entry : index.Get("pages").AsList(MaxPages)) {
        const ScorePage page = ReadPageEntry(entry.AsObject());
        if (!pages.empty() && page.number <= pages.back().number)
            entry.Fail(fmt::format("is page {}, which must not come after page {}", page.number, pages.back().number));
        pages.push_back(page);
    }
    index.RefuseOtherKeys();
    return pages;
}

std::unique_ptr<tavo_sec::CipherStream> OpenPages(const std::string& path, std::string_view passphrase) {
    return std::make_unique<tavo_sec::CipherStream>(path, passphrase);
}

PagePackage::PagePackage(const std::string& path, std::string_view passphrase)
    : PagePackage(OpenPages(path, passphrase), path) {}

PagePackage::PagePackage(std::unique_ptr<std::istream> archive, std::string name)
    : archive_(std::move(archive)),
      cipher_(dynamic_cast<const tavo_sec::CipherStream*>(archive_.get())),
      name_(std::move(name)) {
    ReadIndex();
}

PagePackage::~PagePackage() = default;

void PagePackage::ReadIndex() {
    const std::string place = fmt::format("the index of the file \"{}\"", name_);
    const tar::Entry entry = tar::ParseHeader(ReadBytes(tar::BlockBytes, place), place);
    if (entry.name != PageIndexName) Fail(place, "is missing");
    if (entry.bytes > MaxPageIndexBytes)
        Fail(place, fmt::format("is longer than the {} bytes allowed", MaxPageIndexBytes));
    std::uint64_t end = tar::BlockBytes + tar::PadToBlock(entry.bytes);
    pages_ = ParsePageIndex(ReadBytes(entry.bytes, place), place);
    for (const ScorePage& page : pages_) {
        places_.push_back(end);
        end += tar::BlockBytes + tar::PadToBlock(page.bytes);
    }
    places_.push_back(end);
}

std::string PagePackage::ReadBytes(std::uint64_t count, const std::string& place) {
    // In chunks: a length that is only announced is not worth its memory.
    constexpr std::uint64_t Piece = 1U << 20U;
    std::string bytes;
    while (bytes.size() < count) {
        const std::size_t had = bytes.size();
        bytes.resize(had + static_cast<std::size_t>(std::min(Piece, count - had)));
        archive_->read(bytes.data() + had, static_cast<std::streamsize>(bytes.size() - had));
        if (static_cast<std::size_t>(archive_->gcount()) == bytes.size() - had) continue;
        if (archive_->bad() && cipher_ != nullptr) throw std::runtime_error(cipher_->GetProblem());
        Fail(place, "is cut off");
    }
    return bytes;
}

std::string PagePackage::ReadEntry(const std::string& entryName, std::uint64_t bytes, const std::string& place) {
    const tar::Entry entry = tar::ParseHeader(ReadBytes(tar::BlockBytes, place), place);
    if (entry != tar::Entry{entryName, bytes}) Fail(place, "is not what the index says");
    return ReadBytes(bytes, place);
}

const ScorePage& PagePackage::GetPage(std::uint32_t number) const {
    const auto page =
        std::lower_bound(pages_.begin(), pages_.end(), number,
                         [](const ScorePage& candidate, std::uint32_t n) { return candidate.number < n; });
    if (page == pages_.end() || page->number != number)
        throw std::out_of_range(fmt::format("the file \"{}\" has no page {}", name_, number));
    return *page;
}

std::string PagePackage::ReadPage(std::uint32_t number) {
    const ScorePage& page = GetPage(number);
    const std::string place = fmt::format("page {} of the file \"{}\"", number, name_);
    archive_->clear();
    archive_->seekg(static_cast<std::streamoff>(places_[static_cast<std::size_t>(&page - pages_.data())]));
    if (archive_->bad() && cipher_ != nullptr) throw std::runtime_error(cipher_->GetProblem());
    std::string bytes = ReadEntry(GetEntryName(page), page.bytes, place);
    if (FindPageType(bytes, place) != page.type) Fail(place, "is an image of another type than the index says");
    return bytes;
}

void PagePackage::CheckAll(const std::function<void(std::size_t)>& reportPage) {
    for (std::size_t i = 0; i < pages_.size(); ++i) {
        reportPage(i);
        static_cast<void>(ReadPage(pages_[i].number));
    }
    const std::string place = fmt::format("the end of the file \"{}\"", name_);
    archive_->clear();
    archive_->seekg(static_cast<std::streamoff>(places_.back()));
    if (ReadBytes(tar::EndBytes, place) != std::string(tar::EndBytes, '\0'))
        Fail(place, "holds something that is not in the index");
    if (archive_->get() != std::istream::traits_type::eof()) Fail(place, "has bytes after it");
    if (archive_->bad() && cipher_ != nullptr) throw std::runtime_error(cipher_->GetProblem());
}

}  // namespace stage
