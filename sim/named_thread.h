#pragma once

#include <functional>
#include <string>
#include <thread>

namespace hxr::sim {

/// Starts a thread that takes no signals, so that they reach the program's own.
///
/// @param name  shown by debuggers and process lists, cut to 15 characters
std::thread startThread(const std::string& name, std::function<void()> work);

}  // namespace hxr::sim
