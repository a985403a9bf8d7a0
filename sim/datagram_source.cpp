#include "sim/datagram_source.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <optional>
#include <span>
#include <system_error>

#include "sim/byte_order.h"
#include "sim/named_thread.h"
#include "sim/socket_address.h"

namespace hxr::sim {
namespace {

constexpr std::size_t largestBurst = 64;
/// Bursts that may follow each other without a pause to make up for a sleep that ended late.
constexpr std::size_t burstsInArrears = 4;

std::size_t burstOf(const DatagramSourceOptions& options) {
    std::size_t burst = std::clamp<std::size_t>(options.burst, 1, largestBurst);
    if (options.segmentationOffload) {
        burst = std::clamp<std::size_t>(
            UdpSocket::largestPayload / std::max<std::size_t>(options.datagramBytes, 1), 1, burst);
    }
    return burst;
}

std::optional<double> paceOf(const DatagramSourceOptions& options) {
    if (options.datagramsPerSecond <= 0.0) return std::nullopt;
    return options.datagramsPerSecond * static_cast<double>(options.datagramBytes);
}

[[noreturn]] void fail(const char* what) { throw std::system_error(errno, std::generic_category(), what); }

}  // namespace

DatagramSource::DatagramSource(const DatagramSourceOptions& options)
    : options_(options),
      socket_(options.local),
      pacer_(paceOf(options), burstsInArrears * burstOf(options) * options.datagramBytes),
      block_(burstOf(options) * options.datagramBytes),
      stopping_(std::make_unique<WakeEvent>()) {}

DatagramSource::~DatagramSource() { stop(); }

SendReport DatagramSource::send(std::size_t count) {
    const std::size_t burst = block_.size() / std::max<std::size_t>(options_.datagramBytes, 1);
    const auto begin = std::chrono::steady_clock::now();
    SendReport report;
    pacer_.startFresh();
    while (report.datagrams < count && !stopping_->sleep(std::chrono::nanoseconds{0})) {
        const std::size_t next = std::min(std::max<std::size_t>(burst, 1), count - report.datagrams);
        pacer_.wait(next * options_.datagramBytes);
        report.datagrams += sendBurst(next);
    }
    report.time = std::chrono::steady_clock::now() - begin;
    return report;
}

std::size_t DatagramSource::sendBurst(std::size_t count) {
    const std::size_t numberBytes = std::min(sizeof number_, options_.datagramBytes);
    for (std::size_t i = 0; i < count; ++i) {
        putLittle(block_, i * options_.datagramBytes, numberBytes, number_ + i);
    }
    const std::size_t sent =
        options_.segmentationOffload && count > 1 ? sendSegmented(count) : sendOneByOne(count);
    number_ += sent;
    return sent;
}

std::size_t DatagramSource::sendSegmented(std::size_t count) {
    const auto block = std::span(block_).first(count * options_.datagramBytes);
    if (!socket_.sendSegmented(block, options_.datagramBytes, options_.peer))
        fail("sending segmented datagrams");
    return count;
}

std::size_t DatagramSource::sendOneByOne(std::size_t count) {
    sockaddr_in peer = socketAddress(options_.peer);
    std::array<iovec, largestBurst> parts{};
    std::array<mmsghdr, largestBurst> messages{};
    for (std::size_t i = 0; i < count; ++i) {
        parts[i] = {block_.data() + i * options_.datagramBytes, options_.datagramBytes};
        messages[i].msg_hdr.msg_name = &peer;
        messages[i].msg_hdr.msg_namelen = sizeof peer;
        messages[i].msg_hdr.msg_iov = &parts[i];
        messages[i].msg_hdr.msg_iovlen = 1;
    }
    const int sent = sendmmsg(socket_.descriptor(), messages.data(), static_cast<unsigned>(count), 0);
    if (sent < 0) fail("sending datagrams");
    return static_cast<std::size_t>(sent);
}

void DatagramSource::answer(std::size_t count) {
    stop();
    stopping_ = std::make_unique<WakeEvent>();
    answered_ = {};
    thread_ = startThread("hxr-sim source", [this, count] {
        sleepPrecisely();
        std::array<pollfd, 2> waiting{
            {{stopping_->descriptor(), POLLIN, 0}, {socket_.descriptor(), POLLIN, 0}}};
        poll(waiting.data(), waiting.size(), -1);
        if (waiting[0].revents != 0) return;
        std::array<std::uint8_t, 16> trigger;
        if (!socket_.receive(trigger)) return;
        try {
            answered_ = send(count);
        } catch (const std::system_error&) {
            // The report then shows that less has gone out.
        }
    });
}

SendReport DatagramSource::waitForAnswer() {
    if (thread_.joinable()) thread_.join();
    return answered_;
}

void DatagramSource::stop() {
    stopping_->raise();
    if (thread_.joinable()) thread_.join();
}

}  // namespace hxr::sim
