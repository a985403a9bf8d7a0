/// Constant texts.

#include "hxr_api.h"

const char* hxrGetAPIVersion() { return HXR_VERSION; }

const char* hxrGetErrorString(HXRStatus status) {
    switch (status) {
        case hxrSweepNotStartedErr:
            return "Sweep not started error";
        case hxrSweepAlreadyStartedErr:
            return "Sweep already started error";
        case hxrADCAlignmentErr:
            return "ADC clock/alignment error";
        case hxrMultiReceiverErr:
            return "Invalid operation on multi-receiver system error";
        case hxrDataSyncErr:
            return "Data sync error";
        case hxrFlashIOErr:
            return "Flash I/O error";
        case hxrInvalidParameterErr:
            return "Invalid parameter error";
        case hxrInvalidConfigurationErr:
            return "Invalid configuration error";
        case hxrMemoryAllocationErr:
            return "Memory allocation error";
        case hxrMaxDevicesConnectedErr:
            return "Max devices connected error";
        case hxrInvalidDeviceErr:
            return "Invalid device error";
        case hxrNullPointerErr:
            return "Null pointer error";
        case hxrConnectionLostErr:
            return "Connection lost error";
        case hxrDeviceNotFoundErr:
            return "Device not found";
        case hxrNoError:
            return "No error";
        case hxrSettingClamped:
            return "Setting clamped";
        case hxrADCOverflow:
            return "ADC overflow";
        case hxrUncalData:
            return "Uncal data, potential USB data loss";
        case hxrTempDriftWarning:
            return "Temp drift warning";
        case hxrDDRBufferOverflow:
            return "DDR buffer overflow";
        case hxrCalChecksumFailed:
            return "Calibration data checksum failed";
    }
    return "Unknown error";
}
