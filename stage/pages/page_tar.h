#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// The part of the POSIX ustar format (IEEE Std 1003.1, pax) that a score needs: regular files with short names.
namespace stage::tar {

inline constexpr std::size_t BlockBytes = 512;
/// Two blocks of zeros end an archive.
inline constexpr std::size_t EndBytes = 2 * BlockBytes;

struct Entry {
    /// 1 to 100 bytes.
    std::string name;
    /// Below 8 GiB.
    std::uint64_t bytes = 0;

    bool operator==(const Entry&) const = default;
};

/// The bytes of a file's content with the zeros that fill its last block.
[[nodiscard]] constexpr std::uint64_t PadToBlock(std::uint64_t bytes) {
    return (bytes + BlockBytes - 1) / BlockBytes * BlockBytes;
}

/// The header block of a regular file.
[[nodiscard]] std::string MakeHeader(const Entry& entry);

/// Reads a header block. Throws std::runtime_error with one sentence that begins with `place`: a wrong checksum,
/// another format, unreadable numbers, an entry that is not a regular file, or a name in a way that a score does not
/// use.
[[nodiscard]] Entry ParseHeader(std::string_view block, const std::string& place);

}  // namespace stage::tar
