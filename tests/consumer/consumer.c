#include <hxr_api.h>

#include <stdio.h>
#include <string.h>

int main(void) {
    int handle = 7;
    const HXRStatus refused = hxrConnectDevice(&handle, "no address", "127.0.0.2", 5000);
    printf("%s: %s\n", hxrGetAPIVersion(), hxrGetErrorString(refused));
    if (refused != hxrDeviceNotFoundErr || handle != 7) return 1;
    if (sizeof(HXRCalData) != 0x800000 || sizeof(HXRCBBData) != 0x40000) return 1;
    return strcmp(hxrGetErrorString(hxrGetChannelCount(0, &handle)), "Invalid device error");
}
