#include <libusb.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <memory>
#include <new>
#include <optional>

#include "platform/signals_posix.h"
#include "platform/usb_bus.h"

namespace hxr::platform {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

/// The library's state, for the life of the process; null where the machine has no USB. Its threads take no signals of
/// the application's.
libusb_context* context() {
    static libusb_context* const made = [] {
        const SignalsBlocked blocked;
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

/// What libusb uses of a transfer: it stays until libusb has given the transfer back, be it after its owner is gone.
struct Submission {
    explicit Submission(std::size_t bytes) : transfer(libusb_alloc_transfer(0)), buffer(bytes) {}
    ~Submission() { libusb_free_transfer(transfer); }
    Submission(const Submission&) = delete;
    Submission& operator=(const Submission&) = delete;

    /// Whose turn it is to free it.
    enum class Stage { underWay, back, abandoned };

    libusb_transfer* transfer;
    std::vector<unsigned char> buffer;
    std::atomic<Stage> stage = Stage::underWay;
    int completed = 0;  ///< libusb's own wake-up flag
};

/// A transfer that was submitted. Whoever waits for it handles the events of all.
class Transfer final : public UsbTransfer {
  public:
    /// @param abandoned  set if the transfer never comes back
    explicit Transfer(std::atomic<bool>& abandoned) : abandoned_(abandoned) {}
    ~Transfer() override {
        if (!submission_) return;
        cancel();
        wait(std::chrono::ceil<milliseconds>(*cancelledAt_ + cancelTime - steady_clock::now()));
        if (submission_->stage.exchange(Submission::Stage::abandoned) == Submission::Stage::back) return;
        abandoned_ = true;
        static_cast<void>(submission_.release());  // whoever handles its event frees it
    }
    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;

    bool startBulk(libusb_device_handle* device, std::uint8_t endpoint, std::span<std::byte> data) {
        const bool in = (endpoint & LIBUSB_ENDPOINT_IN) != 0;
        return start(data, in, 0, [&](Submission& made) {
            libusb_fill_bulk_transfer(made.transfer, device, endpoint, made.buffer.data(),
                                      static_cast<int>(data.size()), noteBack, &made, 0);
        });
    }

    bool startControl(libusb_device_handle* device, const UsbSetup& setup, std::span<std::byte> data,
                      milliseconds atMost) {
        const bool in = (setup.requestType & LIBUSB_ENDPOINT_IN) != 0;
        return start(data, in, LIBUSB_CONTROL_SETUP_SIZE, [&](Submission& made) {
            libusb_fill_control_setup(made.buffer.data(), setup.requestType, setup.request, setup.value,
                                      setup.index, static_cast<std::uint16_t>(data.size()));
            libusb_fill_control_transfer(made.transfer, device, made.buffer.data(), noteBack, &made,
                                         static_cast<unsigned>(atMost.count()));
        });
    }

    bool wait(milliseconds atMost) override {
        constexpr milliseconds longest{1000};
        const auto deadline = steady_clock::now() + atMost;
        do {
            const auto left = std::chrono::ceil<milliseconds>(deadline - steady_clock::now());
            const auto slice = std::clamp(left, milliseconds(0), longest);
            timeval time{slice.count() / 1000, static_cast<suseconds_t>(slice.count() % 1000 * 1000)};
            libusb_handle_events_timeout_completed(context(), &time, &submission_->completed);
        } while (!isBack() && steady_clock::now() < deadline);
        if (isBack() && comesIn_) {
            const std::size_t bytes = std::min(moved(), data_.size());
            std::copy_n(reinterpret_cast<const std::byte*>(submission_->buffer.data()) + headBytes_, bytes,
                        data_.begin());
            comesIn_ = false;
        }
        return isBack();
    }
    void cancel() override {
        if (!cancelledAt_) cancelledAt_ = steady_clock::now();
        if (!isBack()) libusb_cancel_transfer(submission_->transfer);
    }
    UsbOutcome outcome() const override { return outcomeOf(submission_->transfer->status); }
    std::size_t moved() const override {
        return static_cast<std::size_t>(submission_->transfer->actual_length);
    }

  private:
    /// @param head  bytes of the buffer ahead of the data
    template <typename Fill>
    bool start(std::span<std::byte> data, bool in, std::size_t head, Fill&& fill) {
        auto made = std::make_unique<Submission>(head + data.size());
        if (made->transfer == nullptr) return false;
        if (!in) std::ranges::copy(data, reinterpret_cast<std::byte*>(made->buffer.data()) + head);
        fill(*made);
        if (libusb_submit_transfer(made->transfer) != 0) return false;
        submission_ = std::move(made);
        data_ = data;
        comesIn_ = in;
        headBytes_ = head;
        return true;
    }

    /// Another thread, waiting for a transfer of its own, may be the one that notes it.
    static void LIBUSB_CALL noteBack(libusb_transfer* transfer) {
        auto* const made = static_cast<Submission*>(transfer->user_data);
        std::atomic_ref(made->completed).store(1, std::memory_order_release);
        if (made->stage.exchange(Submission::Stage::back) == Submission::Stage::abandoned)
            const std::unique_ptr<Submission> ownerless(made);
    }

    bool isBack() const { return submission_->stage.load() == Submission::Stage::back; }

    std::atomic<bool>& abandoned_;
    std::unique_ptr<Submission> submission_;
    std::span<std::byte> data_;
    bool comesIn_ = false;  ///< data that came are still to be copied
    std::size_t headBytes_ = 0;
    std::optional<steady_clock::time_point> cancelledAt_;
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
        return !abandoned_;
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
    std::unique_ptr<UsbTransfer> started(Start start) noexcept try {
        auto transfer = std::make_unique<Transfer>(abandoned_);
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
    std::atomic<bool> abandoned_ = false;  ///< a transfer never came back
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
