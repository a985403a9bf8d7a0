/// hxr-vrt: lets units send VITA-49 packets to receivers of their own, and is such a receiver.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstring>
#include <fstream>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "streaming.h"
#include "vrt_packet.h"

namespace {

using Clock = std::chrono::steady_clock;

struct SendArguments {
    tools::Where where;
    tools::StreamOptions stream;
    std::vector<std::string> destinations{"127.0.0.1:4991"};
    std::vector<std::string> hardware;
    int interval = 63;
    bool noContext = false, littleEndian = false;
    double seconds = std::numeric_limits<double>::infinity();
};

struct ReceiveArguments {
    std::string address = "0.0.0.0";
    std::vector<std::uint16_t> ports{4991};
    double seconds = std::numeric_limits<double>::infinity();
    std::int64_t packets = std::numeric_limits<std::int64_t>::max();  ///< of each stream, at least one a port
    bool littleEndian = false, json = false;
};

struct Destination {
    std::string address;
    std::uint16_t port = 0;
    std::uint64_t hardware = 0;
};

Destination destinationFrom(const std::string& text) {
    const auto colon = text.rfind(':');
    const std::string address = text.substr(0, colon);
    unsigned long port = 4991;
    in_addr unused{};
    std::size_t used = 0;
    try {
        if (colon != std::string::npos) port = std::stoul(text.substr(colon + 1), &used);
    } catch (const std::logic_error&) {
        port = 0;
    }
    if (inet_pton(AF_INET, address.c_str(), &unused) != 1 || port < 1 || port > 65535 ||
        (colon != std::string::npos && colon + 1 + used != text.size()))
        throw tools::UsageError(text + " is no destination such as 192.168.2.20:4991");
    return {address, static_cast<std::uint16_t>(port), 0};
}

std::uint64_t hardwareFrom(const std::string& text) {
    std::uint64_t value = 0;
    std::istringstream bytes(text);
    std::string byte;
    int count = 0;
    for (; std::getline(bytes, byte, ':'); ++count) {
        if (byte.empty() || byte.size() > 2 ||
            byte.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
            break;
        value = value << 8 | std::stoul(byte, nullptr, 16);
    }
    if (count != 6 || bytes)
        throw tools::UsageError(text + " is no hardware address such as 02:1B:C5:00:12:AF");
    return value;
}

/// What this computer knows of a neighbour's hardware address.
std::optional<std::uint64_t> neighbour(const std::string& address) {
    std::ifstream table("/proc/net/arp");
    std::string line;
    while (std::getline(table, line)) {
        std::istringstream fields(line);
        std::string ip, type, flags, hardware;
        if (fields >> ip >> type >> flags >> hardware && ip == address && flags != "0x0")
            return hardwareFrom(hardware);
    }
    return std::nullopt;
}

/// One destination a channel. Behind the last that was given the ports are counted up.
std::vector<Destination> destinationsFor(const SendArguments& arguments) {
    if (arguments.destinations.size() > arguments.stream.channels.size())
        throw tools::UsageError("more destinations than channels");
    std::vector<Destination> all;
    for (std::size_t i = 0; i < arguments.stream.channels.size(); ++i) {
        Destination one =
            i < arguments.destinations.size() ? destinationFrom(arguments.destinations[i]) : all.back();
        if (i >= arguments.destinations.size() && ++one.port == 0)
            throw tools::UsageError("there is no port above 65535 for a further channel");
        if (i < arguments.hardware.size()) {
            one.hardware = hardwareFrom(arguments.hardware[i]);
        } else if (i < arguments.destinations.size()) {
            one.hardware = neighbour(one.address).value_or(0);
            if (one.hardware == 0 && !arguments.where.simulate)
                std::fprintf(
                    stderr,
                    "nothing is known of %s's hardware address: ping it from here first, or give --mac\n",
                    one.address.c_str());
        }
        all.push_back(one);
    }
    return all;
}

int send(const SendArguments& given) {
    SendArguments arguments = given;
    if (std::set(arguments.stream.channels.begin(), arguments.stream.channels.end()).size() <
        arguments.stream.channels.size())
        throw tools::UsageError("a channel has one destination, and is named once");
    const auto destinations = destinationsFor(arguments);
    tools::catchInterrupts();
    const tools::Simulation simulation(arguments.where);
    const tools::Group group(arguments.where);
    tools::setStream(group, arguments.stream);
    for (std::size_t i = 0; i < destinations.size(); ++i) {
        const auto& [address, port, hardware] = destinations[i];
        tools::check("destination", hxrSetStreamVrtAddr(group, arguments.stream.channels[i], address.c_str(),
                                                        port, hardware));
    }
    tools::check("context packets",
                 hxrSetStreamVrtCntxInterval(group, arguments.noContext ? 0 : 1, arguments.interval));
    tools::check("byte order", hxrSetStreamVrtEndianness(group, arguments.littleEndian ? 1 : 0));
    tools::check("VRT", hxrSetStreamMode(group, 1));
    tools::check("starting the stream", hxrInitiate(group));
    for (std::size_t i = 0; i < destinations.size(); ++i)
        std::printf("channel %d, stream %d, to %s:%u\n", arguments.stream.channels[i],
                    arguments.stream.channels[i] + 1, destinations[i].address.c_str(), destinations[i].port);
    std::fflush(stdout);
    tools::Progress progress;
    tools::keepRunning(group, arguments.seconds, [&](double) {
        progress.show(std::isfinite(arguments.seconds) ? "sending" : "sending, until Ctrl-C");
    });
    tools::check("abort", hxrAbort(group));
    tools::check("streams to this host again", hxrSetStreamMode(group, 0));
    return tools::allWell;
}

/// A port that packets come to.
class Socket {
  public:
    Socket(const std::string& address, std::uint16_t port)
        : socket_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
        constexpr int bufferBytes = 8 << 20;
        ::setsockopt(socket_, SOL_SOCKET, SO_RCVBUF, &bufferBytes, sizeof bufferBytes);
        sockaddr_in place{};
        place.sin_family = AF_INET;
        place.sin_port = htons(port);
        if (inet_pton(AF_INET, address.c_str(), &place.sin_addr) != 1 ||
            ::bind(socket_, reinterpret_cast<const sockaddr*>(&place), sizeof place) != 0) {
            ::close(socket_);
            throw std::runtime_error("can't receive on " + address + ":" + std::to_string(port) +
                                     ": is it an address of this computer, and the port free?");
        }
    }
    ~Socket() { ::close(socket_); }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;
    int descriptor() const { return socket_; }

  private:
    int socket_;
};

/// Streams by the address of the unit that sends them and by their number.
using Streams = std::map<std::pair<std::uint32_t, std::uint32_t>, VrtStream>;

std::string addressText(std::uint32_t address) {
    const in_addr place{htonl(address)};
    std::array<char, INET_ADDRSTRLEN> text{};
    return inet_ntop(AF_INET, &place, text.data(), text.size());
}

nlohmann::ordered_json summaryOf(const Streams& streams) {
    auto all = nlohmann::ordered_json::array();
    for (const auto& [from, told] : streams) {
        nlohmann::ordered_json one{{"unit", addressText(from.first)},
                                   {"stream", from.second},
                                   {"packets", told.packets()},
                                   {"lost", told.lost()},
                                   {"contextPackets", told.contexts()},
                                   {"sampleRate", told.rateHz()},
                                   {"dBFS", told.dbfs()}};
        if (const auto& context = told.context()) {
            one.update({{"dBm", told.dbfs() + context->referenceDbm},
                        {"frequency", context->frequencyHz},
                        {"bandwidth", context->bandwidthHz},
                        {"gain", context->gainDb},
                        {"degrees", context->degrees}});
        }
        all.push_back(one);
    }
    return all;
}

void print(const Streams& streams) {
    std::printf("%-15s %8s %10s %8s %10s %12s %10s %9s %9s\n", "unit", "stream", "packets", "lost", "MS/s",
                "MHz", "MHz wide", "dBFS", "dBm");
    for (const auto& [from, told] : streams) {
        const VrtContext context = told.context().value_or(VrtContext{});
        std::printf("%-15s %8u %10lld %8lld %10.6g %12.9g %10.6g %9.2f %9.2f\n",
                    addressText(from.first).c_str(), from.second, static_cast<long long>(told.packets()),
                    static_cast<long long>(told.lost()), told.rateHz() / 1e6, context.frequencyHz / 1e6,
                    context.bandwidthHz / 1e6, told.dbfs(), told.dbfs() + context.referenceDbm);
    }
}

int receive(const ReceiveArguments& arguments) {
    constexpr std::size_t largestPacket = 9000;
    std::vector<std::unique_ptr<Socket>> sockets;
    std::vector<pollfd> waiting;
    for (const std::uint16_t port : arguments.ports) {
        sockets.push_back(std::make_unique<Socket>(arguments.address, port));
        waiting.push_back({sockets.back()->descriptor(), POLLIN, 0});
    }
    tools::catchInterrupts();
    Streams streams;
    std::int64_t others = 0;
    std::vector<std::uint8_t> bytes(largestPacket);
    const auto take = [&](int socket) {
        sockaddr_in from{};
        socklen_t length = sizeof from;
        ssize_t got = 0;
        while ((got = ::recvfrom(socket, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&from),
                                 &length)) >= 0) {
            const auto packet = parseVrt(std::span(bytes).first(static_cast<std::size_t>(got)));
            if (!packet) {
                ++others;
            } else {
                const std::pair key(ntohl(from.sin_addr.s_addr), packet->stream);
                streams.try_emplace(key, arguments.littleEndian).first->second.take(*packet);
            }
        }
    };
    {
        tools::Progress progress;
        const auto begin = Clock::now();
        const auto enough = [&] {
            return streams.size() >= sockets.size() && std::ranges::all_of(streams, [&](const auto& one) {
                       return one.second.packets() >= arguments.packets;
                   });
        };
        while (!tools::interrupted() && !enough() &&
               std::chrono::duration<double>(Clock::now() - begin).count() < arguments.seconds) {
            constexpr int milliseconds = 100;
            if (::poll(waiting.data(), waiting.size(), milliseconds) > 0) {
                for (const pollfd& one : waiting)
                    if (one.revents != 0) take(one.fd);
            }
            std::int64_t packets = 0, lost = 0;
            for (const auto& [stream, told] : streams) {
                packets += told.packets();
                lost += told.lost();
            }
            progress.show(std::to_string(streams.size()) + " streams, " + std::to_string(packets) +
                          " packets, " + std::to_string(lost) + " lost");
        }
    }
    if (arguments.json) {
        std::printf("%s\n", summaryOf(streams).dump(2).c_str());
    } else {
        print(streams);
        if (others > 0) std::printf("%lld packets of another kind\n", static_cast<long long>(others));
    }
    if (streams.empty())
        throw std::runtime_error(
            "nothing came: are the units' destinations this computer's address, port and hardware address?");
    const bool whole = std::ranges::all_of(streams, [](const auto& one) { return one.second.lost() == 0; });
    return whole ? tools::allWell : tools::dataIncomplete;
}

}  // namespace

int main(int argc, char** argv) {
    return tools::run("hxr-vrt", [&] {
        CLI::App app("VITA-49 packets from HXR units: lets them be sent, and receives them.");
        app.set_version_flag("--version", hxrGetAPIVersion());
        app.set_help_all_flag("--help-all", "Print the help of all subcommands and exit");
        app.footer(
            "Examples:\n"
            "  hxr-vrt send --channels 0,1 --freq 98.5M --to 192.168.2.20:4991 --to 192.168.2.21:4991\n"
            "  hxr-vrt receive --port 4991 --port 4992 --time 10\n"
            "  hxr-vrt send --simulate --decimation 4 --to 127.0.0.1:4991\n");
        app.require_subcommand(1);
        SendArguments sent;
        CLI::App* const sending = app.add_subcommand("send", "lets units send, until Ctrl-C");
        tools::addCommonOptions(*sending, sent.where);
        tools::addStreamOptions(*sending, sent.stream);
        sending
            ->add_option("--to", sent.destinations,
                         "address and port for a channel; repeat it for the others")
            ->expected(1)
            ->take_all()
            ->allow_extra_args(false)
            ->capture_default_str();
        sending
            ->add_option("--mac", sent.hardware,
                         "hardware address of a destination, if this computer doesn't know it")
            ->expected(1)
            ->take_all()
            ->allow_extra_args(false);
        auto* const interval =
            sending->add_option("--context", sent.interval, "packets of samples for one of context")
                ->check(CLI::Range(3, 4095))
                ->capture_default_str();
        sending->add_flag("--no-context", sent.noContext, "send no context packets")->excludes(interval);
        sending->add_flag("--little-endian", sent.littleEndian, "samples with their low byte first");
        sending->add_option("--time", sent.seconds, "seconds")->check(tools::aboveZero());

        ReceiveArguments received;
        CLI::App* const receiving = app.add_subcommand("receive", "shows what comes, until Ctrl-C");
        receiving->add_option("--bind", received.address, "address of this computer that packets come to")
            ->capture_default_str();
        receiving->add_option("--port", received.ports, "port; may be repeated")
            ->expected(1)
            ->take_all()
            ->allow_extra_args(false)
            ->check(CLI::Range(1, 65535))
            ->capture_default_str();
        receiving
            ->add_option("--packets", received.packets, "end when each stream has brought so many of samples")
            ->check(CLI::Range(std::int64_t{1}, std::int64_t{1} << 62));
        receiving->add_flag("--little-endian", received.littleEndian, "samples have their low byte first");
        receiving->add_option("--time", received.seconds, "seconds")->check(tools::aboveZero());
        receiving->add_flag("--json", received.json, "in a form for programs");
        tools::parse(app, argc, argv);
        return *sending ? send(sent) : receive(received);
    });
}
