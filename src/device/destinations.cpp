#include "device/destinations.h"

#include "link/builders.h"

namespace hxr {

HXRStatus pushLocalDestinations(HXRDevice& device, const ControlClaim& control) {
    DeviceInterface& link = *device.link;
    StatusRecord record;  // tells the hardware address that the unit answers to: this host's
    if (!link.readStatus(control, &record)) return link.lastStatus();

    const std::string host = link.control()->localAddress();
    const std::string unit = link.control()->remoteAddress();
    CommandList list;
    list.beginPacket();
    for (int slot = 0; slot < words::channelsPerUnit; ++slot)
        appendStreamDestination(list, slot, host.c_str(), unit.c_str(), device.streamPort,
                                record.peerAddress());
    return link.sendList(control, list) ? hxrNoError : link.lastStatus();
}

HXRStatus pushVrtDestinations(HXRDevice& device, const ControlClaim& control) {
    DeviceInterface& link = *device.link;
    const std::string unit = link.control()->remoteAddress();
    CommandList list;
    list.beginPacket();
    for (int input = 0; input < words::channelsPerUnit; ++input) {
        const auto i = static_cast<std::size_t>(input);
        appendStreamDestination(list, input, device.vrtDestAddress[i].c_str(), unit.c_str(),
                                device.vrtDestPort[i], device.vrtDestMAC[i]);
    }
    return link.sendList(control, list) ? hxrNoError : link.lastStatus();
}

}  // namespace hxr
