#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "tavo_midi/show_data.h"
#include "tavo_midi/song_builder.h"

namespace tavo_midi {

/// A song as it is packed into a `.showdata` file. Songs may share a Standard MIDI File: they then give the same name.
struct ShowSong {
    /// What the file does not say; number, title and bar labels are UTF-8.
    SongOptions options;
    /// The file's name inside the archive: not empty, not "show.json".
    std::string smfName;
    /// Its bytes.
    std::string smf;
};

/// The most bytes that an archive may have; a larger one is refused by reader and writer alike, here and below.
inline constexpr std::size_t MaxShowFileBytes = std::size_t{256} << 20U;
/// The most bytes of one song's Standard MIDI File.
inline constexpr std::size_t MaxShowMemberBytes = std::size_t{16} << 20U;
/// The most bytes of `show.json`.
inline constexpr std::size_t MaxShowJsonBytes = std::size_t{4} << 20U;
/// The most files in an archive, `show.json` among them.
inline constexpr std::size_t MaxShowMembers = 4096;
/// What its songs may come to together, a file that songs share counted for each.
inline constexpr std::size_t MaxShowSongBytes = std::size_t{256} << 20U;
/// The most beats of all songs together.
inline constexpr std::size_t MaxShowBeats = 1000000;

/// The bytes of a `.showdata` file; the same show gives the same bytes. Throws std::runtime_error with one sentence if
/// the show could not be read back. Any thread.
[[nodiscard]] std::string PackShowData(const std::string& title, const std::vector<ShowSong>& songs);

/// Reads those bytes; `name` stands in the sentences. Throws std::runtime_error as ShowData's constructor does. Memory
/// is bounded by the limits above. Any thread.
[[nodiscard]] ShowData UnpackShowData(std::string_view bytes, const std::string& name);

/// What happens to a file that has the name already. Keep: it stays and the new one is refused (kit::FileExistsError).
/// Replace: the new one takes its place and its permissions.
enum class ExistingShow { Keep, Replace };

/// Packs a show into a file. A crash at any moment leaves the old state or the new one. Throws what PackShowData
/// throws, kit::FileExistsError if the file is there and to be kept, std::runtime_error if it cannot be written. Any
/// thread; blocks until the file is on the disk.
void WriteShowData(const std::string& path, const std::string& title, const std::vector<ShowSong>& songs,
                   ExistingShow existing);

}  // namespace tavo_midi
