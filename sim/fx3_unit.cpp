#include "sim/fx3_unit.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "sim/byte_order.h"

namespace hxr::sim {
namespace {

constexpr std::uint32_t firmwareBytes = 0x40000;
constexpr std::uint32_t macPage = 49152, networkPage = 49408;
constexpr std::size_t recordBytes = 16;
constexpr std::size_t serialDigits = 8;

namespace descriptors {
constexpr std::uint8_t device = 1, configuration = 2, string = 3, interface = 4, endpoint = 5,
                       objectStore = 15, companion = 0x30;
}

void append16(std::vector<std::uint8_t>& bytes, std::uint32_t value) {
    bytes.push_back(static_cast<std::uint8_t>(value));
    bytes.push_back(static_cast<std::uint8_t>(value >> 8));
}
void append32(std::vector<std::uint8_t>& bytes, std::uint32_t value) {
    append16(bytes, value & 0xFFFF);
    append16(bytes, value >> 16);
}

std::vector<std::uint8_t> stringDescriptor(std::u16string_view text) {
    std::vector<std::uint8_t> bytes{static_cast<std::uint8_t>(2 + 2 * text.size()), descriptors::string};
    for (const char16_t c : text) append16(bytes, c);
    return bytes;
}

/// Eight digits in 16-bit characters.
std::optional<std::u16string> serialIn(std::span<const std::uint8_t> bytes) {
    for (std::size_t offset = 0; offset + 2 * serialDigits <= bytes.size(); ++offset) {
        std::u16string text;
        for (std::size_t i = 0; i < serialDigits; ++i) {
            const std::uint8_t low = bytes[offset + 2 * i], high = bytes[offset + 2 * i + 1];
            if (low < '0' || low > '9' || high != 0) break;
            text.push_back(low);
        }
        if (text.size() == serialDigits) return text;
    }
    return std::nullopt;
}

struct Loaded {
    std::map<std::uint32_t, std::uint8_t> ram;
    std::uint32_t entry;
};

/// What the controller's ROM makes of an image, nothing if it won't start it.
std::optional<Loaded> loaded(std::span<const std::uint8_t> image) {
    if (image[0] != 'C' || image[1] != 'Y') return std::nullopt;
    Loaded result{};
    std::uint32_t sum = 0;
    for (std::size_t at = 4; at + 12 <= image.size();) {
        const std::size_t words = getLittle32(image, at);
        const std::uint32_t address = getLittle32(image, at + 4);
        at += 8;
        if (words == 0) {
            if (getLittle32(image, at) != sum) return std::nullopt;
            result.entry = address;
            return result;
        }
        if (words > (image.size() - at) / 4) return std::nullopt;
        for (std::size_t i = 0; i < 4 * words; ++i)
            result.ram[address + static_cast<std::uint32_t>(i)] = image[at + i];
        for (std::size_t i = 0; i < words; ++i) sum += getLittle32(image, at + 4 * i);
        at += 4 * words;
    }
    return std::nullopt;
}

}  // namespace

Fx3Unit::Fx3Unit(Fx3Options options) : options_(std::move(options)), inBootLoader_(options_.blank) {
    fpgaBusyLeft_ = options_.fpgaBusy;
}

bool Fx3Unit::firmwareIsInFlash() const {
    const auto head = flash.read(0, 2);
    return head[0] == 'C' && head[1] == 'Y';
}

void Fx3Unit::powerCycle() {
    gone_ = false;
    reply_.reset();
    ram_.clear();
    registers.clear();
    fpgaBusyLeft_ = options_.fpgaBusy;
    failure_.reset();
    memoryFailure_.reset();
    boot();
    const auto record = flash.read(networkPage, recordBytes);
    if (getLittle32(record, 0) == 1) {
        registers[8] = getLittle32(record, 4);
        registers[9] = getLittle32(record, 8);
        registers[10] = getLittle32(record, 12);
    }
    const auto mac = flash.read(macPage, recordBytes);
    if (getLittle32(mac, 0) == 1) {
        registers[6] = getLittle32(mac, 4);
        registers[7] = getLittle32(mac, 8);
    }
}

/// A unit that was made with firmware has it until another is written.
void Fx3Unit::boot() {
    if (!firmwareIsInFlash()) {
        inBootLoader_ = options_.blank;
        return;
    }
    inBootLoader_ = true;
    if (auto image = loaded(flash.read(0, firmwareBytes))) {
        ram_ = std::move(image->ram);
        startFirmware(image->entry);
    }
}

void Fx3Unit::startFirmware(std::uint32_t entry) {
    if (!ram_.contains(entry)) return;  // it crashes, and the boot loader comes back
    std::vector<std::uint8_t> bytes;
    for (const auto& [address, byte] : ram_) bytes.push_back(byte);
    if (auto serial = serialIn(bytes)) options_.serialNumber = std::move(*serial);
    inBootLoader_ = false;
}

void Fx3Unit::fail(std::size_t after, UsbAnswer answer, std::size_t shortened) {
    failure_ = Failure{after, shortened, 1, answer};
}

void Fx3Unit::failMemory(std::size_t after, UsbAnswer answer, std::size_t times) {
    memoryFailure_ = Failure{after, 0, times, answer};
}

std::vector<std::uint8_t> Fx3Unit::descriptor(std::uint8_t type, std::uint8_t index) const {
    if (const auto it = replaced_.find(type); it != replaced_.end()) return it->second;
    std::vector<std::uint8_t> bytes;
    switch (type) {
        case descriptors::device:
            bytes = {18, type};
            append16(bytes, options_.superSpeed ? 0x0300 : 0x0200);
            bytes.insert(bytes.end(), {0, 0, 0, 9});
            append16(bytes, vendor());
            append16(bytes, product());
            append16(bytes, 0);
            bytes.insert(bytes.end(), {0, 0, static_cast<std::uint8_t>(inBootLoader_ ? 0 : 1), 1});
            return bytes;
        case descriptors::string:
            if (index > 1) return {};
            return stringDescriptor(index == 0 ? u"\u0409" : std::u16string_view(options_.serialNumber));
        case descriptors::objectStore:
            if (!options_.superSpeed) return {};
            return {5, type, 15, 0, 1, 10, 0x10, 3, 0, 14, 0, 1, 10, 32, 0};
        case descriptors::configuration:
            break;
        default:
            return {};
    }
    bytes = {9, type, 0, 0, 1, 1, 0, 0x80, 50};
    for (std::size_t setting = 0; setting < options_.alternateSettings.size(); ++setting) {
        const auto& endpoints = options_.alternateSettings[setting];
        bytes.insert(bytes.end(), {9, descriptors::interface, 0, static_cast<std::uint8_t>(setting),
                                   static_cast<std::uint8_t>(endpoints.size()), 0xFF, 0, 0, 0});
        for (const UsbEndpoint& endpoint : endpoints) {
            bytes.insert(bytes.end(), {7, descriptors::endpoint, endpoint.address, endpoint.attributes});
            append16(bytes, endpoint.maxPacketSize);
            bytes.push_back(0);
            if (options_.superSpeed) bytes.insert(bytes.end(), {6, descriptors::companion, 15, 0, 0, 0});
        }
    }
    bytes[2] = static_cast<std::uint8_t>(bytes.size());
    bytes[3] = static_cast<std::uint8_t>(bytes.size() >> 8);
    return bytes;
}

UsbAnswer Fx3Unit::control(const Setup& setup, std::vector<std::uint8_t>& data) {
    constexpr std::uint8_t getDescriptor = 6, getInterface = 10, setInterface = 11, memory = 0xA0;
    if (gone_) return UsbAnswer::gone;
    const auto give = [&](std::vector<std::uint8_t> bytes) {
        if (bytes.empty()) return UsbAnswer::stalled;
        bytes.resize(std::min<std::size_t>(bytes.size(), setup.length));
        data = std::move(bytes);
        return UsbAnswer::done;
    };
    if (setup.requestType == 0x80 && setup.request == getDescriptor)
        return give(
            descriptor(static_cast<std::uint8_t>(setup.value >> 8), static_cast<std::uint8_t>(setup.value)));
    if (setup.requestType == 0x81 && setup.request == getInterface) return give({options_.presentSetting});
    if (setup.requestType == 0x01 && setup.request == setInterface) {
        ++settingRequests_;
        if (setup.value >= options_.alternateSettings.size()) return UsbAnswer::stalled;
        options_.presentSetting = static_cast<std::uint8_t>(setup.value);
        data.clear();
        return UsbAnswer::done;
    }
    const bool vendors = (setup.requestType & 0x7F) == 0x40;
    return vendors && setup.request == memory && inBootLoader_ ? memoryRequest(setup, data)
                                                               : UsbAnswer::stalled;
}

UsbAnswer Fx3Unit::memoryRequest(const Setup& setup, std::vector<std::uint8_t>& data) {
    constexpr std::size_t mostBytes = 4096;
    ++memoryRequests_;
    if (memoryFailure_ && memoryFailure_->after-- == 0) {
        memoryFailure_->after = 0;
        const UsbAnswer answer = memoryFailure_->answer;
        if (--memoryFailure_->times == 0) memoryFailure_.reset();
        gone_ = answer == UsbAnswer::gone;
        return answer;
    }
    const std::uint32_t address = std::uint32_t{setup.index} << 16 | setup.value;
    if (setup.length > mostBytes) return UsbAnswer::stalled;
    if ((setup.requestType & 0x80) != 0) {
        data.assign(setup.length, 0);
        for (std::size_t i = 0; i < data.size(); ++i) {
            const auto it = ram_.find(address + static_cast<std::uint32_t>(i));
            if (it != ram_.end()) data[i] = it->second;
        }
        if (spoiled_.times > 0 && spoiled_.address == address) {
            --spoiled_.times;
            data[0] ^= 1;
        }
    } else if (setup.length == 0) {
        startFirmware(address);
    } else {
        for (std::size_t i = 0; i < data.size(); ++i) ram_[address + static_cast<std::uint32_t>(i)] = data[i];
    }
    return UsbAnswer::done;
}

UsbAnswer Fx3Unit::takeFailure(std::size_t& shortened) {
    if (gone_) return UsbAnswer::gone;
    if (!failure_ || failure_->after-- > 0) return UsbAnswer::done;
    const Failure failure = *std::exchange(failure_, std::nullopt);
    shortened = failure.shortened;
    gone_ = failure.answer == UsbAnswer::gone;
    return failure.answer;
}

UsbAnswer Fx3Unit::bulkOut(std::span<const std::uint8_t> message) {
    std::size_t shortened = 0;
    if (const UsbAnswer answer = takeFailure(shortened); answer != UsbAnswer::done) return answer;
    if (inBootLoader_) return UsbAnswer::stalled;
    if (message.size() != messageBytes) {
        breakRule();
        return UsbAnswer::done;
    }
    const auto argument = static_cast<std::uint16_t>(message[0] | message[1] << 8);
    const auto opcode = static_cast<std::uint16_t>(message[2] | message[3] << 8);
    const auto payload = message.subspan(4);
    messages_.push_back(opcode);
    if (reply_) breakRule();  // the last one was never fetched
    reply_.reset();
    const auto writePart = [&](std::size_t offset, std::size_t count) {
        if (eraseBusyLeft_ > 0) return breakRule();
        flash.write(argument, offset, payload.first(count));
    };
    switch (opcode) {
        case 0xFFF0:
            writePart(0, 384);
            break;
        case 0xFFF1:
            writePart(384, 384);
            break;
        case 0xFFF2:
            writePart(768, 256);
            break;
        case 0xFFF3:
            registers[argument] = getLittle32(payload, 0);
            break;
        case 0xFFFA:
            powerCycle();
            break;
        case 0xFFFC:
            if (argument % UsbFlash::blockPages != 0 || eraseBusyLeft_ > 0) breakRule();
            flash.erase(argument);
            if (argument == 0) options_.blank = true;
            eraseBusyLeft_ = options_.eraseBusy;
            break;
        default:
            reply_ = replyTo(opcode, argument);
    }
    return UsbAnswer::done;
}

std::vector<std::uint8_t> Fx3Unit::replyTo(std::uint16_t opcode, std::uint16_t argument) {
    std::vector<std::uint8_t> words;
    switch (opcode) {
        case 0xFFFF:
            append32(words, options_.firmwareVersion);
            break;
        case 0xFFFD:
            return flash.read(argument, replyBytes);
        case 0xFFF9:
            append32(words, eraseBusyLeft_ > 0 ? 1 : 0);
            break;
        case 0xFFF4:
            append32(words, registers[argument]);
            break;
        case 0xFFEF:
            append32(words, fpgaBusyLeft_ > 0 ? 0xFFFFFFFDU : 0xFFFFFFFCU | options_.fpgaState);
            break;
        default:
            breakRule();
    }
    if (opcode == 0xFFF9) eraseBusyLeft_ = std::max(eraseBusyLeft_ - 1, 0);
    if (opcode == 0xFFEF) fpgaBusyLeft_ = std::max(fpgaBusyLeft_ - 1, 0);
    words.resize(replyBytes);
    return words;
}

UsbAnswer Fx3Unit::bulkIn(std::size_t most, std::vector<std::uint8_t>& data) {
    std::size_t shortened = 0;
    if (const UsbAnswer answer = takeFailure(shortened); answer != UsbAnswer::done) return answer;
    if (inBootLoader_) return UsbAnswer::stalled;
    if (!reply_) return UsbAnswer::silent;
    data = *std::exchange(reply_, std::nullopt);
    data.resize(std::min(data.size() - shortened, most));
    return UsbAnswer::done;
}

std::vector<std::uint8_t> makeFirmwareImage(std::u16string_view serialNumber, std::uint16_t version,
                                            std::span<const std::size_t> records) {
    constexpr std::uint32_t loadAddress = 0x40003000;
    constexpr std::string_view mark = "FW Ver";
    std::vector<std::uint8_t> content = stringDescriptor(serialNumber);
    content.insert(content.end(), mark.begin(), mark.end());
    content.insert(content.end(),
                   {static_cast<std::uint8_t>(version >> 8), static_cast<std::uint8_t>(version)});

    std::vector<std::uint8_t> image{'C', 'Y', 0x1C, 0xB0};
    std::uint32_t sum = 0, address = loadAddress;
    std::uint8_t filler = 0;
    for (const std::size_t length : records) {
        append32(image, static_cast<std::uint32_t>(length / 4));
        append32(image, address);
        address += static_cast<std::uint32_t>(length);
        const std::size_t start = image.size();
        const auto placed = static_cast<std::ptrdiff_t>(std::min(length, content.size()));
        image.insert(image.end(), content.begin(), content.begin() + placed);
        content.erase(content.begin(), content.begin() + placed);
        while (image.size() < start + length) image.push_back(filler++ | 0x80);
        for (std::size_t at = start; at < image.size(); at += 4) sum += getLittle32(image, at);
    }
    append32(image, 0);
    append32(image, loadAddress);
    append32(image, sum);
    return image;
}

}  // namespace hxr::sim
