#pragma once

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "kit/file.h"
#include "tavo_security/cipher_stream.h"

/// The pages of a show's score: a `.score` file is a tar archive (page_tar.h) inside an enciphered stream, its first
/// entry an index from page numbers to images. docs/score-format.md describes the bytes.
namespace stage {

inline constexpr std::uint64_t MaxPageBytes = std::uint64_t{32} << 20U;
inline constexpr std::size_t MaxPages = 10000;
inline constexpr std::uint64_t MaxPageIndexBytes = std::uint64_t{1} << 20U;

enum class PageType { Png, Svg };

/// "image/png", "image/svg+xml".
[[nodiscard]] std::string_view GetMediaType(PageType type);

/// Tells a PNG image (ISO/IEC 15948) or an SVG 1.1 text by how it begins. Throws std::runtime_error with one sentence
/// that begins with `place` if it is neither.
[[nodiscard]] PageType FindPageType(std::string_view bytes, const std::string& place);

struct ScorePage {
    std::uint32_t number = 0;
    PageType type = PageType::Png;
    /// Up to MaxPageBytes.
    std::uint64_t bytes = 0;

    bool operator==(const ScorePage&) const = default;
};

/// The text of the index; `pages` ascend by number.
[[nodiscard]] std::string MakePageIndex(const std::vector<ScorePage>& pages);
/// Reads it; throws std::runtime_error with one sentence that begins with `place`.
[[nodiscard]] std::vector<ScorePage> ParsePageIndex(const std::string& text, const std::string& place);

/// Opens the enciphered stream of a `.score` file. Throws as CipherStream's constructor does.
[[nodiscard]] std::unique_ptr<tavo_sec::CipherStream> OpenPages(const std::string& path, std::string_view passphrase);

/// Reads a score page by page. Memory is the index and one page. Not thread-safe; reading blocks on the disk. Every
/// problem throws std::runtime_error with one sentence that names the file and the place in it.
class PagePackage {
public:
    /// Opens a `.score` file and reads its index.
    PagePackage(const std::string& path, std::string_view passphrase);
    /// The archive itself, already deciphered, from any stream that can seek; `name` stands for the file.
    PagePackage(std::unique_ptr<std::istream> archive, std::string name);
    ~PagePackage();

    /// Ascending by number, each number once.
    [[nodiscard]] const std::vector<ScorePage>& GetPages() const { return pages_; }
    /// The page of this number. Throws std::out_of_range with one sentence where the score has none.
    [[nodiscard]] const ScorePage& GetPage(std::uint32_t number) const;
    /// The bytes of its image. Goes to the page without reading those before it.
    [[nodiscard]] std::string ReadPage(std::uint32_t number);
    /// Reads everything once, one page at a time, and throws at the first thing that is damaged or missing.
    /// `reportPage` is called before each page with its index in GetPages.
    void CheckAll(const std::function<void(std::size_t)>& reportPage);

private:
    void ReadIndex();
    /// The archive from its current place on; `place` begins the sentence where that fails.
    [[nodiscard]] std::string ReadBytes(std::uint64_t count, const std::string& place);
    [[nodiscard]] std::string ReadEntry(const std::string& entryName, std::uint64_t bytes, const std::string& place);

    std::unique_ptr<std::istream> archive_;
    /// The same object where it is an enciphered stream: it knows what is wrong.
    const tavo_sec::CipherStream* cipher_ = nullptr;
    const std::string name_;
    std::vector<ScorePage> pages_;
    /// Where the entries of the pages begin, and after them the end of the archive.
    std::vector<std::uint64_t> places_;
};

}  // namespace stage
