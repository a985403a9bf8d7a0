/// A USB bus with simulated units on it, as the driver sees it.
#pragma once

#include <algorithm>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

#include "platform/usb_bus.h"
#include "sim/fx3_unit.h"

namespace hxr::test {

/// A device in a port of the bus.
struct UsbPort {
    sim::Fx3Unit unit;
    platform::UsbIdentity identity{};  ///< in place of the unit's own, unless zero
    bool refusesOpen = false, refusesClose = false;
    bool isTaken = false;  ///< by another process
    int open = 0;          ///< connections at present
    int claimed = 0;
};

inline std::vector<std::uint8_t> bytesOf(std::span<const std::byte> data) {
    const auto* const first = reinterpret_cast<const std::uint8_t*>(data.data());
    return {first, first + data.size()};
}

/// A transfer comes back at once, or never, if nobody cancels it.
class SimulatedUsbTransfer final : public platform::UsbTransfer {
  public:
    SimulatedUsbTransfer(sim::UsbAnswer answer, std::size_t moved) : answer_(answer), moved_(moved) {}

    bool wait(std::chrono::milliseconds) override { return cancelled_ || answer_ != sim::UsbAnswer::silent; }
    void cancel() override { cancelled_ = true; }
    platform::UsbOutcome outcome() const override {
        switch (answer_) {
            case sim::UsbAnswer::done:
                return platform::UsbOutcome::done;
            case sim::UsbAnswer::stalled:
                return platform::UsbOutcome::stalled;
            case sim::UsbAnswer::silent:
                return platform::UsbOutcome::cancelled;
            case sim::UsbAnswer::gone:
                break;
        }
        return platform::UsbOutcome::gone;
    }
    std::size_t moved() const override { return answer_ == sim::UsbAnswer::done ? moved_ : 0; }

  private:
    sim::UsbAnswer answer_;
    std::size_t moved_;
    bool cancelled_ = false;
};

class SimulatedUsbConnection final : public platform::UsbConnection {
  public:
    explicit SimulatedUsbConnection(UsbPort& port) : port_(port) { ++port_.open; }
    ~SimulatedUsbConnection() override { leave(); }
    SimulatedUsbConnection(const SimulatedUsbConnection&) = delete;
    SimulatedUsbConnection& operator=(const SimulatedUsbConnection&) = delete;

    std::vector<std::byte> descriptor(std::uint8_t type, std::uint8_t index, std::uint16_t) override {
        const auto bytes = port_.unit.descriptor(type, index);
        const auto data = std::as_bytes(std::span(bytes));
        return {data.begin(), data.end()};
    }
    bool claim(std::uint8_t) override {
        if (port_.isTaken) return false;
        claims_ = 1;
        port_.claimed = 1;
        return true;
    }
    std::uint8_t alternateSetting(std::uint8_t) override {
        std::vector<std::uint8_t> data;
        const auto answer = port_.unit.control({0x81, 10, 0, 0, 1}, data);
        return answer == sim::UsbAnswer::done ? data[0] : std::uint8_t{0};
    }
    bool selectAlternateSetting(std::uint8_t, std::uint8_t setting) override {
        std::vector<std::uint8_t> data;
        return port_.unit.control({0x01, 11, setting, 0, 0}, data) == sim::UsbAnswer::done;
    }
    std::unique_ptr<platform::UsbTransfer> submit(std::uint8_t endpoint, std::span<std::byte> data) override {
        if (claims_ == 0) return nullptr;
        constexpr std::uint8_t in = 0x80;
        if ((endpoint & in) == 0) {
            const auto answer = port_.unit.bulkOut(bytesOf(data));
            return std::make_unique<SimulatedUsbTransfer>(answer, data.size());
        }
        std::vector<std::uint8_t> got;
        const auto answer = port_.unit.bulkIn(data.size(), got);
        if (!got.empty()) std::memcpy(data.data(), got.data(), got.size());
        return std::make_unique<SimulatedUsbTransfer>(answer, got.size());
    }
    std::unique_ptr<platform::UsbTransfer> submitControl(const platform::UsbSetup& setup,
                                                         std::span<std::byte> data,
                                                         std::chrono::milliseconds) override {
        auto bytes = bytesOf(data);
        const auto answer = port_.unit.control({setup.requestType, setup.request, setup.value, setup.index,
                                                static_cast<std::uint16_t>(data.size())},
                                               bytes);
        const std::size_t moved = std::min(bytes.size(), data.size());
        if (moved > 0) std::memcpy(data.data(), bytes.data(), moved);
        return std::make_unique<SimulatedUsbTransfer>(answer, moved);
    }
    bool close() override {
        leave();
        return !port_.refusesClose;
    }

  private:
    void leave() {
        port_.open -= std::exchange(isOpen_, 0);
        port_.claimed -= std::exchange(claims_, 0);
    }

    UsbPort& port_;
    int isOpen_ = 1, claims_ = 0;
};

class SimulatedUsbBus final : public platform::UsbBus {
  public:
    sim::Fx3Unit& plugIn(sim::Fx3Options options = {}) {
        ports.push_back(std::make_unique<UsbPort>(UsbPort{.unit = sim::Fx3Unit(std::move(options))}));
        return ports.back()->unit;
    }

    std::vector<std::unique_ptr<platform::UsbDevice>> devices() override {
        std::vector<std::unique_ptr<platform::UsbDevice>> present;
        for (const auto& port : ports) present.push_back(std::make_unique<Device>(*port));
        return present;
    }

    std::vector<std::unique_ptr<UsbPort>> ports;

  private:
    class Device final : public platform::UsbDevice {
      public:
        explicit Device(UsbPort& port) : port_(port) {}
        platform::UsbIdentity identity() const override {
            if (port_.identity != platform::UsbIdentity{}) return port_.identity;
            return {port_.unit.vendor(), port_.unit.product()};
        }
        std::unique_ptr<platform::UsbConnection> open() override {
            if (port_.refusesOpen) return nullptr;
            return std::make_unique<SimulatedUsbConnection>(port_);
        }

      private:
        UsbPort& port_;
    };
};

}  // namespace hxr::test
