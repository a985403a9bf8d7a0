#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <future>

#include "link/win_udp_interface.h"
#include "sim/datagram_source.h"
#include "support/loopback.h"

namespace hxr {
namespace {

constexpr int requests = 8;
constexpr unsigned timeoutMs = 500;
constexpr long neededLimit = 4 << 20;

/// Takes every privilege from the calling thread and those that it makes.
bool dropPrivileges() {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct none[2]{};
    return ::syscall(SYS_capset, &header, none) == 0;
}

long receiveBufferLimit() {
    long limit = 0;
    std::ifstream("/proc/sys/net/core/rmem_max") >> limit;
    return limit;
}

/// The number that a datagram of the source begins with.
std::uint64_t numberOf(const std::byte* datagram) {
    std::uint64_t number;
    std::memcpy(&number, datagram, sizeof number);
    return number;
}

/// Posts eight requests' worth on an endpoint that has no privileges, and collects nothing until `answered`.
/// @return how many datagrams came, in order
int collectAfter(std::promise<void>& posted, std::future<void> answered) {
    EXPECT_TRUE(dropPrivileges());
    WinUDPInterface endpoint;
    EXPECT_TRUE(endpoint.open(test::hostAddress().c_str(), test::unitAddress().c_str(), 4991, 4991));
    for (int slot = 0; slot < requests; ++slot) endpoint.postReceives(slot, receivesPerSlot, timeoutMs);
    posted.set_value();
    answered.wait();

    std::uint64_t expected = 0;
    for (int slot = 0; slot < requests; ++slot) {
        const ReceiveResult& result = *endpoint.collectReceives(slot);
        if (result.timedOut) break;
        for (const std::byte* datagram : result.buffers) {
            if (numberOf(datagram) == expected) ++expected;
        }
    }
    return static_cast<int>(expected);
}

/// @return how many of the requests' datagrams were kept
int answerAtLinePace() {
    sim::DatagramSource source({.local = sim::Endpoint::of(test::unitAddress(), 4991),
                                .peer = sim::Endpoint::of(test::hostAddress(), 4991)});
    std::promise<void> posted;
    std::promise<void> answered;
    auto collected =
        std::async(std::launch::async, [&] { return collectAfter(posted, answered.get_future()); });
    posted.get_future().wait();
    source.send(requests * receivesPerSlot);
    answered.set_value();
    return collected.get();
}

TEST(LinePace, EightRequestsAreKeptWhileTheCollectorSleeps) {
    if (receiveBufferLimit() < neededLimit) GTEST_SKIP() << "net.core.rmem_max is below 4 MiB";
    // Without privileges another program may hold the mover back for longer than the system's buffer lasts, 3
    // ms. A quarter of the datagrams is all that this buffer could ever keep by itself, so one whole run
    // proves the mover.
    int kept = 0;
    for (int attempt = 0; attempt < 5 && kept < requests * receivesPerSlot; ++attempt)
        kept = answerAtLinePace();
    EXPECT_EQ(kept, requests * receivesPerSlot);
}

}  // namespace
}  // namespace hxr
