/// Whole files of binary data, and the machine-wide folder for application data.
#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <span>
#include <vector>

namespace hxr::platform {

/// The folder below which applications keep data that all users of the machine share.
std::filesystem::path machineDataFolder();

/// Makes `folder` with all that lies above it, and tells whether files can be made and read in it.
bool makeUsableFolder(const std::filesystem::path& folder);

/// Fills `content` from the head of a plain file.
/// @return false if the file doesn't open, is no plain file or is shorter than `content`; a file known to be
///         short leaves `content` as it was, a read that breaks off may leave a part of it filled
bool readFile(const std::filesystem::path& file, std::span<std::byte> content) noexcept;

/// Reads a whole plain file.
/// @return nothing if it doesn't open, is no plain file, breaks off or is longer than `most` bytes
/// @throws std::bad_alloc
std::optional<std::vector<std::byte>> readWholeFile(const std::filesystem::path& file, std::size_t most);

/// Replaces a file whole or not at all: the content is written beside it, flushed to the disk, and renamed,
/// so that no crash leaves a part that passes for the whole.
/// @return false if any step fails; the file is then as it was, and nothing is left beside it
bool replaceFile(const std::filesystem::path& file, std::span<const std::byte> content) noexcept;

}  // namespace hxr::platform
