/// First contact with a unit, and the way its calibration image comes to this host.

#include "cal/image.h"
#include "link/builders.h"
#include "link/device_interface.h"
#include "link/gps_fix.h"
#include "link/words.h"

namespace hxr {
namespace {

constexpr std::uint16_t dateRegister = 5;
constexpr std::uint16_t timeRegister = 7;

// The image is pages 128 to 1151 of the flash. The heads of its sections are read at every attach; the rest
// of the chamber section only if the flash is newer than the cache.
constexpr int firstImagePage = 128;
struct PageRange {
    int first, last;
};
constexpr PageRange cbbHead{128, 129};
constexpr PageRange pretestHead{160, 163};
constexpr PageRange chamberHead{192, 192};
constexpr PageRange chamberRest{193, 1151};

std::uint32_t registerSeconds(std::int64_t seconds) { return static_cast<std::uint32_t>(seconds); }

}  // namespace

void appendTimeOf(const GpsFix& fix, CommandList& list) {
    appendRegister(list, dateRegister, registerSeconds(fix.date()));
    appendRegister(list, timeRegister, registerSeconds(fix.time()));
}

GpsFix fixOf(const StatusRecord& record) {
    return GpsFix(record.bytes().subspan<StatusRecord::gpsBlock, StatusRecord::gpsBlockSize>());
}

HXRStatus DeviceInterface::attach(const ControlClaim& control, const char* hostAddr, const char* deviceAddr,
                                  std::uint16_t port) {
    const auto record = firstContact(control, hostAddr, deviceAddr, port);
    if (!connected_) return hxrDeviceNotFoundErr;
    if (!record || !stampDateAndTime(control, *record)) return linkStatus_;
    return fillImage(control);
}

/// What proves that a unit is there: it answers.
std::optional<StatusRecord> DeviceInterface::firstContact(const ControlClaim& control, const char* hostAddr,
                                                          const char* deviceAddr, std::uint16_t port) {
    if (!control->open(hostAddr, deviceAddr, port, port)) return std::nullopt;
    connected_ = true;

    // An earlier connection may have left a stream running.
    StatusRecord record;
    if (!sendList(control, singlePacket({words::streamStop(data_->localPort())})) ||
        !readStatus(control, &record))
        return std::nullopt;
    // What is no status tells nothing of the unit: neither who it is, nor what time it is.
    serialNumberRead_ = record.magicIsRight();
    if (serialNumberRead_) serialNumber_ = record.serialNumber();
    return record;
}

bool DeviceInterface::stampDateAndTime(const ControlClaim& control, const StatusRecord& record) {
    const GpsFix fix = fixOf(record);
    const bool fixCounts = record.magicIsRight() && fix.timeIsValid();
    CommandList list;
    list.beginPacket();
    if (fixCounts) {
        appendTimeOf(fix, list);
    } else {
        const std::int64_t now = clock_.utcSeconds();
        appendRegister(list, timeRegister, registerSeconds(now));
        appendRegister(list, dateRegister, registerSeconds(platform::startOfDay(now)));
    }
    const bool sent = sendList(control, list);
    if (sent && fixCounts) noteTimeSeedSent();
    return sent;
}

HXRStatus DeviceInterface::fillImage(const ControlClaim& control) {
    std::optional<std::uint64_t> cachedDate;
    if (serialNumberRead_ && cache_.read(serialNumber_, cal::bytesOf(*flashCopy_))) {
        cachedDate = flashCopy_->calDate;
        adoptCorrections();
    }

    if (!setFlashReadMode(control, true)) return linkStatus_;
    for (const PageRange head : {cbbHead, pretestHead, chamberHead}) {
        if (!readPages(control, head.first, head.last)) return linkStatus_;
    }

    const std::uint64_t flashDate = flashCopy_->calDate;
    const bool upToDate = cachedDate && flashDate <= *cachedDate;
    if (flashDate != cal::absentDate && !upToDate) {
        if (!readPages(control, chamberRest.first, chamberRest.last)) return linkStatus_;
        if (serialNumberRead_) cache_.write(serialNumber_, cal::bytesOf(*flashCopy_));
        adoptCorrections();
    }
    setFlashReadMode(control, false);
    return hxrNoError;
}

bool DeviceInterface::readPages(const ControlClaim& control, int first, int last) {
    const auto image = cal::bytesOf(*flashCopy_);
    for (int page = first; page <= last; ++page) {
        const std::size_t offset = static_cast<std::size_t>(page - firstImagePage) * flashPageBytes;
        if (!readFlashPage(control, static_cast<std::uint16_t>(page),
                           image.subspan(offset, flashPageBytes).data()))
            return false;
    }
    return true;
}

/// Takes the chamber section of the flash copy into use. One that fails its checksum is used all the same.
void DeviceInterface::adoptCorrections() {
    if (!cal::checksumPasses(*flashCopy_)) calChecksumFailed_ = true;
    cal::copyChamberSection(*flashCopy_, *corrections_.image);
}

}  // namespace hxr
