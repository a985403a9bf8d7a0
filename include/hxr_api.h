/**
 * @file
 * hxr_api: the driver of the HXR multi-channel, phase-coherent RF receiver.
 *
 * A unit has four RF channels, 100 kHz to 20 GHz, and is reached over UDP. Up to four units can be tied into a group
 * that acts as one instrument. An application connects to a unit, gets a handle, and uses the handle in every call:
 *
 *     int handle;
 *     HXRStatus status = hxrConnectDevice(&handle, "192.168.2.2", "192.168.2.10", 5000);
 *     if (status < 0) puts(hxrGetErrorString(status));
 *     ...
 *     hxrCloseDevice(handle);
 *
 * Status. Every entry returns an HXRStatus unless it says otherwise. Zero is success; a negative value is an error,
 * and nothing was done or the operation stopped; a positive value is a warning, and the operation completed. Arguments
 * are checked in this order: the handle, pointers, values. What is refused changes nothing.
 *
 * Threads. Every entry runs on the caller's thread, which must not be cancelled in it. All entries may be called from any
 * thread at any time. A unit serves one user at a time: an entry that talks to a unit while another call, a sweep or a stream is doing so returns
 * hxrInvalidConfigurationErr and changes nothing. Entries that read health, GPS or lock flags then answer from the unit's
 * last status. Settings may be made and read at any time. hxrAbort and hxrCloseDevice end a sweep or a stream that another
 * thread is waiting for; hxrSweepFinish and hxrStreamRecv then return hxrInvalidConfigurationErr.
 *
 * Memory. Every entry that returns an HXRStatus may return hxrMemoryAllocationErr; hxrCloseDevice never does.
 * After this error nothing has changed, except for entries that send to the units immediately: these may have stored the
 * value or reached some of the units.
 *
 * Languages. The header compiles as C11 with the plain entries, and as C++20 with all of them. Nothing is thrown
 * across the interface.
 */
#ifndef HXR_API_H
#define HXR_API_H

#include <stdint.h>

#if defined(__GNUC__)
#define HXR_API __attribute__((visibility("default")))
#else
#define HXR_API
#endif

/**
 * @defgroup status Status
 * @{
 */

/** What an entry has to say; hxrGetErrorString gives the text. */
#ifdef __cplusplus
enum HXRStatus : int32_t {
#else
typedef int32_t HXRStatus;
enum {
#endif
    hxrSweepNotStartedErr = -14,     /**< No sweep was started. */
    hxrSweepAlreadyStartedErr = -13, /**< A sweep is running on this unit. */
    hxrADCAlignmentErr = -12,        /**< The unit's converter clocks are not aligned. */
    hxrMultiReceiverErr = -11,       /**< Not to be done on a member of a group, or the group is full. */
    hxrDataSyncErr = -10,            /**< The unit's status could not be read, or what came is no status. */
    hxrFlashIOErr = -9,              /**< Reading or writing the unit's flash failed. */
    hxrInvalidParameterErr = -8,     /**< A value outside the set that the entry takes. */
    hxrInvalidConfigurationErr = -7, /**< The present state doesn't allow the operation. */
    hxrMemoryAllocationErr = -6,     /**< The system has no memory or threads left. */
    hxrMaxDevicesConnectedErr = -5,  /**< Four units are open already. */
    hxrInvalidDeviceErr = -4,        /**< The handle belongs to no open unit. */
    hxrNullPointerErr = -3,          /**< A pointer that is needed is null. */
    hxrConnectionLostErr = -2, /**< The unit stopped answering. Only closing and connecting anew helps. */
    hxrDeviceNotFoundErr = -1, /**< The link could not be opened. */
    hxrNoError = 0,            /**< All is well. */
    hxrSettingClamped = 1,     /**< The nearest limit was taken in place of the value. */
    hxrADCOverflow = 2,        /**< An input was driven beyond its converter's range. */
    hxrUncalData = 3,          /**< Samples may have been lost. */
    hxrTempDriftWarning = 4,   /**< The unit's temperature has moved since hxrInitiate. */
    hxrDDRBufferOverflow = 5,  /**< The unit's sample memory overflowed. */
    hxrCalChecksumFailed = 6   /**< The calibration data fail their checksum; the unit is open and usable. */
};

/** @} */

/**
 * @defgroup calibration_image Calibration image
 *
 * The factory data of a unit as one flat image of 8 MiB, least significant byte first: the content of the unit's
 * flash, of the cache files on the host, and of the file that hxrCalLoadFromFile reads. Bytes that were never written
 * are 0xFF: a 16-bit value of 0xFFFF, a 64-bit value of all ones and a float whose bits are all ones mean "absent".
 *
 * Axes: temperature index 0 to 6, nominally -30 to 60 degrees Celsius in steps of 15; channel 0 to 3; attenuator index
 * 0 to 6 in steps of 5 dB; frequency index k 0 to 513, for a tuned centre frequency of k * 39.0625 - 23.4375 MHz;
 * response point 0 to 25.
 * @{
 */

/** Tuning data of the synthesizers: the bytes that a synthesizer reads back after it has tuned itself. */
typedef struct HXRCBBData {
    uint8_t reserved[4];             /**< only looked at to find out whether there is anything */
    uint8_t cbbLowTable[3][5][513];  /**< plane, table, point: 2000 to 4000 MHz in steps of 3.90625 MHz */
    uint8_t cbbHighTable[3][4][705]; /**< plane, table, point: 5500 to 11000 MHz in steps of 7.8125 MHz */
    uint8_t unused[0x40000 - 16159]; /**< 0xFF */
} HXRCBBData;

/** The whole calibration image: tuning data, pretest section and chamber section. */
typedef struct HXRCalData {
    HXRCBBData cbb; /**< from 0x000000: tuning data of the synthesizers */

    /* Pretest section, from 0x040000. */
    int16_t
        loftI[4][370]; /**< channel, k - 144: LO feed-through offset of the first rail; the first value is the
                                  section's presence mark */
    int16_t loftQ[4][370]; /**< the same for the second rail */
    float vsgLevel[514]
                  [8];   /**< k, attenuator step: generator output level; 1000.0 in the first means no data */
    float vsgGain[514];  /**< generator I/Q gain ratio */
    float vsgPhase[514]; /**< generator I/Q phase skew in radians */
    float vsgOffsetI[514];                    /**< generator DC offset, I */
    float vsgOffsetQ[514];                    /**< generator DC offset, Q */
    uint8_t pretestUnused[0x80000 - 0x47780]; /**< 0xFF */

    /* Chamber section, from 0x080000. */
    uint32_t reserved0[2];       /**< part of the section's header */
    uint32_t serialNumber;       /**< of the unit */
    uint32_t reserved1;          /**< part of the section's header */
    uint64_t calDate;            /**< date of the calibration; all ones means no chamber data */
    uint32_t reserved2;          /**< part of the section's header */
    uint32_t checksum;           /**< of the chamber section */
    uint16_t coarseTuneLog[64];  /**< history of timebase values, oldest first; the first 0xFFFF ends it */
    uint64_t coarseTuneDate[64]; /**< time of each of these, seconds */
    int16_t coarseTuneByTemp[7]; /**< temperature: offset of the timebase value */
    uint8_t reserved3[2];        /**< 0xFF */
    float tempAtIndex[7];        /**< measured temperature of each index, degrees Celsius, rising */
    uint8_t channelGainCode[4][514]; /**< channel, k: code for the channel's gain register */
    float gainTable[7][4][7][514];   /**< temperature, channel, attenuator, k: level correction in dB */
    float
        fullGridRatio[7][4][514]
                     [26]; /**< temperature, channel, k, point: amplitude of the second rail over the first */
    float fullGridPhase
        [7][4][514]
        [26]; /**< temperature, channel, k, point: phase of the second rail less the first, radians */
    float fullGridLevel[7][4][514][26]; /**< temperature, channel, k, point: gain of both rails in dB */
    float lowGridRatio[7][4][150][26];  /**< as fullGridRatio, for the low path */
    float lowGridPhase[7][4][150][26];  /**< as fullGridPhase, for the low path */
    float lowGridLevel[7][4][150][26];  /**< as fullGridLevel, for the low path */
    float phasePairTable[4][514][2];    /**< channel, k: a pair of phases in radians */
    uint8_t chamberUnused[0x800000 - 0x66F434]; /**< 0xFF */
} HXRCalData;

/** @} */

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @defgroup connection_and_identity Connection and identity
 * @{
 */

/**
 * Connects to a unit and brings it up.
 *
 * The first connect of a unit reads its calibration from the unit's flash and keeps a copy on this host; later ones
 * use the copy as long as it is up to date. Bringing the unit up takes 0.8 seconds, in which its chips settle.
 *
 * @param handle      receives 0 to 3, to be used in all other entries
 * @param hostAddr    IPv4 address of this host's interface to the unit, dotted decimal
 * @param deviceAddr  IPv4 address of the unit, dotted decimal
 * @param port        UDP port of the control link at both ends, 1 to 65535 but not 4991, on which samples come
 *
 * @return hxrNoError, or hxrCalChecksumFailed with a usable unit;
 *         hxrNullPointerErr if a pointer is null; hxrMaxDevicesConnectedErr if four units are open;
 *         hxrDeviceNotFoundErr if an address is no dotted quad or the link can't be opened;
 *         hxrConnectionLostErr if the unit doesn't answer, which takes four seconds to tell;
 *         hxrInvalidConfigurationErr for port 4991; hxrDataSyncErr if the unit's status at the end doesn't come or is
 *         no status record; hxrADCAlignmentErr if its converter clocks are not aligned; hxrMemoryAllocationErr. After
 *         an error nothing is left open and *handle is as it was.
 */
HXR_API HXRStatus hxrConnectDevice(int* handle, const char* hostAddr, const char* deviceAddr, uint16_t port);

/**
 * Connects to a further unit and ties it to the group of which `handle` is the master.
 *
 * From then on the master's settings cover the new unit's four channels, which are numbered behind those that the
 * group had. The new unit has no handle of its own; it is closed with its master.
 *
 * @param handle  the master, which must be idle
 * @return as hxrConnectDevice, and hxrInvalidDeviceErr for a bad handle; hxrMultiReceiverErr if `handle` is itself a
 *         member of another unit's group or its group has four units; hxrInvalidConfigurationErr if the master is
 *         initiated. After an error the group is unchanged.
 */
HXR_API HXRStatus hxrPairDevice(int handle, const char* hostAddr, const char* deviceAddr, uint16_t port);

/**
 * Stops whatever runs on a unit or group, closes it and frees its handle. Works also after the link was lost.
 *
 * @return hxrInvalidDeviceErr for a bad handle; hxrMultiReceiverErr for a group member that is not the master
 */
HXR_API HXRStatus hxrCloseDevice(int handle);

/** Gives the unit's serial number. @return hxrInvalidDeviceErr, hxrNullPointerErr */
HXR_API HXRStatus hxrGetSerialNumber(int handle, int* serial);

/**
 * Gives the unit's firmware versions: `first` and `second` both the first version field, `third` the second.
 * @return hxrInvalidDeviceErr, hxrNullPointerErr if any pointer is null
 */
HXR_API HXRStatus hxrGetFirmwareVersion(int handle, int* first, int* second, int* third);

/**
 * Gives the date of the calibration in use, its low 32 bits; all ones for a unit without calibration.
 * @return hxrInvalidDeviceErr, hxrNullPointerErr
 */
HXR_API HXRStatus hxrGetCalDate(int handle, uint32_t* date);

/** Gives the number of channels: four for each unit of the group. @return hxrInvalidDeviceErr, hxrNullPointerErr */
HXR_API HXRStatus hxrGetChannelCount(int handle, int* count);

/** The version of this library, "1.0.0"; a constant text. */
HXR_API const char* hxrGetAPIVersion(void);

/** The text of a status, "Unknown error" for a number that is none; a constant text. */
HXR_API const char* hxrGetErrorString(HXRStatus status);

/** @} */

/**
 * @defgroup health_fan_and_low_power Health, fan and low power
 *
 * Health comes from the unit's status, which is read anew if the last one is older than a second and no sweep is
 * under way; so polling faster costs nothing and gives the same values. The entry waits for that status, up to four
 * seconds from a unit that has stopped answering. A status that is none leaves the last values and is no error.
 * @{
 */

/**
 * Gives the supply voltage and the second rail in volts and the FPGA's temperature in degrees Celsius.
 *
 * @param supply, rail, temperature  each may be null
 * @return hxrInvalidDeviceErr; hxrConnectionLostErr, with nothing written
 */
HXR_API HXRStatus hxrGetDeviceDiagnostics(int handle, float* supply, float* rail, float* temperature);

/**
 * Gives eleven health values: supply voltage, second, first and third rail in volts; temperatures of the FPGA, of
 * sensors C, A and B in degrees Celsius; three readings without a unit.
 *
 * @param diagnostics  room for 11 values
 * @return hxrInvalidDeviceErr; hxrNullPointerErr; hxrConnectionLostErr, with the last values written
 */
HXR_API HXRStatus hxrGetFullDeviceDiagnostics(int handle, float* diagnostics);

/**
 * Puts all units of an idle group to rest: synthesizers and generator off. The next hxrInitiate wakes them.
 *
 * @return hxrInvalidDeviceErr; hxrInvalidConfigurationErr if the group is initiated; hxrConnectionLostErr if the
 *         link of the handle's own unit is lost. A slave whose link is lost ends the walk over the group, and its
 *         status shows in the entries that ask that unit.
 */
HXR_API HXRStatus hxrSetLowPowerState(int handle);

/**
 * Switches the fan of all units of an idle group: 1 on, anything else off.
 * @return hxrInvalidDeviceErr; hxrMultiReceiverErr on a group member that is not the master;
 *         hxrInvalidConfigurationErr if the group is initiated; hxrConnectionLostErr if a unit's link is lost, with
 *         the units behind it not told
 */
HXR_API HXRStatus hxrSetFanEnabled(int handle, unsigned on);

/** Gives 1 if the fan is switched on, else 0. @return hxrInvalidDeviceErr, hxrNullPointerErr */
HXR_API HXRStatus hxrGetFanEnabled(int handle, unsigned* on);

/**
 * Sets the temperature from which the fan of all units of an idle group cools, 5 to 60 degrees Celsius.
 * @return as hxrSetFanEnabled; hxrSettingClamped if a limit was taken; hxrInvalidParameterErr for a NaN
 */
HXR_API HXRStatus hxrSetFanSetPoint(int handle, float degrees);

/** Gives the fan's set point in degrees Celsius. @return hxrInvalidDeviceErr, hxrNullPointerErr */
HXR_API HXRStatus hxrGetFanSetPoint(int handle, float* degrees);

/** @} */

/**
 * @defgroup channels Channels
 *
 * The channels of a group are numbered from 0: channel c is input c % 4 of the unit that was paired at position c / 4,
 * the master being position 0. All their settings belong to the master's handle. A setting counts from the next
 * hxrInitiate on; what runs keeps what it began with.
 *
 * A channel that the group doesn't have is hxrInvalidParameterErr. A physical quantity out of range is set to its
 * nearest limit and reported with hxrSettingClamped, infinities too; a NaN is hxrInvalidParameterErr.
 * @{
 */

/**
 * Enables channels of an idle group: one that sweeps, the focus channel, and any number that stream.
 *
 * @param enabled  a value for each channel of the group, as hxrGetChannelCount tells: 0 off, anything else on. New
 *                 units have all channels off.
 * @param focus    the enabled channel that sweeps; -1, or any number that is no enabled channel: none sweeps
 * @return hxrInvalidDeviceErr; hxrNullPointerErr; hxrInvalidConfigurationErr while initiated
 */
HXR_API HXRStatus hxrSetChannelConfig(int handle, const int* enabled, int focus);

/**
 * Gives what hxrSetChannelConfig made of its arguments.
 *
 * @param enabled  receives 0 or 1 for each channel of the group; may be null
 * @param focus    receives the channel that sweeps, -1 for none; may be null
 * @return hxrInvalidDeviceErr
 */
HXR_API HXRStatus hxrGetChannelConfig(int handle, int* enabled, int* focus);

/**
 * Lets a streaming channel take the frequency, and with it the synthesizer, that such channels share.
 *
 * @param shared  1 the shared frequency, 0 the channel's own, which is the default
 * @return hxrInvalidDeviceErr; hxrInvalidParameterErr for another value or channel
 */
HXR_API HXRStatus hxrSetChannelShared(int handle, int channel, int shared);

/**
 * Gives 1 if the channel takes the shared frequency, else 0; always 0 for a channel that is off or sweeps.
 *
 * @param shared  if null, only the channel is checked
 * @return hxrInvalidDeviceErr; hxrInvalidParameterErr
 */
HXR_API HXRStatus hxrGetChannelShared(int handle, int channel, int* shared);

/**
 * Sets the frequency that a channel streams at on its own: 100 kHz to 20 GHz, in Hz; 1 GHz at first.
 * @return hxrInvalidDeviceErr; hxrInvalidParameterErr; hxrSettingClamped
 */
HXR_API HXRStatus hxrSetChannelFreq(int handle, int channel, double hz);

/**
 * Gives a channel's own frequency in Hz.
 *
 * @param hz  if null, only the channel is checked
 * @return hxrInvalidDeviceErr; hxrInvalidParameterErr
 */
HXR_API HXRStatus hxrGetChannelFreq(int handle, int channel, double* hz);

/**
 * Turns the phase of a channel's samples, in radians; any finite number of turns. 0 at first.
 * @return hxrInvalidDeviceErr; hxrInvalidParameterErr, also for an infinite phase
 */
HXR_API HXRStatus hxrSetChannelPhaseOffset(int handle, int channel, double radians);

/**
 * Gives a channel's phase offset as it is kept: negated, and from 0 up to, not including, 2 pi radians. So an offset
 * of 1.0 reads 2 pi - 1.0.
 * @return hxrInvalidDeviceErr; hxrNullPointerErr; hxrInvalidParameterErr
 */
HXR_API HXRStatus hxrGetChannelPhaseOffset(int handle, int channel, double* radians);

/**
 * Delays a channel's samples by -25 to 25 ns, in seconds. 0 at first.
 * @return hxrInvalidDeviceErr; hxrInvalidParameterErr; hxrSettingClamped
 */
HXR_API HXRStatus hxrSetChannelDelay(int handle, int channel, double seconds);

/** Gives a channel's delay in seconds. @return hxrInvalidDeviceErr, hxrNullPointerErr, hxrInvalidParameterErr */
HXR_API HXRStatus hxrGetChannelDelay(int handle, int channel, double* seconds);

/**
 * Sets the frequency of all channels that share one, and of the generator: 100 kHz to 20 GHz, in Hz; 1 GHz at first.
 * @return hxrInvalidDeviceErr; hxrInvalidParameterErr for a NaN; hxrSettingClamped
 */
HXR_API HXRStatus hxrSetSharedFreq(int handle, double hz);

/** Gives the shared frequency in Hz; nothing for a null pointer. @return hxrInvalidDeviceErr */
HXR_API HXRStatus hxrGetSharedFreq(int handle, double* hz);

/** @} */

/**
 * @defgroup stream_settings Stream settings
 *
 * They belong to the master's handle and count from the next hxrInitiate on, but for hxrSetStreamMode,
 * hxrSetStreamLocalAddr and hxrSetStreamVrtAddr, which tell the units at once. They have no getters. A selector out of
 * its set is hxrInvalidParameterErr and changes nothing; a bad handle is hxrInvalidDeviceErr everywhere.
 * @{
 */

/**
 * Sets the form of samples that come to this host.
 * @param type  0 interleaved 16-bit I and Q, the default; 1 interleaved floats
 * @return hxrInvalidParameterErr
 */
HXR_API HXRStatus hxrSetStreamDataType(int handle, unsigned type);

/**
 * Sets the scale of float samples.
 * @param on  1: full scale is 1.0; 0, the default: samples come at their calibrated level
 * @return hxrInvalidParameterErr
 */
HXR_API HXRStatus hxrSetStreamFullScale(int handle, unsigned on);

/**
 * Sets the level in dBm that the receiver is set up for where the attenuator is automatic; -20 at first. Any number is
 * taken: the attenuator has its least value up to -20 dBm, its greatest above 5 dBm, and for what is no number too.
 */
HXR_API HXRStatus hxrSetStreamRefLevel(int handle, double dBm);

/**
 * Sets the attenuator in steps of 5 dB, 0 to 6, or -1 for automatic by the reference level. 0 at first.
 * @return hxrInvalidParameterErr
 */
HXR_API HXRStatus hxrSetStreamAtten(int handle, int atten);

/**
 * Sets the sample rate: 50 MS/s divided by a power of two, 1 to 256. 1 at first. The unit divides by up to 4, this host
 * by what remains; VRT packets stay at the unit's rate. A bandwidth that was narrowed for a lower rate is to be set again.
 * @return hxrInvalidParameterErr
 */
HXR_API HXRStatus hxrSetStreamSampleRate(int handle, int decimation);

/**
 * Sets the bandwidth, 20 kHz to 40 MHz, in Hz; 40 MHz at first. hxrInitiate narrows it to 0.8 of the sample rate; so
 * narrowed it stays, also for a higher rate, until it is set again.
 * @return hxrInvalidParameterErr for a NaN; hxrSettingClamped
 */
HXR_API HXRStatus hxrSetStreamBandwidth(int handle, double hz);

/** Sets the edge of the trigger line that counts: 0 rising, the default; 1 falling. @return hxrInvalidParameterErr */
HXR_API HXRStatus hxrSetStreamTriggerEdge(int handle, unsigned edge);

/**
 * Leads the streams of an idle group to this host or, as VRT packets, to receivers of their own. The units are told at
 * once.
 *
 * @param mode  0 this host, where every unit begins; 1 the destinations set by hxrSetStreamVrtAddr
 * @return hxrInvalidParameterErr; hxrInvalidConfigurationErr while initiated or while a unit that is to change is in use;
 *         hxrConnectionLostErr if a unit's link is lost, with that unit and those behind it left as they were
 */
HXR_API HXRStatus hxrSetStreamMode(int handle, unsigned mode);

/**
 * Moves the data socket of one unit of a group to another UDP port, at both ends; 4991 at first. The unit is told
 * at once, and with VRT destinations in force its streams are led back to this host. Not while the group streams.
 *
 * @param unit  position in the group, 0 the master
 * @return hxrInvalidParameterErr for a position outside; hxrInvalidConfigurationErr while the group streams or the unit is in
 *         use, with nothing done;
 *         hxrInvalidConfigurationErr too for the port of the control link and on a lost link, with the port kept, the
 *         unit told if it can be, and the socket as it was
 */
HXR_API HXRStatus hxrSetStreamLocalAddr(int handle, int unit, uint16_t port);

/**
 * Sets where the VRT packets of a channel go; 192.168.2.2, port 4991 and no hardware address at first. A unit with VRT
 * destinations in force is told at once, another when hxrSetStreamMode calls for them.
 *
 * @param channel  of the group
 * @param address  IPv4 address, dotted decimal; not checked: what is no address sends to nowhere
 * @param port     UDP port
 * @param mac      hardware address in the low 48 bits, first byte highest; not looked up
 * @return hxrNullPointerErr; hxrInvalidParameterErr for a channel outside; hxrInvalidConfigurationErr while the group
 *         streams or, with VRT destinations in force, while the unit is in use; hxrConnectionLostErr if the unit could not
 *         be told, with the destination kept
 */
HXR_API HXRStatus hxrSetStreamVrtAddr(int handle, int channel, const char* address, uint16_t port,
                                      uint64_t mac);

/**
 * Sets the stream identifier in the VRT packets of a channel; channel + 1 at first.
 *
 * @param id  0 or more
 * @return hxrInvalidParameterErr, also for an identifier that a channel of the group has, be it the same channel
 */
HXR_API HXRStatus hxrSetStreamVrtChannelID(int handle, int channel, int id);

/**
 * Sets how often VRT context packets go out.
 *
 * @param enabled   1, the default: context packets at the interval; 0: none, and the interval is forgotten
 * @param interval  3 to 4095, 63 at first; looked at only if enabled
 * @return hxrInvalidParameterErr
 */
HXR_API HXRStatus hxrSetStreamVrtCntxInterval(int handle, int enabled, int interval);

/** Sets the order of bytes in VRT samples: 0 big-endian, the default; 1 little-endian. @return hxrInvalidParameterErr */
HXR_API HXRStatus hxrSetStreamVrtEndianness(int handle, unsigned endianness);

/**
 * Tells what the stream to this host has become; each pointer may be null.
 *
 * @param channelCount  channels that stream
 * @param sampleRate    of each, samples a second
 * @param bandwidth     in Hz, perhaps less than was set: a rate carries 80 percent of itself
 * @return hxrInvalidDeviceErr; hxrInvalidConfigurationErr without a stream to this host
 */
HXR_API HXRStatus hxrStreamParameters(int handle, int* channelCount, double* sampleRate, double* bandwidth);

/**
 * Waits for the next `count` samples of all streaming channels, of one and the same instant on all of them.
 *
 * The library keeps 2^24 samples of each channel, a third of a second at 50 MS/s. If they are fetched later, all of them
 * are lost, and `sampleLoss` says so. One thread at a time: another one gets hxrInvalidConfigurationErr. hxrAbort ends the
 * wait.
 *
 * @param buffers           one for each streaming channel, lowest first, with room for `count` samples: pairs of 16-bit
 *                          integers, or of floats whose squared magnitude is the power in mW, or with full scale 1.0
 * @param count             0 or more, also more than the library keeps
 * @param nanoseconds       receives the time of the first sample, since 1970 in UTC once GPS has told it; may be null;
 *                          left as it is by a call for no samples
 * @param purge             1 first throws away all that is kept, and the warnings that are told once, but not
 *                          `sampleLoss`
 * @param sampleLoss        receives 1 if kept samples were lost since the last call, else 0; may be null. The gap lies
 *                          before, within or right behind the samples of this call.
 * @param samplesRemaining  receives how many samples of each channel are left; may be null
 * @param triggers          receives the places of triggers, counted from the first sample, perhaps with a fraction; -1.0
 *                          behind the last one. May be null if `triggerBufSize` is 0.
 * @param triggerBufSize    room for triggers; further ones are dropped
 * @return hxrInvalidDeviceErr; hxrInvalidConfigurationErr without a stream to this host, or if it is aborted meanwhile;
 *         hxrInvalidParameterErr for a negative size; hxrNullPointerErr; hxrConnectionLostErr if a unit stopped answering: what had come before is in
 *         the buffers, zeros behind. With all samples in the buffers, the first that is true of hxrDDRBufferOverflow,
 *         for the rest of the stream; hxrConnectionLostErr, likewise; hxrUncalData, once; hxrADCOverflow, once
 */
HXR_API HXRStatus hxrStreamRecv(int handle, void** buffers, int count, uint64_t* nanoseconds, int purge,
                                int* sampleLoss, int* samplesRemaining, double* triggers, int triggerBufSize);

/**
 * What a stream to this host has counted on one unit since it was started. Counts of the host's ring are those of the whole
 * group. "Position" is samples of each channel at the output rate since the start, lost ones included.
 */
typedef struct HXRStreamStatistics {
    uint64_t size;           /**< in: bytes of the caller's structure; out: bytes that were written */
    uint64_t datagrams;      /**< datagrams received, of any kind */
    uint64_t contextPackets; /**< context packets among them */
    uint64_t samples;        /**< samples of each channel received, at the unit's rate */
    uint64_t duplicates;     /**< datagrams that came twice, and were dropped */
    uint64_t outOfOrder; /**< datagrams that came behind a later one; dropped if their samples were past */
    uint64_t
        samplesLost; /**< samples of each channel lost before this host, by the time stamps, at the unit's rate */
    uint64_t samplesDiscarded; /**< samples of each channel lost in the host's ring, at the output rate */
    uint64_t overruns;         /**< times that the ring was full and was emptied */
    uint64_t adcOverflows;     /**< sample packets that report an overdriven converter */
    uint64_t ringPeak;         /**< most samples of a channel that the ring held at a time; it holds 2^24 */
    uint64_t longestGapNs;     /**< longest time between two collected requests, nanoseconds */
    uint64_t lastLossPosition; /**< position of the last loss, of either kind; all ones if there was none */
    uint64_t lastLossTime;     /**< time of that sample, nanoseconds since 1970; 0 if there was none */
} HXRStreamStatistics;

/**
 * Gives the statistics of the stream that runs or, behind its end, of the last one. May be called beside hxrStreamRecv.
 *
 * @param unit        position in the group, 0 the master
 * @param statistics  `size` is to be set to the size of the structure: later versions may have more fields, and a caller
 *                    gets those that it knows
 * @return hxrInvalidDeviceErr; hxrNullPointerErr; hxrInvalidParameterErr for a position outside the group or a size below
 *         8; hxrInvalidConfigurationErr if no stream to this host was started since the unit was opened
 */
HXR_API HXRStatus hxrGetStreamStatistics(int handle, int unit, HXRStreamStatistics* statistics);

/**
 * Gives the linear factor that brings the full-scale samples of a streaming channel to their calibrated level, as
 * the last hxrInitiate found it. Works with streams to this host and with VRT. It is exact on channels at the shared
 * frequency; on others as far as the unit's gain is set alike at both frequencies.
 *
 * @return hxrInvalidDeviceErr; hxrNullPointerErr; hxrInvalidConfigurationErr if the group isn't initiated with a
 *         stream; hxrInvalidParameterErr for a channel that doesn't stream
 */
HXR_API HXRStatus hxrStreamCorrection(int handle, int channel, float* correction);

/** @} */

/**
 * @defgroup sweep_settings Sweep settings
 *
 * They belong to the master's handle and count from the next hxrInitiate on. They have no getters. A selector out of
 * its set is hxrInvalidParameterErr and changes nothing; physical quantities are set to their nearest limit, with
 * hxrSettingClamped, and a NaN is hxrInvalidParameterErr; a bad handle is hxrInvalidDeviceErr everywhere.
 * @{
 */

/** Sets the reference level in dBm, as hxrSetStreamRefLevel does for streams. -20 at first. */
HXR_API HXRStatus hxrSetSweepRefLevel(int handle, double dBm);

/**
 * Sets the attenuator in steps of 5 dB, 0 to 6, or -1 for automatic by the reference level. -1 at first.
 * @return hxrInvalidParameterErr
 */
HXR_API HXRStatus hxrSetSweepAtten(int handle, int atten);

/**
 * Sets the range of the sweep by its centre and span in Hz; 10 GHz and 1 GHz at first. The same as hxrSetSweepStartStop
 * with the edges that follow.
 * @return hxrInvalidParameterErr also if centre and span give no number; hxrSettingClamped
 */
HXR_API HXRStatus hxrSetSweepCenterSpan(int handle, double center, double span);

/**
 * Sets the range of the sweep by its edges in Hz, within 100 kHz to 20 GHz and at least 100 Hz apart. Too small a span
 * moves the stop up, or the start down where the range ends.
 * @return hxrInvalidParameterErr for a NaN; hxrSettingClamped
 */
HXR_API HXRStatus hxrSetSweepStartStop(int handle, double start, double stop);

/**
 * Sets resolution and duration.
 *
 * @param rbw   resolution bandwidth, 100 Hz to 10 MHz, in Hz; 10 kHz at first
 * @param vbw   video bandwidth, the same range, in Hz; 10 kHz at first
 * @param time  1 us to 1 s, in seconds; 1 ms at first
 * @return hxrInvalidParameterErr if any is a NaN, with none set; hxrSettingClamped if a limit was taken for any
 */
HXR_API HXRStatus hxrSetSweepCoupling(int handle, double rbw, double vbw, double time);

/**
 * Sets how the spectra taken at one frequency become one.
 *
 * @param detector    0 their average; 1 or 2 the greatest of a running average. 2 at first.
 * @param videoUnits  what is averaged: 0 decibels, 1 voltage, 2 power, the default; 3 a sample: the power of the first
 *                    spectrum alone, whatever the detector
 * @return hxrInvalidParameterErr, with neither set
 */
HXR_API HXRStatus hxrSetSweepDetector(int handle, unsigned detector, unsigned videoUnits);

/**
 * Sets the units of the trace.
 * @param scale  0 dBm, the default; 1 millivolts across 50 ohms; 2 dB of full scale, without level correction
 * @return hxrInvalidParameterErr
 */
HXR_API HXRStatus hxrSetSweepScale(int handle, unsigned scale);

/**
 * Sets the window of the transform.
 * @param window  0 flat top, the default; 1 Nuttall; 2 confined Gaussian
 * @return hxrInvalidParameterErr
 */
HXR_API HXRStatus hxrSetSweepWindow(int handle, unsigned window);

/** @} */

/**
 * @defgroup generator_settings Generator settings
 *
 * The generator of the master unit plays a pattern over and over, at its shared frequency, from hxrInitiate to hxrAbort.
 * Its settings count from the next hxrInitiate on, which also corrects the pattern for what the unit's modulator does
 * wrong at that frequency. Below 45 MHz there is no synthesizer to follow: the generator stays around 1 GHz. The settings
 * have no getters; a bad handle is hxrInvalidDeviceErr everywhere.
 * @{
 */

/** Lets the next hxrInitiate start the generator: 0 no, the default; anything else yes. hxrAbort stops it, this doesn't. */
HXR_API HXRStatus hxrSetVSGEnabled(int handle, int on);

/**
 * Sets the output level of a pattern of full amplitude, -80 to 10 dBm. Levels above what the unit reaches, as its
 * calibration tells, drive the modulator further than it was measured, up to twice in amplitude; beyond that they clip.
 * Until a level is set, the unit's attenuator and half amplitude give it.
 *
 * @return hxrInvalidParameterErr for a NaN; hxrSettingClamped; hxrInvalidConfigurationErr for a level in range on a
 *         unit without generator calibration, with the level set all the same
 */
HXR_API HXRStatus hxrSetVSGLevel(int handle, double dBm);

/**
 * Sets the pattern, played at 125 MS/s; full scale is 1.0. A plain carrier at first. What turns forward in it, above 0 Hz,
 * comes out below the shared frequency.
 *
 * @param samples  `count` complex samples, I then Q; copied
 * @param count    16 to 4096, a multiple of 16
 * @param type     0 of 16 bits, 32768 being full scale; 1 of floats
 * @return hxrNullPointerErr; hxrInvalidParameterErr for another count or type
 */
HXR_API HXRStatus hxrSetVSGPattern(int handle, const void* samples, int count, unsigned type);

/** @} */

/**
 * @defgroup acquisition Acquisition
 *
 * Settings reach the receiver at hxrInitiate, all at once. Both entries act on a master with all its slaves, and must
 * not overlap any other entry with the same handle.
 * @{
 */

/**
 * Applies all settings: routes the channels of every unit, aligns the units with each other, brings corrections and
 * timebase to the present temperature, and starts what is enabled. From then on settings that would disturb it are
 * refused. A group that is initiated is aborted first, its synthesizers switched off.
 *
 * A link that is lost on the way is not reported here: the next entry that reports the link does.
 *
 * @return hxrNoError, also with nothing enabled; hxrInvalidDeviceErr; hxrInvalidConfigurationErr for a sweep without
 *         its channel, or while another call is using a unit of the group; hxrMemoryAllocationErr, with nothing started
 */
HXR_API HXRStatus hxrInitiate(int handle);

/**
 * Ends all acquisition and stops the generator: the group is idle. Unless hxrAdminSetDisableLOOnAbort says otherwise the
 * synthesizers are switched off. A sweep that was started and not finished ends without its result.
 *
 * @return hxrNoError, at once and without any traffic on an idle group; hxrInvalidDeviceErr; hxrInvalidConfigurationErr
 *         while another call is using a unit of the group, with nothing changed; hxrConnectionLostErr if the master's link
 *         is lost, with the group idle all the same
 */
HXR_API HXRStatus hxrAbort(int handle);

/** @} */

/**
 * @defgroup swept_spectra Swept spectra
 *
 * hxrInitiate with a focus channel makes a plan; each sweep then takes one trace with it. The unit that sweeps is busy
 * from hxrSweepStart to hxrSweepFinish: health and GPS are then told from its last status. hxrSweepFinish may be called
 * by another thread than hxrSweepStart.
 * @{
 */

/**
 * Tells what the plan has made of the settings: point i of a trace stands for startFreq + i binSize.
 *
 * @param actualRBW, actualVBW, startFreq, binSize  in Hz; each may be null
 * @param sweepSize                                 points of a trace; may be null
 * @return hxrInvalidDeviceErr; hxrInvalidConfigurationErr if no sweep is configured
 */
HXR_API HXRStatus hxrSweepGetParameters(int handle, double* actualRBW, double* actualVBW, double* startFreq,
                                        double* binSize, int* sweepSize);

/**
 * Starts a sweep and returns at once. It must be finished, whatever comes of it.
 *
 * @return hxrInvalidDeviceErr; hxrInvalidConfigurationErr if no sweep is configured; hxrSweepAlreadyStartedErr;
 *         hxrMemoryAllocationErr, with nothing started
 */
HXR_API HXRStatus hxrSweepStart(int handle);

/**
 * Waits for the end of a started sweep and gives its trace, in the units of hxrSetSweepScale.
 *
 * @param sweep  room for as many values as hxrSweepGetParameters tells; may be null
 * @return hxrInvalidDeviceErr; hxrSweepNotStartedErr; hxrConnectionLostErr, with a trace that means nothing;
 *         hxrDataSyncErr, hxrADCAlignmentErr and, as warnings, hxrADCOverflow and hxrTempDriftWarning, each with the
 *         trace as it was taken
 */
HXR_API HXRStatus hxrSweepFinish(int handle, float* sweep);

/** Takes a whole sweep: hxrSweepStart, then hxrSweepFinish. */
HXR_API HXRStatus hxrGetSweep(int handle, float* sweep);

/** @} */

/**
 * @defgroup gps_and_timebase GPS and timebase
 *
 * All entries act on the handle's own unit. A unit's timebase is set by a DAC from the factory's temperature table and
 * a coarse tune. With hxrSetGPSTimebaseUpdate on and a good fix the unit disciplines the DAC itself; where it goes is
 * remembered on this host, so that the next connect starts close to it, with GPS or without.
 * @{
 */

/**
 * Chooses the timebase's reference: 0 internal, 1 external.
 * @return hxrInvalidDeviceErr; hxrInvalidParameterErr; hxrInvalidConfigurationErr if the unit is initiated;
 *         hxrConnectionLostErr
 */
HXR_API HXRStatus hxrSetReference(int handle, unsigned ref);

/** Gives the reference in use. @return hxrInvalidDeviceErr, hxrNullPointerErr */
HXR_API HXRStatus hxrGetReference(int handle, unsigned* ref);

/** Lets the unit discipline its timebase to GPS (1) or not (0, as after connect). @return as hxrSetReference */
HXR_API HXRStatus hxrSetGPSTimebaseUpdate(int handle, unsigned on);

/** Gives 1 if the unit may discipline its timebase to GPS, else 0. @return hxrInvalidDeviceErr, hxrNullPointerErr */
HXR_API HXRStatus hxrGetGPSTimebaseUpdate(int handle, unsigned* on);

/**
 * Tells whether the timebase started from a value that GPS has found, and when that was.
 *
 * @param usingHoldover  1 if this host's record is newer than the factory's last adjustment, else 0; may be null
 * @param lastTime       time of the record in seconds since 1970 UTC, 0 if there was none at connect; may be null
 * @return hxrInvalidDeviceErr
 */
HXR_API HXRStatus hxrGetGPSHoldoverInfo(int handle, int* usingHoldover, uint64_t* lastTime);

/**
 * Gives the state of GPS, from a new status unless the unit is in use: 0 no usable fix, 1 a good fix, 2 a good fix
 * with the unit disciplining its timebase. A good fix knows the time to better than 250 ns.
 *
 * @return hxrInvalidDeviceErr; hxrNullPointerErr; hxrConnectionLostErr, with the last known state written
 */
HXR_API HXRStatus hxrGetGPSState(int handle, int* state);

/**
 * Gives time and place of the last fix, whatever its quality; each output may be null.
 *
 * @param refresh              1: from a new status, unless the unit is in use; else from the last one
 * @param updated              1 if the status is another one than at the last call, for whichever unit that was
 * @param seconds              since 1970 UTC, of the second that begins next
 * @param latitude, longitude  degrees
 * @param altitude             metres
 * @return hxrInvalidDeviceErr; hxrConnectionLostErr, with the last known values written
 */
HXR_API HXRStatus hxrGetGPSInfo(int handle, int refresh, int* updated, uint64_t* seconds, double* latitude,
                                double* longitude, double* altitude);

/**
 * Sets one configuration value of the unit's GPS receiver, until it loses power. It is not answered: what the receiver
 * makes of it shows in later fixes.
 *
 * @param key    as the receiver's interface description lists it
 * @param size   width of the value in bytes, at most 8; below 1 no value goes out
 * @return hxrInvalidDeviceErr; hxrInvalidParameterErr; hxrInvalidConfigurationErr if the unit is initiated;
 *         hxrConnectionLostErr
 */
HXR_API HXRStatus hxrWriteMessageToGPS(int handle, uint32_t key, uint64_t value, int size);

/** @} */

/**
 * @defgroup network_configuration_over_usb Network configuration over USB
 *
 * Beside its network port a unit has a USB port, the only way to tell it its addresses. These entries have handles of
 * their own, 0 to 3: a unit may be open here, by its USB port, and connected there, by its network port, at once.
 *
 * A change of address takes hold in the unit at once; whoever is connected has to connect anew. A failed transfer makes
 * every later call with the handle answer hxrConnectionLostErr, until the unit is closed and opened again; what is wrong
 * with the arguments is said first. Calls from several threads wait for each other.
 *
 * Every entry with a handle returns hxrInvalidDeviceErr for one that belongs to no open unit and hxrConnectionLostErr.
 * @{
 */

/**
 * Lists the units on this machine's USB by their serial numbers, open ones among them.
 *
 * @param serials  receives the numbers
 * @param count    in: room in `serials`; out: the numbers written, at most 4
 * @return hxrNoError also if there is none; hxrNullPointerErr
 */
HXR_API HXRStatus hxrNetworkConfigGetDeviceList(int32_t* serials, int32_t* count);

/**
 * Opens the unit with a serial number, and waits up to 30 s until its FPGA is ready.
 *
 * @param handle  receives the handle; left as it is after an error
 * @return hxrNullPointerErr; hxrDeviceNotFoundErr; hxrMaxDevicesConnectedErr; hxrConnectionLostErr
 */
HXR_API HXRStatus hxrNetworkConfigOpenDevice(int32_t* handle, int32_t serial);

/** Closes a unit. */
HXR_API HXRStatus hxrNetworkConfigCloseDevice(int handle);

/**
 * Gives the unit's MAC address, such as 02:1B:C5:00:12:AF.
 * @param mac  18 characters
 * @return hxrNullPointerErr; hxrInvalidParameterErr if the unit's is none
 */
HXR_API HXRStatus hxrNetworkConfigGetMAC(int handle, char* mac);

/**
 * Sets the unit's IP address.
 *
 * @param ip       four numbers of at most 255 with dots between
 * @param persist  1: the unit starts up with it from now on, too; else: until it loses power
 * @return hxrNullPointerErr; hxrInvalidParameterErr for a text that is no address, with nothing sent
 */
HXR_API HXRStatus hxrNetworkConfigSetIP(int handle, const char* ip, int32_t persist);

/**
 * Gives the unit's IP address.
 * @param ip  16 characters
 * @return hxrNullPointerErr
 */
HXR_API HXRStatus hxrNetworkConfigGetIP(int handle, char* ip);

/** Sets the unit's UDP port, any number, as hxrNetworkConfigSetIP sets its address. */
HXR_API HXRStatus hxrNetworkConfigSetPort(int handle, int32_t port, int32_t persist);

/** Gives the unit's UDP port. @return hxrNullPointerErr */
HXR_API HXRStatus hxrNetworkConfigGetPort(int handle, int32_t* port);

/** @} */

#ifdef __cplusplus
} /* extern "C" */

/**
 * @defgroup cpp_groups C++ entries: groups
 * @{
 */

/**
 * Writes 1 to `count`, whatever the group's size; hxrGetChannelCount tells the size of a group.
 * @return hxrInvalidDeviceErr, hxrNullPointerErr
 */
HXR_API HXRStatus hxrGetPairedDevices(int handle, int* count);

/** @} */

/**
 * @defgroup cpp_service_of_synthesizers_and_timebase C++ entries: service of synthesizers and timebase
 * @{
 */

/**
 * Gives the lock flags of the synthesizers, one for each channel of the handle's unit, from a new status unless the
 * unit is in use.
 *
 * @param first, second  room for 4 values of 0 or 1; each may be null
 * @return hxrInvalidDeviceErr; hxrConnectionLostErr, with the last known flags written
 */
HXR_API HXRStatus hxrAdminGetLOLockFlags(int handle, int* first, int* second);

/**
 * Gives the timebase value without the part that follows temperature.
 * @return hxrInvalidDeviceErr, hxrNullPointerErr
 */
HXR_API HXRStatus hxrAdminGetCoarseTuneVal(int handle, uint16_t* value);

/**
 * Sets that value and sends it with the part for the present temperature.
 * @return hxrInvalidDeviceErr; hxrInvalidConfigurationErr if the unit is initiated; hxrConnectionLostErr
 */
HXR_API HXRStatus hxrAdminSetCoarseTuneVal(int handle, uint16_t value);

/**
 * Switches all synthesizers of the handle's unit off and loads the shared one, or the channels' high ones, or both.
 * @return hxrInvalidDeviceErr; hxrInvalidConfigurationErr while the unit is in use; hxrConnectionLostErr
 */
HXR_API HXRStatus hxrAdminInitFullBandLOs(int handle, bool initShared, bool initHigh);

/**
 * Loads the high synthesizers of the handle's unit and switches them off.
 * @return as hxrAdminInitFullBandLOs
 */
HXR_API HXRStatus hxrAdminReInitChans(int handle);

/**
 * Prepares the handle's unit for hxrAdminCBBReadback of its shared synthesizer: it is brought up anew so that it finds its
 * VCO settings by itself. It can't be tuned for sweeps, streams and captures then; hxrAdminInitFullBandLOs with
 * `initShared` makes it so again.
 * @return as hxrAdminInitFullBandLOs
 */
HXR_API HXRStatus hxrAdminConfigureForCBBReadback(int handle);

/**
 * Tunes a synthesizer of the handle's unit to a point of its table in HXRCBBData, waits 32 ms until it has found its VCO
 * setting, and reads that back: the three bytes which the factory stores at that point. For an idle unit; what was tuned
 * there is lost.
 *
 * A unit that has tuning data sets its channels' synthesizers from them and reads these back.
 *
 * @param shared   the shared synthesizer: cbbLowTable[...][4]; `low` doesn't count then
 * @param low      true: the channel's low one, cbbLowTable[...][channel]; false: its high one, cbbHighTable[...][channel]
 * @param channel  0 to 3, for the shared one as well
 * @param index    of the point, 0 or more; beyond the last, 512 or 704, the last counts
 * @param a, b, c  the bytes of the three planes; after an error as they were
 * @return hxrInvalidDeviceErr; hxrInvalidParameterErr; hxrInvalidConfigurationErr while the unit is in use;
 *         hxrConnectionLostErr; hxrDataSyncErr if the unit answers with something else than a status
 */
HXR_API HXRStatus hxrAdminCBBReadback(int handle, bool shared, bool low, int channel, int index,
                                      unsigned char& a, unsigned char& b, unsigned char& c);

/** Tells whether the unit has tuning data for its synthesizers. @return hxrInvalidDeviceErr, hxrNullPointerErr */
HXR_API HXRStatus hxrAdminHasCBBData(int handle, bool* has);

/**
 * Decides whether hxrAbort switches the synthesizers off, as it does at first, or leaves them tuned, which saves their
 * settling at the next hxrInitiate.
 * @return hxrInvalidDeviceErr
 */
HXR_API HXRStatus hxrAdminSetDisableLOOnAbort(int handle, bool disable);

/** Notes for the whole process that synthesizers are being calibrated. Nothing depends on it. May be called any time. */
HXR_API void hxrAdminSetLOCalMode(bool on) noexcept;

/** Gives what hxrAdminSetLOCalMode has noted, false at first. May be called any time. */
HXR_API bool hxrAdminIsLOCalMode() noexcept;

/**
 * Makes every plan from now on, of any unit, use one preselector band, 0 to 19, whatever the frequency. The number is
 * not checked.
 */
HXR_API HXRStatus hxrAdminSetPreselectorFilter(int band);

/** Lets the frequency decide on the preselector band again, as at load. */
HXR_API HXRStatus hxrAdminSetAutoPreselectorFilter(void);

/** @} */

/**
 * @defgroup cpp_service_of_corrections C++ entries: service of corrections
 *
 * They act on the corrections in use of the handle's own unit; its flash and this host's copy stay as they are. To be
 * called on an idle unit.
 * @{
 */

/**
 * Lets corrections follow the unit's temperature (false, at first) or stay at the index of hxrAdminSetCorrectionIndex,
 * from the next hxrInitiate on.
 * @return hxrInvalidDeviceErr
 */
HXR_API HXRStatus hxrAdminSetCorrectionMode(int handle, bool manual);

/**
 * Sets the temperature index, 0 to 6, for corrections that don't follow the temperature, from the next hxrInitiate on.
 * @return hxrInvalidDeviceErr; hxrSettingClamped
 */
HXR_API HXRStatus hxrAdminSetCorrectionIndex(int handle, int index);

/** Tells whether the corrections have a pretest section. @return hxrInvalidDeviceErr, hxrNullPointerErr */
HXR_API HXRStatus hxrAdminHasPretestCorrections(int handle, bool* has);

/**
 * Tells whether the corrections have chamber data.
 * @param has  may be null
 * @return hxrInvalidDeviceErr
 */
HXR_API HXRStatus hxrAdminHasChamberCorrections(int handle, bool* has);

/**
 * Makes all plans from now on cancel the LO feed-through by these offsets of the two rails, in place of the factory's. They
 * are not checked, and stay until the unit is closed.
 * @return hxrInvalidDeviceErr
 */
HXR_API HXRStatus hxrAdminSetLOFT(int handle, int i, int q);

/**
 * Takes the chamber section of an image in use, unchecked. Tuning data and pretest section stay.
 * @return hxrInvalidDeviceErr; hxrNullPointerErr; hxrInvalidConfigurationErr while the unit is in use
 */
HXR_API HXRStatus hxrAdminManualLoadCorrections(int handle, const HXRCalData* data);

/** @} */

/**
 * @defgroup cpp_raw_captures C++ entries: raw captures
 * @{
 */

/**
 * Tunes one channel of the handle's own unit and takes a short capture of raw samples, 50 MHz complex, as they come from
 * the mixer: what is at the LO comes out at 0 Hz. A channel's own synthesizer takes a step near `loHz`, exactly that at
 * multiples of 3.90625 MHz; above preselector band 16 it is the one at or below, 488.28125 kHz apart. In preselector
 * band 0, up to an LO of 68.4375 MHz, there is no mixer, and a signal comes out at its frequency and at its negative. Corrections are those of the last hxrInitiate.
 *
 * The channel stays tuned, so that a further call with `reconfigure` false captures the same again.
 *
 * @param channel          0 to 3, an input of the unit
 * @param fullBand         the channel is mixed by the shared synthesizer, not by its own
 * @param loHz             the LO in Hz; brought into 0 to 22 GHz
 * @param attenuatorIndex  0 to 6, 5 dB each
 * @param iq               receives blocks x 2048 pairs of floats, I then Q, 1.0 being the digitiser's full scale
 * @param blocks           1 to 255
 * @param reconfigure      false: nothing is tuned; fullBand, loHz and taps are not looked at
 * @param taps             63 pairs of floats, first rail then second, -1.0 to 1.0: the filter that the channel runs; null:
 *                         the one that its corrections ask for. Larger values are limited.
 * @return hxrInvalidDeviceErr; hxrNullPointerErr for iq; hxrInvalidParameterErr; hxrInvalidConfigurationErr while a sweep
 *         or a stream is configured, with nothing sent; hxrConnectionLostErr, with zeros for what has not come;
 *         hxrDataSyncErr, hxrADCAlignmentErr and, as warnings, hxrADCOverflow and hxrSettingClamped, for loHz, each
 *         with the samples as they were taken
 */
HXR_API HXRStatus hxrAdminGetFullBandIQ(int handle, int channel, bool fullBand, double loHz,
                                        int attenuatorIndex, float* iq, int blocks, bool reconfigure,
                                        float* const taps);

/** The same, tuned anew each time and with a filter that passes the samples on as they are. */
HXR_API HXRStatus hxrAdminGetFullBandIQ(int handle, int channel, bool fullBand, double loHz,
                                        int attenuatorIndex, float* iq, int blocks);

/** @} */

/**
 * @defgroup cpp_service_of_the_generator C++ entries: service of the generator
 *
 * They count from the next hxrInitiate on.
 * @{
 */

/**
 * Sets the pattern as it stands: what is at 3/16 of the sample rate, 23.4375 MHz, comes out at the shared frequency, and
 * what turns faster below it.
 *
 * @param samples  `count` complex samples, I then Q; copied
 * @param count    any; the first 4096 are played, and of none nothing
 * @return hxrInvalidDeviceErr; hxrNullPointerErr; hxrInvalidParameterErr for a count below 0
 */
HXR_API HXRStatus hxrAdminSetVSGPatternDirect(int handle, const float* samples, int count);

/**
 * Sets the step of the generator's attenuator. Once hxrSetVSGLevel has set a level it counts no more.
 * @param step  0 to 7, the most attenuation; 2 at first
 * @return hxrInvalidDeviceErr; hxrInvalidParameterErr
 */
HXR_API HXRStatus hxrAdminSetVSGAtten(int handle, int step);

/** @} */

/**
 * @defgroup cpp_network_configuration_firmware_and_flash_over_usb C++ entries: network configuration, firmware and flash over USB
 *
 * The same handles and rules as hxrNetworkConfig... above, of which the first of these are the same.
 *
 * The flash has pages of 1024 bytes. Writing can only clear bits, so a section is cleared before it is written; blocks of
 * 256 pages are erased at a time. A write that breaks off leaves its section half written: clear it and write it again.
 * Calls last as long as the unit takes, seconds to minutes.
 * @{
 */

/** As hxrNetworkConfigGetDeviceList. */
HXR_API HXRStatus hxrConfigNetGetDeviceList(int32_t* serials, int32_t* count);
/** As hxrNetworkConfigOpenDevice. */
HXR_API HXRStatus hxrConfigNetOpenDevice(int32_t* handle, int32_t serial);

/**
 * Loads firmware into the RAM of the first unit that has none in its flash, starts it, and opens the unit.
 *
 * @param handle  receives the handle; left as it is after an error
 * @param path    a boot image
 * @return hxrNullPointerErr; hxrDeviceNotFoundErr if no unit came up with it, whatever the reason;
 *         hxrMaxDevicesConnectedErr; hxrConnectionLostErr
 */
HXR_API HXRStatus hxrConfigNetBootstrapDevice(int32_t* handle, const char* path);

/** As hxrNetworkConfigCloseDevice. */
HXR_API HXRStatus hxrConfigNetCloseDevice(int handle);

/** Starts the unit anew and closes it, whatever comes of that. @return what came of it */
HXR_API HXRStatus hxrConfigNetPreset(int handle);

/** Gives what was found of the FPGA when the unit was opened: 1, not ready after 30 s; else 0, 2 or 3, ready. */
HXR_API HXRStatus hxrConfigNetGetFPGAStatus(int handle, int32_t* status);

/** Gives the version of the USB controller's firmware. @return hxrNullPointerErr */
HXR_API HXRStatus hxrConfigNetGetFirmwareVersion(int handle, int32_t* version);

/**
 * Sets the unit's MAC address, at once and for good.
 *
 * @param mac  six pairs of hexadecimal digits, any character between two of them
 * @return hxrNullPointerErr; hxrInvalidParameterErr for another text, with nothing sent
 */
HXR_API HXRStatus hxrConfigNetSetMAC(int handle, const char* mac);

/** As hxrNetworkConfigGetMAC. */
HXR_API HXRStatus hxrConfigNetGetMAC(int handle, char* mac);
/** As hxrNetworkConfigSetIP. */
HXR_API HXRStatus hxrConfigNetSetIP(int handle, const char* ip, bool persist);
/** As hxrNetworkConfigGetIP. */
HXR_API HXRStatus hxrConfigNetGetIP(int handle, char* ip);
/** As hxrNetworkConfigSetPort. */
HXR_API HXRStatus hxrConfigNetSetPort(int handle, int32_t port, bool persist);
/** As hxrNetworkConfigGetPort. */
HXR_API HXRStatus hxrConfigNetGetPort(int handle, int32_t* port);

/** Gives the serial number in the calibration that the flash holds. @return hxrNullPointerErr */
HXR_API HXRStatus hxrConfigNetGetSerialFromFlash(int handle, int32_t* serial);

/**
 * Writes one page.
 * @param page  below 0x10000
 * @param data  1024 bytes
 * @return hxrNullPointerErr, hxrInvalidParameterErr
 */
HXR_API HXRStatus hxrConfigNetWriteFlashPage(int handle, uint32_t page, const uint8_t* data);

/** Reads 32 pages. @param data room for 32768 bytes @return as hxrConfigNetWriteFlashPage */
HXR_API HXRStatus hxrConfigNetReadFlashPage(int handle, uint32_t page, uint8_t* data);

/** Erases the block of 256 pages that begins at a page. Waits up to 10 s. @return hxrInvalidParameterErr */
HXR_API HXRStatus hxrConfigNetEraseFlashPage(int handle, uint32_t page);

/**
 * Writes the USB controller's firmware.
 *
 * @param path    a boot image of at most 256 KiB
 * @param serial  the unit's serial number, which the image gets if it has eight digits. An image whose checksum is wrong
 *                is written without, and a line on standard output says so.
 * @return hxrNullPointerErr; hxrInvalidParameterErr for a file that can't be read, is too long or tells no version, with
 *         nothing written; hxrFlashIOErr if it doesn't read back as it was written
 */
HXR_API HXRStatus hxrConfigNetWriteFx3(int handle, const char* path, int32_t serial);
/** Erases the USB controller's firmware. */
HXR_API HXRStatus hxrConfigNetClearFx3(int handle);

/** Writes the FPGA's bitstream from a file of at most 16 MiB. @return as hxrConfigNetWriteFx3 */
HXR_API HXRStatus hxrConfigNetWriteFGPA(int handle, const char* path);
/** Erases the FPGA's bitstream. */
HXR_API HXRStatus hxrConfigNetClearFPGA(int handle);

/**
 * Writes the chamber section of the calibration.
 * @param data  0x780000 bytes: an image from 0x80000 on
 * @return hxrNullPointerErr; hxrFlashIOErr if it doesn't read back as it was written
 */
HXR_API HXRStatus hxrConfigNetWriteCorrections(int handle, const uint8_t* data);
/** Reads the whole calibration image. @param data room for 0x800000 bytes @return hxrNullPointerErr */
HXR_API HXRStatus hxrConfigNetReadCorrections(int handle, uint8_t* data);
/** Erases the pretest and the chamber section. */
HXR_API HXRStatus hxrConfigNetClearCorrections(int handle);
/** Erases the chamber section. */
HXR_API HXRStatus hxrConfigNetClearChamber(int handle);

/** Writes the synthesizers' tuning data. @param data 0x40000 bytes @return as hxrConfigNetWriteCorrections */
HXR_API HXRStatus hxrConfigNetWriteCBB(int handle, const uint8_t* data);
/** Reads the synthesizers' tuning data. @param data room for 0x40000 bytes @return hxrNullPointerErr */
HXR_API HXRStatus hxrConfigNetReadCBB(int handle, uint8_t* data);
/** Erases the synthesizers' tuning data. */
HXR_API HXRStatus hxrConfigNetClearCBB(int handle);

/** Writes the pretest section. @param data 0x40000 bytes @return as hxrConfigNetWriteCorrections */
HXR_API HXRStatus hxrConfigNetWritePretest(int handle, const uint8_t* data);
/** Reads the pretest section. @param data room for 0x40000 bytes @return hxrNullPointerErr */
HXR_API HXRStatus hxrConfigNetReadPretest(int handle, uint8_t* data);
/** Erases the pretest section. */
HXR_API HXRStatus hxrConfigNetClearPretest(int handle);

/** @} */

/**
 * @defgroup cpp_calibration_images C++ entries: calibration images
 *
 * They work on any image, of a connected unit or not, keep no state, and may be called from any thread.
 * @{
 */

/** Nominal temperature in degrees Celsius of a temperature index, which is brought into 0 to 6. */
HXR_API double hxrCalGetTempFromIndex(int index) noexcept;

/** Whether the head of the chamber section, up to its checksum, holds anything. False for a null pointer. */
HXR_API bool hxrCalDoesFlashHeaderExist(const HXRCalData* image) noexcept;

/** Whether the image has a pretest section. False for a null pointer. */
HXR_API bool hxrCalHasPretestCorrections(const HXRCalData* image) noexcept;

/** Whether an image of 8 MiB, given as bytes, has chamber data. False for a null pointer. */
HXR_API bool hxrCalDoesCorrectionsExist(const uint8_t* image) noexcept;

/** Whether there is tuning data: some byte that isn't 0xFF. False for a null pointer. */
HXR_API bool hxrCalDoesCBBDataExist(const HXRCBBData* data) noexcept;

/** Whether some of the first `count` bytes isn't 0xFF. False for a null pointer and for a count below 1. */
HXR_API bool hxrCalFlashDataPresent(const uint8_t* data, int count) noexcept;

/** The image's calibration date, all ones if it has none or the pointer is null. */
HXR_API uint64_t hxrCalGetCorrectionCalDate(const HXRCalData* image) noexcept;

/** Turns the image into one that applies no correction. A null pointer does nothing. */
HXR_API void hxrCalBuildDummyCorrections(HXRCalData* image) noexcept;

/**
 * Copies what was calibrated at one temperature index to another; the temperature of the destination becomes that of
 * the source, moved by 15 degrees for each index between them. The checksum is not made anew.
 *
 * @param source, destination  0 to 6; with an index outside, nothing is copied
 */
HXR_API void hxrCalPropagateSingleTempCal(HXRCalData& image, int source, int destination) noexcept;

/**
 * Reads an image from a file, whatever it holds.
 *
 * @return false if a pointer is null, or the file doesn't open, is no plain file or is shorter than 8 MiB; the image
 *         may then hold a part
 */
HXR_API bool hxrCalLoadFromFile(const char* path, HXRCalData* image) noexcept;

/** @} */
#endif

#endif
