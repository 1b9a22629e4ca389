// Any bytes as a score. Behind a first byte 'H' they are the header of an enciphered file, whose checksum is put right,
// and what follows it; behind 'I' the index, put into a sound archive; otherwise the archive that the cipher holds.

#include <sodium.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>

#include "stage/pages/page_entries.h"
#include "stage/pages/page_package.h"
#include "stage/pages/page_tar.h"
#include "tavo_security/cipher_stream.h"

namespace {

/// Deriving a key for longer would leave no time for anything else.
constexpr std::uint32_t MostKeyMemoryKib = 64;
constexpr std::size_t ChecksumAt = 60;

void Require(bool holds) {
    if (!holds) std::abort();
}

void ReadHeader(std::string bytes) {
    if (bytes.size() >= tavo_sec::CipherHeaderBytes) {
        Require(sodium_init() >= 0);
        crypto_generichash(reinterpret_cast<unsigned char*>(bytes.data()) + ChecksumAt,
                           tavo_sec::CipherHeaderBytes - ChecksumAt,
                           reinterpret_cast<const unsigned char*>(bytes.data()), ChecksumAt, nullptr, 0);
    }
    const tavo_sec::CipherHeader header = tavo_sec::ParseCipherHeader(bytes, "fuzz.score");
    Require(header.options.memoryKib <= tavo_sec::MaxKeyMemoryKib && header.options.passes <= tavo_sec::MaxKeyPasses);
    Require(tavo_sec::MakeCipherHeader(header, "fuzz.score") == bytes.substr(0, tavo_sec::CipherHeaderBytes));
    if (header.options.memoryKib > MostKeyMemoryKib) return;
    tavo_sec::CipherStream stream(std::make_unique<std::istringstream>(bytes), "fuzz.score", "fuzz");
    std::string text(1000, '\0');
    while (stream.read(text.data(), static_cast<std::streamsize>(text.size()))) {
    }
    Require(stream.bad() != stream.GetProblem().empty());
}

void ReadArchive(const std::string& bytes) {
    stage::PagePackage score(std::make_unique<std::istringstream>(bytes), "fuzz.score");
    Require(score.GetPages() ==
            stage::ParsePageIndex(stage::MakePageIndex(score.GetPages()), "the index that was written"));
    for (const stage::ScorePage& page : score.GetPages())
        Require(score.ReadPage(page.number).size() == page.bytes);
    score.CheckAll([](std::size_t) {});
}

std::string AsArchive(const std::string& index) {
    std::string archive = stage::tar::MakeHeader({stage::PageIndexName, index.size()}) + index;
    archive.resize(stage::tar::BlockBytes + static_cast<std::size_t>(stage::tar::PadToBlock(index.size())));
    return archive + std::string(stage::tar::EndBytes, '\0');
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    try {
        if (bytes.starts_with('H')) {
            ReadHeader(bytes.substr(1));
        } else if (bytes.starts_with('I')) {
            ReadArchive(AsArchive(bytes.substr(1)));
        } else {
            ReadArchive(bytes);
        }
    } catch (const std::runtime_error& error) {
        Require(std::string_view(error.what()).find('\n') == std::string_view::npos);
    }
    return 0;
}
