#include <hxr_api.h>

#include <cstdio>
#include <memory>

/// Whether the service entries can be called in all their forms. There is no unit, and each says so.
bool serviceIsThere(const HXRCalData& image) {
    bool has = false;
    unsigned char a = 1, b = 2, c = 3;
    unsigned short tune = 4;
    float samples[2 * 2048] = {}, taps[2 * 63] = {};
    int locks[4] = {};
    const HXRStatus said[] = {
        hxrAdminGetFullBandIQ(0, 0, true, 1e9, 0, samples, 1),
        hxrAdminGetFullBandIQ(0, 0, false, 1e9, 0, samples, 1, true, taps),
        hxrAdminConfigureForCBBReadback(0),
        hxrAdminCBBReadback(0, false, true, 0, 0, a, b, c),
        hxrAdminHasCBBData(0, &has),
        hxrAdminHasPretestCorrections(0, &has),
        hxrAdminHasChamberCorrections(0, &has),
        hxrAdminSetCorrectionMode(0, true),
        hxrAdminSetCorrectionIndex(0, 3),
        hxrAdminSetLOFT(0, 1, -1),
        hxrAdminManualLoadCorrections(0, &image),
        hxrAdminGetLOLockFlags(0, locks, nullptr),
        hxrAdminGetCoarseTuneVal(0, &tune),
        hxrAdminSetCoarseTuneVal(0, tune),
        hxrAdminInitFullBandLOs(0, true, false),
        hxrAdminReInitChans(0),
        hxrAdminSetDisableLOOnAbort(0, false),
        hxrAdminSetVSGPatternDirect(0, samples, 16),
        hxrAdminSetVSGAtten(0, 7),
    };
    for (const HXRStatus status : said)
        if (status != hxrInvalidDeviceErr) return false;

    hxrAdminSetLOCalMode(true);
    const bool told = hxrAdminIsLOCalMode();
    hxrAdminSetLOCalMode(false);
    return told && !hxrAdminIsLOCalMode() && hxrAdminSetPreselectorFilter(3) == hxrNoError &&
           hxrAdminSetAutoPreselectorFilter() == hxrNoError && a == 1 && b == 2 && c == 3 && !has;
}

int main() {
    const auto image = std::make_unique<HXRCalData>();
    hxrCalBuildDummyCorrections(image.get());
    std::printf("%.1f\n", hxrCalGetTempFromIndex(6));
    int count = 0;
    const bool right = !hxrCalDoesFlashHeaderExist(image.get()) && image->channelGainCode[3][513] == 8 &&
                       hxrGetPairedDevices(0, &count) == hxrInvalidDeviceErr;
    return right && serviceIsThere(*image) ? 0 : 1;
}
