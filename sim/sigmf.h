#pragma once

#include <filesystem>

#include "sim/recording_file.h"

namespace hxr::sim {

/// Reads the description of a SigMF recording, a .sigmf-meta file beside its .sigmf-data: datatype cu8, ci8,
/// ci16_le or cf32_le, sample rate, and the frequency of the first capture, which then counts for all of it.
///
/// @throws std::runtime_error that names the file and what is wrong
RecordingFacts readSigMf(const std::filesystem::path& metaPath);

}  // namespace hxr::sim
