/// Units on the USB of this machine: their addresses, calibration, firmware and bitstream.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "hxr_api.h"
#include "support.h"

namespace {

constexpr std::size_t pageBytes = 1024, readBytes = 32768, imageBytes = sizeof(HXRCalData);
constexpr std::uint32_t firstImagePage = 1024, imagePages = imageBytes / pageBytes,
                        pagesAtOnce = readBytes / pageBytes, blockPages = 256;

/// What the user is told where the status alone doesn't help.
std::string adviceFor(HXRStatus status) {
    switch (status) {
        case hxrDeviceNotFoundErr:
            return "\nIs it on, is its USB port connected? `hxr-netconfig list` shows what is there. Without "
                   "the right to "
                   "use it, it can't be opened either: see 70-hxr.rules.";
        case hxrConnectionLostErr:
            return "\nIt stopped answering. Unplug it, plug it in again, and start over.";
        case hxrFlashIOErr:
            return "\nThe flash doesn't keep what is written. Start over; what is there now is no use.";
        default:
            return "";
    }
}

void check(const char* what, HXRStatus status) {
    if (status < 0)
        throw std::runtime_error(std::string(what) + ": " + hxrGetErrorString(status) + adviceFor(status));
}

/// A unit that is open from here to the end of its scope.
class Unit {
  public:
    explicit Unit(std::int32_t serial) {
        check("opening the unit", hxrConfigNetOpenDevice(&handle_, serial));
    }
    ~Unit() { hxrConfigNetCloseDevice(handle_); }
    Unit(const Unit&) = delete;
    Unit& operator=(const Unit&) = delete;
    operator int() const { return handle_; }

  private:
    std::int32_t handle_ = -1;
};

std::vector<std::int32_t> serials() {
    std::vector<std::int32_t> found(4);
    auto count = static_cast<std::int32_t>(found.size());
    check("listing", hxrNetworkConfigGetDeviceList(found.data(), &count));
    found.resize(static_cast<std::size_t>(count));
    std::ranges::sort(found);
    return found;
}

struct Addresses {
    std::array<char, 16> ip{};
    std::array<char, 18> mac{};
    std::int32_t port = 0, firmware = 0, calibrated = 0, fpga = 0;
};

Addresses read(const Unit& unit) {
    Addresses found;
    check("IP address", hxrConfigNetGetIP(unit, found.ip.data()));
    check("MAC address", hxrConfigNetGetMAC(unit, found.mac.data()));
    check("port", hxrConfigNetGetPort(unit, &found.port));
    check("firmware version", hxrConfigNetGetFirmwareVersion(unit, &found.firmware));
    check("calibration", hxrConfigNetGetSerialFromFlash(unit, &found.calibrated));
    check("FPGA", hxrConfigNetGetFPGAStatus(unit, &found.fpga));
    return found;
}

void show(std::int32_t serial, bool json) {
    const Unit unit(serial);
    const Addresses a = read(unit);
    if (json) {
        std::printf(
            "{\"serial\": %d, \"ip\": \"%s\", \"port\": %d, \"mac\": \"%s\", \"firmware\": %d, "
            "\"calibrationSerial\": %d, \"fpgaReady\": %s}\n",
            serial, a.ip.data(), a.port, a.mac.data(), a.firmware, a.calibrated,
            a.fpga == 1 ? "false" : "true");
        return;
    }
    std::printf("serial number    %d\nIP address       %s\nUDP port         %d\nMAC address      %s\n",
                serial, a.ip.data(), a.port, a.mac.data());
    std::printf("USB firmware     %d.%d\n", a.firmware >> 8 & 0xFF, a.firmware & 0xFF);
    std::printf("calibration of   %s\n",
                a.calibrated == -1 ? "nothing" : std::to_string(a.calibrated).c_str());
    std::printf("FPGA             %s\n", a.fpga == 1 ? "not ready" : "ready");
}

struct Settings {
    std::string ip, mac;
    int port = -1;
    bool forNow = false;
};

void set(std::int32_t serial, const Settings& settings) {
    const Unit unit(serial);
    if (!settings.ip.empty())
        check("IP address", hxrConfigNetSetIP(unit, settings.ip.c_str(), !settings.forNow));
    if (settings.port >= 0) check("port", hxrConfigNetSetPort(unit, settings.port, !settings.forNow));
    if (!settings.mac.empty()) check("MAC address", hxrConfigNetSetMAC(unit, settings.mac.c_str()));
    std::printf("set. Connections over the network have to be made anew.\n");
}

void backUp(std::int32_t serial, const std::string& path) {
    const Unit unit(serial);
    std::vector<std::uint8_t> image(imageBytes);
    {
        tools::Progress progress;
        for (std::uint32_t page = 0; page < imagePages; page += pagesAtOnce) {
            check("reading",
                  hxrConfigNetReadFlashPage(unit, firstImagePage + page, &image[page * pageBytes]));
            progress.bar("reading the calibration", static_cast<double>(page + pagesAtOnce) / imagePages);
        }
    }
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(image.data()), std::ssize(image));
    if (!file.flush()) throw std::runtime_error("can't write " + path);
    std::printf("%zu bytes in %s\n", image.size(), path.c_str());
}

std::vector<std::uint8_t> readImage(const std::string& path) {
    std::vector<std::uint8_t> image(imageBytes + 1);
    std::ifstream file(path, std::ios::binary);
    file.read(reinterpret_cast<char*>(image.data()), std::ssize(image));
    if (file.gcount() != static_cast<std::streamsize>(imageBytes))
        throw std::runtime_error(path + " is no calibration image of 8 MiB");
    image.resize(imageBytes);
    return image;
}

/// Pages that hold nothing are left as the erase has made them.
void restore(std::int32_t serial, const std::string& path) {
    const std::vector<std::uint8_t> image = readImage(path);
    const Unit unit(serial);
    {
        tools::Progress progress;
        for (std::uint32_t page = 0; page < imagePages; page += blockPages) {
            check("erasing", hxrConfigNetEraseFlashPage(unit, firstImagePage + page));
            progress.bar("erasing", static_cast<double>(page + blockPages) / imagePages);
        }
    }
    {
        tools::Progress progress;
        for (std::uint32_t page = 0; page < imagePages; ++page) {
            const auto content = std::span(image).subspan(page * pageBytes, pageBytes);
            if (!hxrCalFlashDataPresent(content.data(), static_cast<int>(content.size()))) continue;
            check("writing", hxrConfigNetWriteFlashPage(unit, firstImagePage + page, content.data()));
            progress.bar("writing the calibration", static_cast<double>(page + 1) / imagePages);
        }
    }
    tools::Progress progress;
    std::vector<std::uint8_t> back(readBytes);
    for (std::uint32_t page = 0; page < imagePages; page += pagesAtOnce) {
        check("reading back", hxrConfigNetReadFlashPage(unit, firstImagePage + page, back.data()));
        if (!std::equal(back.begin(), back.end(), image.begin() + page * pageBytes))
            check("reading back", hxrFlashIOErr);
        progress.bar("reading it back", static_cast<double>(page + pagesAtOnce) / imagePages);
    }
    std::printf("restored\n");
}

void writeParts(int unit, std::int32_t serial, const std::string& firmware, const std::string& bitstream) {
    tools::Progress progress;
    if (!firmware.empty()) {
        check("erasing the firmware",
              progress.timed("erasing the firmware", [&] { return hxrConfigNetClearFx3(unit); }));
        check("writing the firmware", progress.timed("writing the firmware", [&] {
            return hxrConfigNetWriteFx3(unit, firmware.c_str(), serial);
        }));
    }
    if (!bitstream.empty()) {
        check("erasing the bitstream",
              progress.timed("erasing the bitstream", [&] { return hxrConfigNetClearFPGA(unit); }));
        check("writing the bitstream", progress.timed("writing the bitstream", [&] {
            return hxrConfigNetWriteFGPA(unit, bitstream.c_str());
        }));
    }
    check("starting anew", hxrConfigNetPreset(unit));
    std::printf("written; the unit starts anew\n");
}

/// Sees, before anything is erased, whether a file may be what it is said to be.
void requireImage(const std::string& path, std::string_view beginning, std::uintmax_t longest) {
    if (path.empty()) return;
    std::string head(beginning.size(), 0);
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error("can't read " + path);
    const std::uintmax_t bytes = std::filesystem::file_size(path);
    if (bytes == 0 || bytes > longest)
        throw std::runtime_error(path + " has " + std::to_string(bytes) + " bytes, not 1 to " +
                                 std::to_string(longest));
    if (!file.read(head.data(), std::ssize(head)) || head != beginning)
        throw std::runtime_error(path + " is no boot image");
}

/// The driver refuses a wrong MAC address too, but only when the others are set.
void requireMac(const std::string& mac) {
    std::size_t digits = 0;
    for (std::size_t i = 0; i < mac.size(); ++i)
        digits += i % 3 != 2 && std::isxdigit(static_cast<unsigned char>(mac[i])) != 0 ? 1 : 0;
    if (!mac.empty() && (mac.size() != 17 || digits != 12))
        throw tools::UsageError(mac + " is no MAC address such as 02:1B:C5:00:12:AF");
}

}  // namespace

int main(int argc, char** argv) {
    return tools::run("hxr-netconfig", [&] {
        CLI::App app("Sets up HXR units over their USB port.");
        app.set_version_flag("--version", hxrGetAPIVersion());
        app.set_help_all_flag("--help-all", "Print the help of all subcommands and exit");
        app.footer(
            "Examples:\n  hxr-netconfig list\n  hxr-netconfig --simulate show 20000001\n  hxr-netconfig show "
            "20000001\n"
            "  hxr-netconfig set 20000001 --ip 192.168.2.10 --port 5000\n"
            "  hxr-netconfig backup 20000001 calibration.bin\n"
            "  hxr-netconfig update 20000001 --firmware fx3.img --bitstream fpga.bin\n");
        app.require_subcommand(1);
        app.fallthrough();
        bool simulate = false;
        app.add_flag("--simulate", simulate, "plug a simulated unit in and use that");
        std::int32_t serial = 0;
        bool json = false;
        std::string file, firmware, bitstream;
        Settings settings;
        const auto command = [&](const char* name, const char* text) {
            CLI::App* const made = app.add_subcommand(name, text);
            made->add_option("SERIAL", serial, "serial number of the unit")->required();
            return made;
        };

        CLI::App* const list = app.add_subcommand("list", "serial numbers of the units that are there");
        CLI::App* const showing = command("show", "addresses and versions of a unit");
        showing->add_flag("--json", json, "in a form for programs");
        CLI::App* const setting = command("set", "changes addresses of a unit, at once and for good");
        setting->add_option("--ip", settings.ip, "IP address, such as 192.168.2.10");
        setting->add_option("--port", settings.port, "UDP port")->check(CLI::Range(1, 65535));
        setting->add_option("--mac", settings.mac, "MAC address, such as 02:1B:C5:00:12:AF; always for good");
        setting->add_flag("--for-now", settings.forNow,
                          "IP address and port only until the unit loses power");
        setting->require_option(2, 0);  // the serial number is one
        CLI::App* const backing = command("backup", "writes the calibration of a unit to a file");
        backing->add_option("FILE", file)->required();
        CLI::App* const restoring = command("restore", "writes the calibration in a file to a unit");
        restoring->add_option("FILE", file)->required()->check(CLI::ExistingFile);
        CLI::App* const updating = command("update", "writes firmware or bitstream to a unit");
        updating->add_option("--firmware", firmware, "boot image of the USB controller")
            ->check(CLI::ExistingFile);
        updating->add_option("--bitstream", bitstream, "bitstream of the FPGA")->check(CLI::ExistingFile);
        updating->require_option(2, 0);
        CLI::App* const starting =
            command("bootstrap", "gives a unit without any firmware one, and its serial number");
        starting->add_option("--firmware", firmware, "boot image")->required()->check(CLI::ExistingFile);
        starting->add_option("--bitstream", bitstream, "bitstream of the FPGA")->check(CLI::ExistingFile);
        tools::parse(app, argc, argv);

        if (simulate) {
            constexpr int usual = 20000001;
            const std::string number = std::to_string(serial != 0 ? serial : usual);
            std::vector<std::string> units{
                "--serial", std::string(8 - std::min<std::size_t>(number.size(), 8), '0') + number};
            if (*starting) units = {"--blank"};
            return tools::runOnSimulatedUsb(std::move(units), argc, argv);
        }
        constexpr std::uintmax_t longestFirmware = 256U << 10, longestBitstream = 16U << 20;
        constexpr int streamPort = 4991;
        requireImage(firmware, "CY", longestFirmware);
        requireImage(bitstream, "", longestBitstream);
        requireMac(settings.mac);
        if (*setting && settings.ip.empty() && settings.port < 0 && settings.mac.empty())
            throw tools::UsageError("nothing to set: --ip, --port or --mac");
        if (settings.port == streamPort) throw tools::UsageError("port 4991 is that of the streams");
        if (*list) {
            for (const std::int32_t found : serials()) std::printf("%d\n", found);
        } else if (*showing) {
            show(serial, json);
        } else if (*setting) {
            set(serial, settings);
        } else if (*backing) {
            backUp(serial, file);
        } else if (*restoring) {
            restore(serial, file);
        } else if (*updating) {
            const Unit unit(serial);
            writeParts(unit, serial, firmware, bitstream);
        } else if (*starting) {
            std::int32_t unit = -1;
            check("starting the firmware", hxrConfigNetBootstrapDevice(&unit, firmware.c_str()));
            writeParts(unit, serial, firmware, bitstream);
        }
        return tools::allWell;
    });
}
