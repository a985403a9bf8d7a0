// Processor time that it takes to bring a datagram of 8216 bytes from the socket to a collected buffer,
// beside a bare recvmmsg loop. The sender is a process of its own, and the two receivers take turns in one
// run.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <functional>
#include <vector>

#include "link/win_udp_interface.h"
#include "platform/aligned_memory.h"
#include "sim/datagram_source.h"

namespace {

using namespace hxr;

constexpr const char* hostAddress = "127.0.0.1";
constexpr const char* unitAddress = "127.0.0.2";
constexpr std::uint16_t port = 4991;
constexpr std::size_t datagramBytes = 8216;
constexpr int slotsInUse = 8;
constexpr int datagrams = slotsInUse * receivesPerSlot * 60;
constexpr int rounds = 5;

/// How the datagrams are sent.
struct Line {
    const char* name;
    double datagramsPerSecond;
    bool segmentationOffload;
};

struct Outcome {
    double microsecondsPerDatagram = 0;
    double rate = 0;
    int lost = 0;
};

double processorSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

/// A process that sends all datagrams as soon as it is told to through the pipe.
class Sender {
  public:
    explicit Sender(const Line& line) {
        if (::pipe(start_) != 0) throw std::runtime_error("no pipe");
        process_ = ::fork();
        if (process_ != 0) return;
        sim::DatagramSource source({.local = sim::Endpoint::of(unitAddress, port),
                                    .peer = sim::Endpoint::of(hostAddress, port),
                                    .datagramBytes = datagramBytes,
                                    .datagramsPerSecond = line.datagramsPerSecond,
                                    .segmentationOffload = line.segmentationOffload});
        char go;
        if (::read(start_[0], &go, 1) == 1) source.send(datagrams);
        ::_exit(0);
    }
    ~Sender() {
        ::waitpid(process_, nullptr, 0);
        ::close(start_[0]);
        ::close(start_[1]);
    }
    Sender(const Sender&) = delete;
    Sender& operator=(const Sender&) = delete;

    void start() {
        if (::write(start_[1], "g", 1) != 1) throw std::runtime_error("the sender is gone");
    }

  private:
    int start_[2];
    pid_t process_;
};

/// Measures one receiver: `receiveAll` starts the sender and returns how many datagrams came.
Outcome measure(const Line& line, const std::function<int(Sender&)>& receiveAll) {
    Sender sender(line);
    const double processorBefore = processorSeconds();
    const auto before = std::chrono::steady_clock::now();
    const int received = receiveAll(sender);
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - before;
    const double processor = processorSeconds() - processorBefore;
    return {1e6 * processor / received, received / time.count(), datagrams - received};
}

/// The endpoint as a stream uses it: eight requests in flight, each collected whole and posted anew.
int receiveThroughEndpoint(Sender& sender) {
    WinUDPInterface endpoint;
    if (!endpoint.open(hostAddress, unitAddress, port, port)) return 0;
    constexpr unsigned timeoutMs = 500;
    for (int slot = 0; slot < slotsInUse; ++slot) endpoint.postReceives(slot, receivesPerSlot, timeoutMs);
    sender.start();
    int received = 0;
    for (int slot = 0; received < datagrams; slot = (slot + 1) % slotsInUse) {
        if (endpoint.collectReceives(slot)->timedOut) break;
        received += receivesPerSlot;
        if (received + (slotsInUse - 1) * receivesPerSlot < datagrams) {
            endpoint.postReceives(slot, receivesPerSlot, timeoutMs);
        }
    }
    return received;
}

sockaddr_in socketAddress(const char* text) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    ::inet_pton(AF_INET, text, &address.sin_addr);
    return address;
}

/// The least that a program can do: take whatever has come into a ring of as many buffers.
int receiveBare(Sender& sender) {
    const int descriptor = ::socket(AF_INET, SOCK_DGRAM, 0);
    const int bufferBytes = 32 << 20;
    const sockaddr_in local = socketAddress(hostAddress), remote = socketAddress(unitAddress);
    const timeval patience{0, 500'000};
    if (::setsockopt(descriptor, SOL_SOCKET, SO_RCVBUFFORCE, &bufferBytes, sizeof bufferBytes) != 0) {
        ::setsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &bufferBytes, sizeof bufferBytes);
    }
    ::setsockopt(descriptor, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    ::bind(descriptor, reinterpret_cast<const sockaddr*>(&local), sizeof local);
    ::connect(descriptor, reinterpret_cast<const sockaddr*>(&remote), sizeof remote);

    constexpr std::size_t batch = 32, stride = 9024, ring = slotsInUse * receivesPerSlot;
    const auto buffers = platform::makeAlignedArray<std::byte>(ring * stride);
    std::memset(buffers.get(), 0, ring * stride);
    std::vector<iovec> vectors(batch);
    std::vector<mmsghdr> messages(batch);
    sender.start();
    std::size_t received = 0;
    while (received < datagrams) {
        for (std::size_t i = 0; i < batch; ++i) {
            vectors[i] = {buffers.get() + (received + i) % ring * stride, receiveRoom};
            messages[i] = {};
            messages[i].msg_hdr.msg_iov = &vectors[i];
            messages[i].msg_hdr.msg_iovlen = 1;
        }
        const int got = ::recvmmsg(descriptor, messages.data(), batch, MSG_WAITFORONE, nullptr);
        if (got <= 0) break;
        received += static_cast<std::size_t>(got);
    }
    ::close(descriptor);
    return static_cast<int>(received);
}

/// The round with the least processor time, with the losses of all rounds.
Outcome best(const std::vector<Outcome>& outcomes) {
    Outcome result =
        *std::min_element(outcomes.begin(), outcomes.end(), [](const Outcome& a, const Outcome& b) {
            return a.microsecondsPerDatagram < b.microsecondsPerDatagram;
        });
    result.lost = 0;
    for (const Outcome& outcome : outcomes) result.lost += outcome.lost;
    return result;
}

}  // namespace

int main() {
    std::printf("%-34s %12s %12s %7s %12s %10s\n", "datagrams of 8216 bytes", "ours us", "bare us", "ratio",
                "ours /s", "ours lost");
    for (const Line& line :
         {Line{"200 MS/s, 97,656/s", 97'656, false}, Line{"10 Gbit/s, 152,000/s", 152'000, false},
          Line{"10 Gbit/s, segmented", 152'000, true}}) {
        std::vector<Outcome> ours, bare;
        for (int round = 0; round < rounds; ++round) {
            bare.push_back(measure(line, receiveBare));
            ours.push_back(measure(line, receiveThroughEndpoint));
        }
        const Outcome endpoint = best(ours), loop = best(bare);
        std::printf("%-34s %12.2f %12.2f %7.2f %12.0f %10d\n", line.name, endpoint.microsecondsPerDatagram,
                    loop.microsecondsPerDatagram,
                    endpoint.microsecondsPerDatagram / loop.microsecondsPerDatagram, endpoint.rate,
                    endpoint.lost);
    }
    return 0;
}
