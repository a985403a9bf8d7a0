#include "sim/simulated_unit.h"

#include <algorithm>
#include <array>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <utility>

#include "sim/byte_order.h"
#include "sim/capture.h"
#include "sim/data_datagram.h"
#include "sim/decoder.h"
#include "sim/flash_memory.h"
#include "sim/generator.h"
#include "sim/phase.h"
#include "sim/reply_path.h"
#include "sim/rule_book.h"
#include "sim/sequencer.h"
#include "sim/stream_service.h"
#include "sim/unit_server.h"

namespace hxr::sim {
namespace {

using WallClock = std::chrono::system_clock;

constexpr std::chrono::nanoseconds pauseTick{1016};
/// One of a capture's 50 million a second.
using SampleTime =
    std::chrono::duration<std::int64_t, std::ratio<1, static_cast<std::intmax_t>(captureRateHz)>>;
constexpr std::size_t packetBytes = packetWords * 4;

std::vector<std::uint8_t> imageFor(UnitOptions& options) {
    if (!options.image.empty()) return std::move(options.image);
    return makeSyntheticImage({.serialNumber = options.identity.serialNumber});
}

std::unique_ptr<const FlashMemory> natureFor(UnitOptions& options) {
    if (options.trueImage.empty()) return nullptr;
    return std::make_unique<const FlashMemory>(std::move(options.trueImage));
}

/// Units have hardware addresses of their own making, by serial number.
std::unique_ptr<PacketFile> packetFileFor(const UnitOptions& options) {
    if (options.packetFile.empty()) return nullptr;
    constexpr std::uint64_t ownMaking = 0x02005E000000, serialBits = 0xFFFFFF;
    return std::make_unique<PacketFile>(options.packetFile, Endpoint::of(options.address, options.dataPort),
                                        ownMaking | (options.identity.serialNumber & serialBits));
}

UnitOptions checked(UnitOptions options) {
    if (options.controlPort == options.dataPort)
        throw std::invalid_argument("control and data port are the same");
    return options;
}

std::string threadNameFor(const Endpoint& endpoint) {
    return "hxr-sim " + std::to_string(endpoint.address & 255);
}

}  // namespace

/// Joins the parts of the unit: what comes in from the server goes through the sequencer, what the sequencer
/// sends goes out by the reply path.
class SimulatedUnit::Core : private ServerCalls, private SequencerOutputs {
  public:
    /// The datagram that runs at the moment: where its answers go.
    struct Request {
        Endpoint sender;
        UdpSocket* socket = nullptr;
        bool onDataSocket = false;
    };

    explicit Core(UnitOptions given)
        : options(checked(std::move(given))),
          recording(options.recordedPackets),
          flash(imageFor(options)),
          nature(natureFor(options)),
          sequencer(rules, *this, Endpoint::of(options.address, 0).address),
          replies(faults, rules, options.paced),
          streams({.content = options.streamContent,
                   .loopTurns = options.streamLoopTurns,
                   .inRealTime = options.streamsInRealTime,
                   .pace = options.streamPace,
                   .bufferTurns = options.streamBufferTurns,
                   .syncLine = options.syncLine,
                   .packetFile = packetFileFor(options)},
                  rules, recording, replies),
          server(Endpoint::of(options.address, options.controlPort),
                 Endpoint::of(options.address, options.dataPort),
                 threadNameFor(Endpoint::of(options.address, options.controlPort)), *this) {}

    ~Core() override { server.stop(); }

    Oscillator oscillatorNow() const {
        const std::lock_guard lock(reported);
        return options.oscillator;
    }

    UnitOptions options;
    /// Guards identity, health, fix, oscillator and scene in the options.
    mutable std::mutex reported;
    RuleBook rules;
    FaultPlan faults;
    Recording recording;
    FlashMemory flash;
    std::unique_ptr<const FlashMemory> nature;  ///< what the unit is, if that isn't what its flash tells
    Sequencer sequencer;
    ReplyPath replies;
    Request request;
    std::uint32_t sentDatagrams = 0;
    const std::uint32_t serialNumber = options.identity.serialNumber;  ///< that the unit was made with
    UnitCalibration::Image vcosOf;
    std::optional<VcoTables> vcos;
    CaptureMaker captures;
    Generator generator{options.syncLine};
    SampleTime nextSample{0};
    std::uint8_t overdriven = 0;  ///< one bit an input, since the last status
    StreamService streams;
    UnitServer server;  // last: its thread uses all the others

  private:
    void onDatagram(std::span<const std::uint8_t> datagram, const Endpoint& sender, bool onDataSocket,
                    UdpSocket& socket) override {
        recording.notePacket(datagram, sender, onDataSocket);
        if (faults.takeDatagram()) run(datagram, {sender, &socket, onDataSocket});
        if (!onDataSocket) recording.notePacketDone();
    }

    void run(std::span<const std::uint8_t> datagram, const Request& from) {
        if (datagram.size() != packetBytes) {
            rules.noteBrokenRule("datagram of " + std::to_string(datagram.size()) + " bytes from " +
                                 from.sender.text());
            return;
        }
        std::array<std::uint32_t, packetWords> words;
        for (std::size_t i = 0; i < words.size(); ++i) words[i] = getLittle32(datagram, 4 * i);
        request = from;
        if (from.onDataSocket) {
            sequencer.runDataPacket(words);
        } else {
            sequencer.runControlPacket(words);
            generator.follow(sequencer, oscillatorNow(), trueImage());
        }
    }

    std::optional<std::chrono::steady_clock::time_point> nextTime() override {
        const auto reply = replies.nextDue();
        const auto packet = streams.nextTime();
        if (!reply || !packet) return reply ? reply : packet;
        return std::min(*reply, *packet);
    }
    void onTime() override {
        replies.sendDue();
        streams.serve();
    }
    void onStop() override {
        replies.reset();
        streams.stop();
    }

    /// A unit without tuning data has VCOs like any other of its serial number.
    const VcoTables& vcoTables() override {
        auto image = trueImage();
        if (vcos && image == vcosOf) return *vcos;
        vcosOf = image;
        if (!hasTuningData(*image)) {
            image = std::make_shared<const std::vector<std::uint8_t>>(
                makeSyntheticImage({.serialNumber = serialNumber, .pretest = false, .chamber = false}));
        }
        return vcos.emplace(std::move(image));
    }

    UnitCalibration::Image trueImage() const { return (nature ? *nature : flash).current(); }

    void startStream() override {
        StreamReception reception{.state = sequencer.state(), .image = trueImage()};
        std::unique_lock lock(reported);
        const auto air = options.scene;
        const Oscillator oscillator = options.oscillator;
        reception.temperature = options.health.temperatureA;
        const ContextReport report{options.health.temperatureA, options.identity.serialNumber, options.fix};
        lock.unlock();
        generator.follow(sequencer, oscillator, trueImage());
        reception.scene = generator.playInto(air);
        reception.timebaseRatio = oscillator.frequencyRatio(reception.state.timebaseDac);
        streams.start(std::move(reception), report, server.dataSocket());
    }
    void stopStream() override { streams.stop(); }
    void sendStream(std::uint32_t datagrams) override {
        streams.request(datagrams, request.sender, *request.socket);
    }

    void sendStatus() override {
        const auto now = std::chrono::floor<std::chrono::seconds>(WallClock::now());
        std::unique_lock lock(reported);
        UnitReport report = sequencer.report(options.fix.good(), options.oscillator, now);
        report.adcOverflow =
            static_cast<std::uint8_t>(std::exchange(overdriven, std::uint8_t{0}) | streams.takeOverdriven());
        const auto record = composeStatusRecord(options.identity, options.health, options.fix, report);
        lock.unlock();
        recording.noteReply(ReplyKind::status, 0);
        send(ReplyKind::status, std::nullopt, {record.begin(), record.end()});
    }

    void sendPage(std::uint16_t page) override {
        const FlashMemory::Page payload = flash.pageOnWire(page);
        recording.noteReply(ReplyKind::page, page);
        send(ReplyKind::page, page, makeDataDatagram(nextHeader(WallClock::now()), payload));
    }

    /// With nothing in the air, or no input selected, the samples are zero.
    void sendSamples(std::uint32_t datagrams) override {
        std::unique_lock lock(reported);
        const auto air = options.scene;
        const double temperature = options.health.temperatureA;
        const Oscillator oscillator = options.oscillator;
        lock.unlock();
        generator.follow(sequencer, oscillator, trueImage());
        const auto scene = generator.playInto(air);
        const auto settings = scene ? sequencer.captureSettings(oscillator) : std::nullopt;
        if (settings) {
            sendCapture(*settings, temperature, *scene, datagrams);
        } else {
            sendSilence(datagrams);
        }
    }

    void sendSilence(std::uint32_t datagrams) {
        static constexpr std::array<std::uint8_t, dataPayloadBytes> silence{};
        for (std::uint32_t i = 0; i < datagrams && !server.stopping(); ++i) {
            sendBlock(WallClock::now(), silence);
        }
    }

    /// Captures follow the clock, and where they are taken faster than it goes, each other.
    void sendCapture(const CaptureSettings& settings, double temperature, const Scene& scene,
                     std::uint32_t datagrams) {
        CapturePath capture = captures.make(settings, trueImage(), temperature, scene);
        std::array<std::uint8_t, dataPayloadBytes> payload;
        const auto now = std::chrono::floor<SampleTime>(WallClock::now().time_since_epoch());
        nextSample = std::max(nextSample, now);
        for (std::uint32_t i = 0; i < datagrams && !server.stopping(); ++i) {
            if (capture.take(nextSample.count(), payload)) overdriven |= overdrivenInput(settings.channel);
            sendBlock(WallClock::time_point(std::chrono::duration_cast<WallClock::duration>(nextSample)),
                      payload);
            nextSample += SampleTime(captureBlock);
        }
    }

    static std::uint8_t overdrivenInput(std::size_t channel) {
        return static_cast<std::uint8_t>(1u << channel);
    }

    void sendBlock(WallClock::time_point time, std::span<const std::uint8_t> payload) {
        recording.noteReply(ReplyKind::samples, 0);
        send(ReplyKind::samples, std::nullopt, makeDataDatagram(nextHeader(time), payload));
    }

    void pause(std::uint16_t ticks) override {
        recording.notePause(ticks);
        if (options.honourPauses) server.sleep(ticks * pauseTick);
    }

    DataHeader nextHeader(WallClock::time_point time) {
        return {0, static_cast<std::uint8_t>(sentDatagrams++ & 15), time, 0};
    }

    void send(ReplyKind kind, std::optional<std::uint16_t> page, std::vector<std::uint8_t> bytes) {
        replies.send({kind, page, request.sender, std::move(bytes)}, *request.socket);
    }
};

SimulatedUnit::SimulatedUnit(UnitOptions options) : core_(std::make_unique<Core>(std::move(options))) {}

SimulatedUnit::~SimulatedUnit() = default;

void SimulatedUnit::start() { core_->server.start(); }

void SimulatedUnit::stop() { core_->server.stop(); }

bool SimulatedUnit::running() const { return core_->server.running(); }

const std::string& SimulatedUnit::address() const { return core_->options.address; }

std::uint16_t SimulatedUnit::controlPort() const { return core_->options.controlPort; }

std::uint16_t SimulatedUnit::dataPort() const { return core_->options.dataPort; }

Identity SimulatedUnit::identity() const {
    const std::lock_guard lock(core_->reported);
    return core_->options.identity;
}

void SimulatedUnit::setIdentity(const Identity& identity) {
    const std::lock_guard lock(core_->reported);
    core_->options.identity = identity;
}

Health SimulatedUnit::health() const {
    const std::lock_guard lock(core_->reported);
    return core_->options.health;
}

void SimulatedUnit::setHealth(const Health& health) {
    const std::lock_guard lock(core_->reported);
    core_->options.health = health;
}

void SimulatedUnit::changeHealth(const std::function<void(Health&)>& change) {
    const std::lock_guard lock(core_->reported);
    change(core_->options.health);
}

GpsFix SimulatedUnit::fix() const {
    const std::lock_guard lock(core_->reported);
    return core_->options.fix;
}

void SimulatedUnit::setFix(const GpsFix& fix) {
    const std::lock_guard lock(core_->reported);
    core_->options.fix = fix;
}

Oscillator SimulatedUnit::oscillator() const { return core_->oscillatorNow(); }

void SimulatedUnit::setOscillator(const Oscillator& oscillator) {
    const std::lock_guard lock(core_->reported);
    core_->options.oscillator = oscillator;
}

void SimulatedUnit::loadImage(std::vector<std::uint8_t> image) { core_->flash.load(std::move(image)); }

std::vector<std::uint8_t> SimulatedUnit::image() const { return core_->flash.image(); }

void SimulatedUnit::setScene(std::shared_ptr<const Scene> scene) {
    const std::lock_guard lock(core_->reported);
    core_->options.scene.swap(scene);
}

std::shared_ptr<const Scene> SimulatedUnit::scene() const {
    const std::lock_guard lock(core_->reported);
    return core_->options.scene;
}

void SimulatedUnit::setMarkerEdges(std::vector<MarkerEdge> edges) {
    core_->streams.setMarkerEdges(std::move(edges));
}

void SimulatedUnit::loseStreamTurns(std::uint64_t turns) { core_->streams.loseTurns(turns); }

void SimulatedUnit::setStreamWarnings(std::uint32_t trailer) { core_->streams.setWarnings(trailer); }

FaultPlan& SimulatedUnit::faults() { return core_->faults; }

const Recording& SimulatedUnit::recording() const { return core_->recording; }

void SimulatedUnit::clearRecording() { core_->recording.clear(); }

UnitState SimulatedUnit::state() const { return core_->sequencer.state(); }

ChannelTuning SimulatedUnit::tuning(std::size_t channel, std::optional<double> groupHz) const {
    return core_->sequencer.tuning(channel, groupHz);
}

std::size_t SimulatedUnit::unknownWords() const { return core_->rules.unknownWords(); }

std::size_t SimulatedUnit::brokenRules() const { return core_->rules.brokenRules(); }

std::vector<std::string> SimulatedUnit::breaches() const { return core_->rules.lines(); }

void SimulatedUnit::clearBreaches() { core_->rules.clear(); }

}  // namespace hxr::sim
