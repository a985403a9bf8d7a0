#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>
#include <string>
#include <string_view>

namespace hxr {

/// Where the files of a unit lie on this host: the calibration cache and, beside it, the holdover record.
///
/// The machine-wide folder is shared by all programs and users; where it can't be made or used, a folder in
/// the working directory takes its place. Which of the two serves is found out anew at each use.
class CalFolder {
  public:
    /// The machine-wide folder, else "cal_files/" in the working directory.
    CalFolder();

    CalFolder(std::filesystem::path machineWide, std::filesystem::path fallback);

    /// The folder that serves, with a separator at its end. It exists, unless neither can be made.
    std::string path() const;

    /// The path of a unit's file in it: `prefix`, the serial number in eight digits, `suffix`.
    std::string fileOf(std::string_view prefix, std::uint32_t serialNumber, std::string_view suffix) const;

  private:
    std::filesystem::path machineWide_;
    std::filesystem::path fallback_;
};

/// The copies of the units' flash images on this host, one file a unit.
class FlashCache {
  public:
    explicit FlashCache(CalFolder folder) : folder_(std::move(folder)) {}

    /// @param image  filled with the unit's file; left as it was if there is none of at least this size,
    ///               partly filled if reading it breaks off
    bool read(std::uint32_t serialNumber, std::span<std::byte> image) const;

    /// Replaces the unit's file, whole or not at all. A file that can't be written is no error: the next
    /// connect reads the flash again.
    void write(std::uint32_t serialNumber, std::span<const std::byte> image) const;

    std::string fileName(std::uint32_t serialNumber) const;
    const CalFolder& folder() const { return folder_; }

  private:
    CalFolder folder_;
};

}  // namespace hxr
