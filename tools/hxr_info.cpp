/// hxr-info: who a unit is and how it is.

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "streaming.h"

namespace {

using Json = nlohmann::ordered_json;

std::string utcText(std::uint64_t seconds) {
    const auto time = static_cast<std::time_t>(seconds);
    std::tm utc{};
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", gmtime_r(&time, &utc));
    return text.data();
}

Json identityOf(const tools::Group& group, const tools::Where& where) {
    int serial = 0, first = 0, second = 0, third = 0;
    std::uint32_t calibrated = 0;
    bool chamber = false, pretest = false, tuning = false;
    tools::check("serial number", hxrGetSerialNumber(group, &serial));
    tools::check("versions", hxrGetFirmwareVersion(group, &first, &second, &third));
    tools::check("calibration date", hxrGetCalDate(group, &calibrated));
    hxrAdminHasChamberCorrections(group, &chamber);
    hxrAdminHasPretestCorrections(group, &pretest);
    hxrAdminHasCBBData(group, &tuning);
    return {{"serial", serial},
            {"versions", {first, second, third}},
            {"library", hxrGetAPIVersion()},
            {"units", where.units},
            {"channels", group.channelCount()},
            {"calibration",
             {{"date", chamber ? utcText(calibrated) : "none"},
              {"checksum", group.warning() == hxrCalChecksumFailed ? "wrong" : "right"},
              {"chamber", chamber},
              {"generator", pretest},
              {"tuning", tuning}}}};
}

/// Two digits behind the point.
double rounded(float value) { return std::round(static_cast<double>(value) * 100) / 100; }

Json healthOf(int handle) {
    float supply = 0, rail = 0, temperature = 0;
    tools::check("health", hxrGetDeviceDiagnostics(handle, &supply, &rail, &temperature));
    unsigned fan = 0;
    hxrGetFanEnabled(handle, &fan);
    return {{"supplyVolts", rounded(supply)},
            {"railVolts", rounded(rail)},
            {"fpgaDegrees", rounded(temperature)},
            {"fan", fan != 0}};
}

Json gpsOf(int handle) {
    constexpr std::array states{"no usable fix", "good fix", "good fix, timebase disciplined"};
    int state = 0, updated = 0;
    std::uint64_t seconds = 0;
    double latitude = 0, longitude = 0, altitude = 0;
    tools::check("GPS", hxrGetGPSState(handle, &state));
    tools::check("GPS", hxrGetGPSInfo(handle, 0, &updated, &seconds, &latitude, &longitude, &altitude));
    Json gps{{"state", states.at(static_cast<std::size_t>(std::clamp(state, 0, 2)))}};
    if (state > 0)
        gps.update({{"time", utcText(seconds)},
                    {"latitude", latitude},
                    {"longitude", longitude},
                    {"altitude", altitude}});
    return gps;
}

Json timebaseOf(int handle) {
    unsigned reference = 0, follows = 0;
    int holdover = 0;
    std::uint64_t last = 0;
    std::uint16_t coarse = 0;
    hxrGetReference(handle, &reference);
    hxrGetGPSTimebaseUpdate(handle, &follows);
    hxrGetGPSHoldoverInfo(handle, &holdover, &last);
    hxrAdminGetCoarseTuneVal(handle, &coarse);
    return {{"reference", reference == 0 ? "internal" : "external"},
            {"followsGps", follows == 1},
            {"startedFrom", holdover == 1 ? "what GPS found last time" : "the factory's value"},
            {"coarseTune", coarse}};
}

/// What a stream of the first channel at the highest rate counts in some seconds, by unit.
Json streamOf(const tools::Group& group, double seconds) {
    tools::StreamOptions options;
    options.decimation = 1;
    tools::Stream stream(group, options);
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!tools::interrupted() && std::chrono::steady_clock::now() < end) stream.next();
    Json units;
    const tools::Statistics statistics = stream.statistics();
    for (std::size_t unit = 0; unit < statistics.size(); ++unit) {
        Json& counts = units["unit " + std::to_string(unit)];
        for (const auto& [name, count] : tools::namedCounts(statistics[unit])) counts[name] = count;
    }
    return units;
}

void print(const Json& values, const std::string& indent = "") {
    for (const auto& [name, value] : values.items()) {
        if (value.is_object()) {
            std::printf("%s%s\n", indent.c_str(), name.c_str());
            print(value, indent + "  ");
        } else {
            const std::string text = value.is_string() ? value.get<std::string>() : value.dump();
            std::printf("%s%-*s %s\n", indent.c_str(), static_cast<int>(18 - indent.size()), name.c_str(),
                        text.c_str());
        }
    }
}

// This computer

struct Finding {
    bool good;
    std::string text, remedy;
};

/// An interface of this computer.
struct Interface {
    std::string name;
    int mtu = 0;             ///< bytes of the greatest packet that it takes
    std::uint32_t ring = 0;  ///< packets that wait in it for the computer; 0 where it has no such ring
    std::uint32_t mostRing = 0;
};

/// The interface that has an address.
std::optional<Interface> interfaceOf(const std::string& address) {
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) return std::nullopt;
    std::optional<Interface> found;
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET) continue;
        std::array<char, INET_ADDRSTRLEN> text{};
        sockaddr_in place{};
        std::memcpy(&place, entry->ifa_addr, sizeof place);
        inet_ntop(AF_INET, &place.sin_addr, text.data(), text.size());
        if (address != text.data()) continue;
        ifreq request{};
        std::strncpy(request.ifr_name, entry->ifa_name, IFNAMSIZ - 1);
        const int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        if (::ioctl(socket, SIOCGIFMTU, &request) == 0)
            found = {.name = entry->ifa_name, .mtu = request.ifr_mtu};
        ethtool_ringparam ring{};
        ring.cmd = ETHTOOL_GRINGPARAM;
        request.ifr_data = reinterpret_cast<char*>(&ring);
        if (found && ::ioctl(socket, SIOCETHTOOL, &request) == 0) {
            found->ring = ring.rx_pending;
            found->mostRing = ring.rx_max_pending;
        }
        ::close(socket);
    }
    freeifaddrs(list);
    return found;
}

std::vector<Finding> lookAtHost(const std::string& address) {
    constexpr int jumbo = 9000;
    constexpr long wantedBuffer = 4L << 20;
    std::vector<Finding> findings;
    const auto interface = interfaceOf(address);
    if (!interface) {
        findings.push_back({false, "no interface has the address " + address,
                            "ip address add " + address + "/24 dev INTERFACE, or give --host"});
    } else {
        findings.push_back({interface->mtu >= jumbo,
                            "interface " + interface->name + " has MTU " + std::to_string(interface->mtu),
                            "ip link set " + interface->name + " mtu 9000: without it no samples arrive"});
        const std::string most = std::to_string(interface->mostRing);
        if (interface->mostRing > 0)
            findings.push_back(
                {interface->ring == interface->mostRing,
                 std::to_string(interface->ring) + " of " + most + " packets may wait in " + interface->name,
                 "ethtool -G " + interface->name + " rx " + most +
                     ": with less, a busy moment loses samples, and the link"});
    }
    long buffer = 0;
    std::ifstream("/proc/sys/net/core/rmem_max") >> buffer;
    findings.push_back(
        {buffer >= wantedBuffer, "net.core.rmem_max is " + std::to_string(buffer),
         "sysctl -w net.core.rmem_max=4194304: with less, a busy moment loses samples, and the link"});
    rlimit priority{};
    getrlimit(RLIMIT_RTPRIO, &priority);
    findings.push_back(
        {priority.rlim_cur >= 5 || geteuid() == 0,
         "real-time priority up to " + std::to_string(priority.rlim_cur),
         "a line `@realtime - rtprio 10` in /etc/security/limits.conf, for a group that you are in: without "
         "it other programs may hold the receiving threads up"});
    const char* const calibrations = "/var/lib/Tarvenis/cal_files";
    const bool kept = ::access(calibrations, W_OK) == 0;
    findings.push_back(
        {kept,
         std::string(kept ? "calibrations are kept in " : "no calibrations can be kept in ") + calibrations,
         std::string("install -d -m 777 ") + calibrations +
             ": without it they are kept in `cal_files` of the folder where a program runs, and fetched "
             "anew, 8 MiB from each unit, in every other"});
    const unsigned cores = std::thread::hardware_concurrency();
    findings.push_back(
        {cores >= 2, std::to_string(cores) + " processors", "four channels at the full rate want two"});
    return findings;
}

int checkHost(const std::string& address, bool json) {
    bool good = true;
    Json list = Json::array();
    for (const Finding& finding : lookAtHost(address)) {
        good = good && finding.good;
        list.push_back({{"good", finding.good},
                        {"found", finding.text},
                        {"remedy", finding.good ? "" : finding.remedy}});
        if (json) continue;
        std::printf("%-4s %s\n", finding.good ? "ok" : "BAD", finding.text.c_str());
        if (!finding.good) std::printf("     %s\n", finding.remedy.c_str());
    }
    if (json) std::printf("%s\n", list.dump(2).c_str());
    return good ? tools::allWell : tools::somethingFailed;
}

}  // namespace

int main(int argc, char** argv) {
    return tools::run("hxr-info", [&] {
        CLI::App app("Shows who an HXR unit is and how it is.");
        app.footer(
            "Examples:\n  hxr-info --unit 192.168.2.10\n  hxr-info --simulate --json\n  hxr-info --watch 2\n"
            "  hxr-info --check-host --host 192.168.2.2");
        tools::Where where;
        bool json = false, host = false;
        double watch = 0, streamed = 0;
        tools::addCommonOptions(app, where);
        app.add_flag("--json", json, "in a form for programs");
        app.add_option("--watch", watch,
                       "health and GPS again and again, every so many seconds, until Ctrl-C")
            ->check(CLI::Range(0.1, 3600.0));
        app.add_option("--stream", streamed, "stream channel 0 for so many seconds and show what was counted")
            ->check(CLI::Range(0.01, 3600.0));
        app.add_flag("--check-host", host, "look at this computer instead: whether it is set up for streams");
        tools::parse(app, argc, argv);
        if (host) return checkHost(where.host, json);
        tools::catchInterrupts();
        const tools::Simulation simulation(where);
        const tools::Group group(where);
        Json all = identityOf(group, where);
        const auto addPresent = [&](Json& values) {
            values["health"] = healthOf(group);
            values["gps"] = gpsOf(group);
            values["timebase"] = timebaseOf(group);
        };
        addPresent(all);
        if (streamed > 0) all["stream"] = streamOf(group, streamed);
        const auto show = [&](const Json& values) {
            json ? void(std::printf("%s\n", values.dump(watch > 0 ? -1 : 2).c_str())) : print(values);
            std::fflush(stdout);
        };
        show(all);
        while (watch > 0 && !tools::interrupted()) {
            tools::pause(watch);
            if (tools::interrupted()) break;
            Json present;
            addPresent(present);
            if (!json) std::printf("\n");
            show(present);
        }
        return tools::allWell;
    });
}
