/// Calibration images.

#include <cstddef>
#include <span>

#include "cal/image.h"
#include "hxr_api.h"
#include "platform/files.h"

namespace cal = hxr::cal;

double hxrCalGetTempFromIndex(int index) noexcept { return cal::temperatureOfIndex(index); }

bool hxrCalDoesFlashHeaderExist(const HXRCalData* image) noexcept {
    return image != nullptr && cal::hasFlashHeader(*image);
}

bool hxrCalHasPretestCorrections(const HXRCalData* image) noexcept {
    return image != nullptr && cal::hasPretestCorrections(*image);
}

bool hxrCalDoesCorrectionsExist(const uint8_t* image) noexcept {
    // The bytes may lie anywhere, so the date is looked at byte by byte.
    return image != nullptr &&
           hxrCalFlashDataPresent(image + offsetof(HXRCalData, calDate), sizeof(uint64_t));
}

bool hxrCalDoesCBBDataExist(const HXRCBBData* data) noexcept {
    return data != nullptr && !cal::isErased(std::as_bytes(std::span(data, 1)));
}

bool hxrCalFlashDataPresent(const uint8_t* data, int count) noexcept {
    return data != nullptr && count > 0 &&
           !cal::isErased(std::as_bytes(std::span(data, static_cast<std::size_t>(count))));
}

uint64_t hxrCalGetCorrectionCalDate(const HXRCalData* image) noexcept {
    return image == nullptr ? cal::absentDate : image->calDate;
}

void hxrCalBuildDummyCorrections(HXRCalData* image) noexcept {
    if (image != nullptr) cal::buildDummyCorrections(*image);
}

void hxrCalPropagateSingleTempCal(HXRCalData& image, int source, int destination) noexcept {
    cal::propagateSingleTempCal(image, source, destination);
}

bool hxrCalLoadFromFile(const char* path, HXRCalData* image) noexcept try {
    return path != nullptr && image != nullptr && hxr::platform::readFile(path, cal::bytesOf(*image));
} catch (...) {
    return false;  // no memory for the path
}
