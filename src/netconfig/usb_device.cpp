#include "netconfig/usb_device.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>

#include "netconfig/little_endian.h"

namespace hxr {
namespace {

void show(const char* title, const char* text) { std::fprintf(stderr, "%s: %s\n", title, text); }

}  // namespace

USBDevice::USBDevice(platform::UsbBus& bus, const ClassGuid& guid) : bus_(bus), guid_(guid) { open(0); }

USBDevice::~USBDevice() {
    try {
        close();
    } catch (const std::runtime_error&) {  // nobody is left to be told
    }
}

/// This system knows no classes of drivers: a class is the identities that belong to it.
std::vector<std::unique_ptr<platform::UsbDevice>> USBDevice::devices() const {
    auto found = bus_.devices();
    std::erase_if(found, [this](const auto& device) {
        const auto identity = device->identity();
        return guid_ != unitClass || (identity != unitIdentity && identity != bootLoaderIdentity);
    });
    return found;
}

int USBDevice::deviceCount() const {
    constexpr std::size_t most = 255;
    return static_cast<int>(std::min(devices().size(), most));
}

bool USBDevice::open(int position) {
    close();
    const auto present = devices();
    if (position < 0 || static_cast<std::size_t>(position) >= present.size()) return false;
    auto& chosen = *present[static_cast<std::size_t>(position)];
    identity_ = chosen.identity();
    connection_ = chosen.open();
    if (!connection_) return false;
    control_ = std::make_unique<CCyControlEndPoint>(*connection_);
    if (!readDescriptors()) {
        close();
        return false;
    }
    for (const AlternateSetting& alternate : settings_) {
        Endpoints& endpoints = made_.emplace_back();
        for (const EndpointDescriptor& endpoint : alternate.endpoints) {
            if (auto made = makeEndpoint(*connection_, endpoint)) endpoints.push_back(std::move(made));
        }
    }
    interface_ = settings_.front().interface;
    setting_ = connection_->alternateSetting(interface_);
    takeEndpoints();
    return true;
}

/// @return whether there is a configuration with an interface
bool USBDevice::readDescriptors() {
    constexpr std::size_t deviceBytes = 18, serialAt = 16, versionAt = 2;
    constexpr std::uint16_t firstWithObjectStore = 0x0201;
    const auto device = connection_->descriptor(descriptor_type::device, 0);
    if (device.size() < deviceBytes) return false;
    serialNumber_ = readString(std::to_integer<std::uint8_t>(device[serialAt]));

    if (halfWordAt(device, versionAt) >= firstWithObjectStore) {
        const auto store = connection_->descriptor(descriptor_type::objectStore, 0);
        if (!store.empty() && !isObjectStore(store)) {
            show("Wrong BOS Descriptor", "Please correct firmware BOS descriptor table");
            return false;
        }
    }
    const auto configuration = connection_->descriptor(descriptor_type::configuration, 0);
    if (configuration.empty()) return false;
    auto settings = alternateSettingsOf(configuration);
    if (!settings) {
        show("Wrong Device Configuration", "Please correct firmware descriptor table");
        return false;
    }
    settings_ = std::move(*settings);
    return !settings_.empty();
}

/// A string in the first language that the device has.
std::u16string USBDevice::readString(std::uint8_t index) {
    constexpr std::size_t headBytes = 2;
    const auto stringOf = [this](std::uint8_t which, std::uint16_t language) {
        auto bytes = connection_->descriptor(descriptor_type::string, which, language);
        const std::size_t length = bytes.empty() ? 0 : std::to_integer<std::size_t>(bytes[0]);
        bytes.resize(std::min(bytes.size(), length));
        return bytes;
    };
    if (index == 0) return {};
    const auto languages = stringOf(0, 0);
    if (languages.size() < headBytes + 2) return {};
    const auto bytes = stringOf(index, halfWordAt(languages, headBytes));
    std::u16string text;
    for (std::size_t offset = headBytes; offset + 1 < bytes.size(); offset += 2)
        text.push_back(static_cast<char16_t>(halfWordAt(bytes, offset)));
    return text;
}

void USBDevice::takeEndpoints() {
    current_.assign(1, control_.get());
    for (std::size_t i = 0; i < settings_.size(); ++i) {
        if (settings_[i].interface != interface_ || settings_[i].setting != setting_) continue;
        for (const auto& endpoint : made_[i]) current_.push_back(endpoint.get());
        return;
    }
}

bool USBDevice::selectAlternateSetting(std::uint8_t setting) {
    if (!connection_ || !connection_->claim(interface_)) return false;
    if (connection_->alternateSetting(interface_) != setting) {
        const auto it = std::ranges::find(settings_, setting, &AlternateSetting::setting);
        if (it == settings_.end() || !connection_->claim(it->interface) ||
            !connection_->selectAlternateSetting(it->interface, setting))
            return false;
        interface_ = it->interface;
    }
    setting_ = setting;
    takeEndpoints();
    return true;
}

CCyUSBEndPoint* USBDevice::bulkOut() const {
    const auto it = std::ranges::find_if(current_, [](const CCyUSBEndPoint* endpoint) {
        return transferTypeOf(endpoint->descriptor) == TransferType::bulk && !endpoint->isIn;
    });
    return it == current_.end() ? nullptr : *it;
}

void USBDevice::close() {
    current_.clear();
    made_.clear();
    control_.reset();
    settings_.clear();
    serialNumber_.clear();
    identity_ = {};
    const auto connection = std::move(connection_);
    if (connection && !connection->close()) throw std::runtime_error("Failed to close handle to driver.");
}

}  // namespace hxr
