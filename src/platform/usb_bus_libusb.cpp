#include <libusb.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <new>
#include <optional>

#include "platform/usb_bus.h"

namespace hxr::platform {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

/// The library's state, for the life of the process; null where the machine has no USB.
libusb_context* context() {
    static libusb_context* const made = [] {
        libusb_context* fresh = nullptr;
        return libusb_init(&fresh) == 0 ? fresh : nullptr;
    }();
    return made;
}

UsbOutcome outcomeOf(libusb_transfer_status status) {
    switch (status) {
        case LIBUSB_TRANSFER_COMPLETED:
            return UsbOutcome::done;
        case LIBUSB_TRANSFER_STALL:
            return UsbOutcome::stalled;
        case LIBUSB_TRANSFER_CANCELLED:
        case LIBUSB_TRANSFER_TIMED_OUT:
            return UsbOutcome::cancelled;
        case LIBUSB_TRANSFER_NO_DEVICE:
            return UsbOutcome::gone;
        default:
            return UsbOutcome::failed;
    }
}

struct TransferFree {
    void operator()(libusb_transfer* transfer) const { libusb_free_transfer(transfer); }
};

/// A transfer that was submitted. Whoever waits for it handles the events of all.
class Transfer final : public UsbTransfer {
  public:
    Transfer() : transfer_(libusb_alloc_transfer(0)) {}
    ~Transfer() override {
        if (!submitted_) return;
        cancel();
        wait(unlimited);
    }
    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;

    bool startBulk(libusb_device_handle* device, std::uint8_t endpoint, std::span<std::byte> data) {
        if (!transfer_) return false;
        libusb_fill_bulk_transfer(transfer_.get(), device, endpoint,
                                  reinterpret_cast<unsigned char*>(data.data()),
                                  static_cast<int>(data.size()), noteDone, this, 0);
        return start();
    }

    bool startControl(libusb_device_handle* device, const UsbSetup& setup, std::span<std::byte> data,
                      milliseconds atMost) {
        if (!transfer_) return false;
        withSetup_.resize(LIBUSB_CONTROL_SETUP_SIZE + data.size());
        libusb_fill_control_setup(withSetup_.data(), setup.requestType, setup.request, setup.value,
                                  setup.index, static_cast<std::uint16_t>(data.size()));
        const bool in = (setup.requestType & LIBUSB_ENDPOINT_IN) != 0;
        if (in) {
            comesIn_ = data;
        } else {
            std::ranges::copy(data,
                              reinterpret_cast<std::byte*>(withSetup_.data()) + LIBUSB_CONTROL_SETUP_SIZE);
        }
        libusb_fill_control_transfer(transfer_.get(), device, withSetup_.data(), noteDone, this,
                                     static_cast<unsigned>(atMost.count()));
        return start();
    }

    bool wait(milliseconds atMost) override {
        constexpr milliseconds longest{1000};
        const auto now = steady_clock::now();
        const bool forEver = atMost == unlimited;
        const auto deadline = forEver ? now : now + atMost;
        do {
            const auto left = std::chrono::ceil<milliseconds>(deadline - steady_clock::now());
            const auto slice = forEver ? longest : std::clamp(left, milliseconds(0), longest);
            timeval time{slice.count() / 1000, static_cast<suseconds_t>(slice.count() % 1000 * 1000)};
            libusb_handle_events_timeout_completed(context(), &time, &done_);
        } while (!isDone() && (forEver || steady_clock::now() < deadline));
        return isDone();
    }
    void cancel() override {
        if (!isDone()) libusb_cancel_transfer(transfer_.get());
    }
    UsbOutcome outcome() const override { return outcomeOf(transfer_->status); }
    std::size_t moved() const override { return static_cast<std::size_t>(transfer_->actual_length); }

  private:
    bool start() {
        submitted_ = libusb_submit_transfer(transfer_.get()) == 0;
        return submitted_;
    }

    static void LIBUSB_CALL noteDone(libusb_transfer* transfer) {
        auto& self = *static_cast<Transfer*>(transfer->user_data);
        const auto moved = std::min(self.moved(), self.comesIn_.size());
        std::copy_n(reinterpret_cast<const std::byte*>(transfer->buffer) + LIBUSB_CONTROL_SETUP_SIZE, moved,
                    self.comesIn_.begin());
        std::atomic_ref(self.done_).store(1, std::memory_order_release);
    }

    /// Another thread, waiting for a transfer of its own, may be the one that notes it.
    bool isDone() const { return std::atomic_ref(done_).load(std::memory_order_acquire) != 0; }

    std::unique_ptr<libusb_transfer, TransferFree> transfer_;
    std::vector<unsigned char> withSetup_;  ///< of a control transfer
    std::span<std::byte> comesIn_;          ///< of a control transfer
    bool submitted_ = false;
    mutable int done_ = 0;
};

class Connection final : public UsbConnection {
  public:
    explicit Connection(libusb_device_handle* handle) : handle_(handle) {
        libusb_set_auto_detach_kernel_driver(handle_, 1);
    }
    ~Connection() override { close(); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    std::vector<std::byte> descriptor(std::uint8_t type, std::uint8_t index,
                                      std::uint16_t language) override {
        constexpr std::size_t longest = 4096, longestShort = 255;
        const bool tellsTotal = type == LIBUSB_DT_CONFIG || type == LIBUSB_DT_BOS;
        std::vector<std::byte> bytes(tellsTotal ? longest : longestShort);
        const int got = request(LIBUSB_ENDPOINT_IN, LIBUSB_REQUEST_GET_DESCRIPTOR,
                                static_cast<std::uint16_t>(type << 8 | index), language, bytes);
        bytes.resize(static_cast<std::size_t>(std::max(got, 0)));
        return bytes;
    }

    bool claim(std::uint8_t interface) override {
        if (claimed_ == interface) return true;
        giveBack();
        if (libusb_claim_interface(handle_, interface) != 0) return false;
        claimed_ = interface;
        return true;
    }

    /// To ask for it would take the interface from whoever has it.
    std::uint8_t alternateSetting(std::uint8_t interface) override {
        constexpr unsigned fromInterface =
            unsigned{LIBUSB_ENDPOINT_IN} | unsigned{LIBUSB_RECIPIENT_INTERFACE};
        std::array<std::byte, 1> setting{};
        if (claimed_ != interface) return 0;
        const int got = request(fromInterface, LIBUSB_REQUEST_GET_INTERFACE, 0, interface, setting);
        return got == 1 ? std::to_integer<std::uint8_t>(setting[0]) : std::uint8_t{0};
    }
    bool selectAlternateSetting(std::uint8_t interface, std::uint8_t setting) override {
        return libusb_set_interface_alt_setting(handle_, interface, setting) == 0;
    }

    std::unique_ptr<UsbTransfer> submit(std::uint8_t endpoint, std::span<std::byte> data) override {
        return started(
            [&](Transfer& transfer) { return claimed_ && transfer.startBulk(handle_, endpoint, data); });
    }
    std::unique_ptr<UsbTransfer> submitControl(const UsbSetup& setup, std::span<std::byte> data,
                                               milliseconds atMost) override {
        return started(
            [&](Transfer& transfer) { return transfer.startControl(handle_, setup, data, atMost); });
    }

    bool close() override {
        if (handle_ == nullptr) return true;
        giveBack();
        libusb_close(handle_);
        handle_ = nullptr;
        return true;
    }

  private:
    int request(unsigned type, std::uint8_t which, std::uint16_t value, std::uint16_t index,
                std::span<std::byte> data) {
        constexpr unsigned timeoutMs = 1000;
        return libusb_control_transfer(handle_, static_cast<std::uint8_t>(type), which, value, index,
                                       reinterpret_cast<unsigned char*>(data.data()),
                                       static_cast<std::uint16_t>(data.size()), timeoutMs);
    }
    /// Without memory nothing starts.
    template <typename Start>
    static std::unique_ptr<UsbTransfer> started(Start start) noexcept try {
        auto transfer = std::make_unique<Transfer>();
        if (!start(*transfer)) return nullptr;
        return transfer;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }

    void giveBack() {
        if (claimed_) libusb_release_interface(handle_, *claimed_);
        claimed_.reset();
    }

    libusb_device_handle* handle_;
    std::optional<std::uint8_t> claimed_;
};

class Device final : public UsbDevice {
  public:
    explicit Device(libusb_device* device) : device_(libusb_ref_device(device)) {}
    ~Device() override { libusb_unref_device(device_); }
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;

    UsbIdentity identity() const override {
        libusb_device_descriptor descriptor{};
        libusb_get_device_descriptor(device_, &descriptor);
        return {descriptor.idVendor, descriptor.idProduct};
    }
    std::unique_ptr<UsbConnection> open() override {
        libusb_device_handle* handle = nullptr;
        if (libusb_open(device_, &handle) != 0) return nullptr;
        return std::make_unique<Connection>(handle);
    }

  private:
    libusb_device* device_;
};

struct ListFree {
    void operator()(libusb_device** list) const { libusb_free_device_list(list, 1); }
};

class Bus final : public UsbBus {
    std::vector<std::unique_ptr<UsbDevice>> devices() override {
        std::vector<std::unique_ptr<UsbDevice>> present;
        libusb_device** found = nullptr;
        const ssize_t count = context() == nullptr ? 0 : libusb_get_device_list(context(), &found);
        const std::unique_ptr<libusb_device*, ListFree> list(found);
        for (ssize_t i = 0; i < count; ++i) present.push_back(std::make_unique<Device>(found[i]));
        return present;
    }
};

}  // namespace

UsbBus& systemUsbBus() {
    static Bus bus;
    return bus;
}

}  // namespace hxr::platform
