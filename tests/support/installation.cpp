#include "support/installation.h"

#include <algorithm>

#include "support/peer.h"

namespace hxr::test {
namespace {

constexpr std::uint32_t firstSerialNumber = 12345678;

std::uint32_t serialNumber(int position) { return firstSerialNumber + static_cast<std::uint32_t>(position); }

}  // namespace

Installation::Installation() {
    api::Environment environment;
    environment.clock = &clock;
    environment.calFolder = CalFolder(machineFolder, fallbackFolder);
    api::deviceTable().useEnvironment(environment);
}

Installation::~Installation() {
    for (int open = 0; open < api::DeviceTable::size; ++open) hxrCloseDevice(open);
    api::deviceTable().useEnvironment({});
    for (const auto& unit : units) {
        EXPECT_EQ(unit->breaches(), std::vector<std::string>{}) << unit->address();
    }
}

sim::SimulatedUnit& Installation::startUnit(sim::UnitOptions options) {
    const int position = static_cast<int>(units.size());
    options.address = unitAddress(position);
    options.syncLine = syncLine;
    options.identity.serialNumber = serialNumber(position);
    if (options.image.empty()) options.image = imageFor(position);
    units.push_back(std::make_unique<sim::SimulatedUnit>(std::move(options)));
    units.back()->start();
    return *units.back();
}

HXRStatus Installation::connect(int position) {
    return hxrConnectDevice(&handle, hostAddress().c_str(), unitAddress(position).c_str(), controlPort);
}

HXRStatus Installation::pair(int position) {
    return hxrPairDevice(handle, hostAddress().c_str(), unitAddress(position).c_str(), controlPort);
}

std::size_t Installation::datagramsAt(sim::SimulatedUnit& unit) {
    // The unit takes datagrams in order, so what left before this request has been counted when it is answered.
    Peer witness(loopbackAddress(15), controlPort);
    witness.sendWords(unit.address(), controlPort, {0x11000008});
    EXPECT_TRUE(witness.receive());
    return unit.recording().counts().packets - 1;
}

std::filesystem::path Installation::cacheFile(int position) const {
    return machineFolder / (std::to_string(serialNumber(position)) + ".hxr_adjust");
}

std::vector<std::uint8_t> imageFor(int position, const sim::SyntheticImageOptions& options) {
    sim::SyntheticImageOptions own = options;
    own.serialNumber = serialNumber(position);
    return sim::makeSyntheticImage(own);
}

}  // namespace hxr::test
