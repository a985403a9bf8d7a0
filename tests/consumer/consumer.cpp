#include <hxr_api.h>

#include <cstdio>
#include <memory>

int main() {
    const auto image = std::make_unique<HXRCalData>();
    hxrCalBuildDummyCorrections(image.get());
    std::printf("%.1f\n", hxrCalGetTempFromIndex(6));
    int count = 0;
    const bool right = !hxrCalDoesFlashHeaderExist(image.get()) && image->channelGainCode[3][513] == 8 &&
                       hxrGetPairedDevices(0, &count) == hxrInvalidDeviceErr;
    return right ? 0 : 1;
}
