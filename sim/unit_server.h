#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <thread>

#include "sim/endpoint.h"
#include "sim/udp_socket.h"
#include "sim/wake_event.h"

namespace hxr::sim {

/// What a server calls on its thread.
class ServerCalls {
  public:
    virtual ~ServerCalls() = default;
    virtual void onDatagram(std::span<const std::uint8_t> datagram, const Endpoint& sender, bool onDataSocket,
                            UdpSocket& socket) = 0;
    /// When `onTime` is wanted next; nothing: not at all.
    virtual std::optional<std::chrono::steady_clock::time_point> nextTime() = 0;
    virtual void onTime() = 0;
    /// The thread is about to end, its sockets are still open.
    virtual void onStop() = 0;
};

/// The two sockets of a unit and the thread that waits on them.
class UnitServer {
  public:
    UnitServer(Endpoint control, Endpoint data, std::string threadName, ServerCalls& calls);
    ~UnitServer();

    /// @throws std::system_error, naming the endpoint, if a socket can't be bound
    void start();
    void stop();
    bool running() const;

    /// For the serving thread: sleeps, or less if the server is to stop.
    void sleep(std::chrono::nanoseconds time) const;
    /// For the serving thread: the socket of the data port.
    UdpSocket& dataSocket() const { return session_->data; }
    /// For the serving thread: whether the server is to stop.
    bool stopping() const;

  private:
    struct Session {
        Session(const Endpoint& controlAt, const Endpoint& dataAt) : control(controlAt), data(dataAt) {}

        UdpSocket control;
        UdpSocket data;
        WakeEvent wake;
    };

    void serve(Session& session);
    void takeSome(UdpSocket& socket, bool onDataSocket);

    const Endpoint control_;
    const Endpoint data_;
    const std::string threadName_;
    ServerCalls& calls_;
    mutable std::mutex startAndStop_;
    std::unique_ptr<Session> session_;
    std::thread thread_;
};

}  // namespace hxr::sim
