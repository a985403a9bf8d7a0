#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "sim/scene.h"

namespace hxr::sim {

/// The form of a scene's file, for a help text.
std::string sceneFileForm();

/// Reads a scene from a file that tells one source a line.
///
/// @param now  the sample, counted from 1970, with which recordings begin that play once and don't say when
/// @throws std::runtime_error that names the file, the line and what is wrong
Scene readSceneFile(const std::filesystem::path& path, std::int64_t now);

}  // namespace hxr::sim
