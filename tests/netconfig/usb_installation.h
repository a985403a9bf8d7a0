#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <span>
#include <string>
#include <vector>

#include "hxr_api.h"
#include "netconfig/config_net_table.h"
#include "support/simulated_usb_bus.h"
#include "support/temporary_folder.h"
#include "support/test_clock.h"

namespace hxr::test {

using Bytes = std::vector<std::uint8_t>;

/// The driver on a machine with simulated units on its USB; what a test leaves open is closed at its end, and no unit may
/// have met what it doesn't know.
class UsbInstallation : public testing::Test {
  protected:
    UsbInstallation() { configNetTable().useEnvironment(bus, clock); }
    ~UsbInstallation() override {
        for (int i = 0; i < ConfigNetTable::size; ++i) hxrConfigNetCloseDevice(i);
        for (const auto& port : bus.ports) {
            EXPECT_EQ(port->open, 0);
            EXPECT_EQ(port->claimed, 0);
            EXPECT_EQ(port->unit.brokenRules(), 0U);
        }
    }

    /// Plugs a unit in and opens it.
    sim::Fx3Unit& openUnit(sim::Fx3Options options = {}) {
        const std::int32_t serial =
            std::stoi(std::string(options.serialNumber.begin(), options.serialNumber.end()));
        sim::Fx3Unit& unit = bus.plugIn(std::move(options));
        EXPECT_EQ(hxrConfigNetOpenDevice(&handle, serial), hxrNoError);
        return unit;
    }

    std::filesystem::path write(const Bytes& bytes) {
        const auto file = folder.path() / "file";
        std::ofstream(file, std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()), std::ssize(bytes));
        return file;
    }

    TestClock clock;
    TemporaryFolder folder;
    SimulatedUsbBus bus;
    std::int32_t handle = -1;
};

/// A boot image of a firmware with the placeholder for a serial number.
inline Bytes firmware(std::uint16_t version = 0x0203, std::u16string_view serial = u"11111111") {
    const std::array<std::size_t, 3> records{64, 5000, 4};
    return sim::makeFirmwareImage(serial, version, records);
}

}  // namespace hxr::test
