#pragma once

#include <memory>
#include <string>
#include <vector>

#include "device/hxr_device.h"
#include "support/direct_calls.h"
#include "support/scripted_endpoint.h"
#include "support/status_datagram.h"
#include "support/temporary_folder.h"
#include "support/test_clock.h"
#include "support/words_text.h"

namespace hxr::test {

/// An attached unit without a network: it answers with the replies that its control endpoint is given, and what is
/// sent to it can be read word by word. Its flash is erased unless a test says otherwise.
class ScriptedUnit {
  public:
    /// @param page     content of the seven flash pages that an attach reads
    explicit ScriptedUnit(TestClock& clock, std::uint16_t controlPort = 5000,
                          const std::vector<std::byte>& page = {})
        : control(new ScriptedEndpoint), data(new ScriptedEndpoint) {  // NOLINT: owned by the link
        auto link = std::make_unique<DeviceInterface>(std::unique_ptr<UDPDevice>(control),
                                                      std::unique_ptr<UDPDevice>(data),
                                                      CalFolder(folder.path(), folder.path()), clock);
        constexpr int pagesOfAnAttach = 7;
        std::vector<std::byte> datagram(8216, std::byte{0xFF});
        std::copy(page.begin(), page.end(), datagram.begin() + 20);
        control->replies.assign(1 + pagesOfAnAttach, datagram);
        control->replies.front() = StatusDatagram().bytes();
        EXPECT_EQ(link->attach(link->claimControl(EndpointOwner::entry), "192.168.2.2", "192.168.2.10",
                               controlPort),
                  hxrNoError);
        control->sent.clear();
        device = std::make_unique<HXRDevice>(std::move(link), clock);
    }

    void answer(const StatusDatagram& status) { control->replies.push_back(status.bytes()); }

    /// Gives what was sent since the last call, each packet without the padding behind its last word.
    std::vector<Words> takeSent() {
        std::vector<Words> packets = std::move(control->sent);
        control->sent.clear();
        for (Words& packet : packets)
            while (!packet.empty() && packet.back() == 0) packet.pop_back();
        return packets;
    }

    TemporaryFolder folder;
    ScriptedEndpoint* control;
    ScriptedEndpoint* data;
    std::unique_ptr<HXRDevice> device;
};

}  // namespace hxr::test
