#include "sim/unit_server.h"

#include <poll.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <utility>

#include "sim/line_pacer.h"
#include "sim/named_thread.h"

namespace hxr::sim {
namespace {

timespec until(std::chrono::steady_clock::time_point time) {
    const auto left =
        std::max(time - std::chrono::steady_clock::now(), std::chrono::steady_clock::duration{});
    const auto seconds = std::chrono::floor<std::chrono::seconds>(left);
    return {seconds.count(), std::chrono::nanoseconds(left - seconds).count()};
}

}  // namespace

UnitServer::UnitServer(Endpoint control, Endpoint data, std::string threadName, ServerCalls& calls)
    : control_(control), data_(data), threadName_(std::move(threadName)), calls_(calls) {}

UnitServer::~UnitServer() { stop(); }

void UnitServer::start() {
    const std::lock_guard lock(startAndStop_);
    if (session_) return;
    session_ = std::make_unique<Session>(control_, data_);
    try {
        thread_ = startThread(threadName_, [this, session = session_.get()] { serve(*session); });
    } catch (...) {
        session_.reset();
        throw;
    }
}

void UnitServer::stop() {
    const std::lock_guard lock(startAndStop_);
    if (!session_) return;
    session_->wake.raise();
    thread_.join();
    session_.reset();
}

bool UnitServer::running() const {
    const std::lock_guard lock(startAndStop_);
    return session_ != nullptr;
}

// The session outlives the thread, and start hands it over before the thread begins.
void UnitServer::sleep(std::chrono::nanoseconds time) const { session_->wake.sleep(time); }

bool UnitServer::stopping() const { return session_->wake.sleep(std::chrono::nanoseconds{0}); }

void UnitServer::serve(Session& session) {
    sleepPrecisely();
    while (true) {
        std::array<pollfd, 3> waiting{{{session.wake.descriptor(), POLLIN, 0},
                                       {session.control.descriptor(), POLLIN, 0},
                                       {session.data.descriptor(), POLLIN, 0}}};
        const auto next = calls_.nextTime();
        const timespec timeout = until(next.value_or(std::chrono::steady_clock::time_point{}));
        ppoll(waiting.data(), waiting.size(), next ? &timeout : nullptr, nullptr);
        if (waiting[0].revents != 0) break;
        if (waiting[1].revents != 0) takeSome(session.control, false);
        if (waiting[2].revents != 0) takeSome(session.data, true);
        calls_.onTime();
    }
    calls_.onStop();
}

/// Neither socket may keep the other waiting.
void UnitServer::takeSome(UdpSocket& socket, bool onDataSocket) {
    constexpr int most = 16;
    std::array<std::uint8_t, 65536> buffer;
    for (int i = 0; i < most; ++i) {
        const auto received = socket.receive(buffer);
        if (!received) return;
        calls_.onDatagram(std::span(buffer).first(received->bytes), received->sender, onDataSocket, socket);
        if (stopping()) return;
    }
}

}  // namespace hxr::sim
