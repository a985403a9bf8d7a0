#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "sim/endpoint.h"
#include "sim/faults.h"
#include "sim/recording.h"
#include "sim/sample_stream.h"
#include "sim/scene.h"
#include "sim/status_record.h"
#include "sim/stream_samples.h"
#include "sim/sync_line.h"
#include "sim/synthetic_image.h"
#include "sim/tuning.h"
#include "sim/unit_state.h"

namespace hxr::sim {

/// How a simulated unit is made.
struct UnitOptions {
    std::string address = "127.0.0.2";  ///< any local address; on loopback each unit takes one of its own
    std::uint16_t controlPort = 5000;
    std::uint16_t dataPort = 4991;

    Identity identity{};
    Health health{};
    GpsFix fix{};
    Oscillator oscillator{};

    /// Calibration image of exactly `imageBytes`; empty: a synthetic one for the unit's serial number.
    std::vector<std::uint8_t> image{};

    /// What the unit really is, where its flash tells something else; empty: as its flash tells.
    std::vector<std::uint8_t> trueImage{};

    /// What the unit hears, beside its own generator, in its captures and streams; none: samples of zero.
    std::shared_ptr<const Scene> scene{};

    StreamContent streamContent = StreamContent::scene;
    /// What a stream hears in its first so many turns repeats from then on, and costs no more: for benchmarks. 0:
    /// every packet is worked out.
    std::size_t streamLoopTurns = 0;
    /// Streams go by the unit's own clock: nothing is sent before its time. If not, as fast as it is asked for.
    bool streamsInRealTime = false;
    /// Seconds of that clock to one that passes: under 1 for a machine that is too slow for all units of a group.
    double streamPace = 1;
    /// Turns that a unit in real time keeps for a host that is late: 256 MiB of four channels.
    std::uint64_t streamBufferTurns = 8192;
    /// A packet capture file of the streams that go by themselves to their destinations; empty: none.
    std::string packetFile{};
    /// The cable to the other units of a group, which have the same. Without it a unit starts its streams by
    /// itself, at its own word, and has no LO from a group's master.
    std::shared_ptr<SyncLine> syncLine{};

    /// Whether pause words really take their time. They are counted either way.
    bool honourPauses = false;
    /// Replies leave at the pace of a 10-gigabit line at most.
    bool paced = true;
    /// So many of the latest datagrams are kept whole in the recording, 2 KiB each.
    std::size_t recordedPackets = 10'000;
};

/// One simulated receiver unit on the wire: a control and a data socket, and a thread that runs the command
/// words that arrive there and answers them to where they came from. Nothing is sent unasked.
///
/// All operations but start and stop may be called from any thread at any time. State, faults and recording
/// outlive stop and start, as do settings of a unit whose network cable was pulled.
class SimulatedUnit {
  public:
    /// @throws std::invalid_argument for a bad address, equal ports or an image of the wrong size
    explicit SimulatedUnit(UnitOptions options = {});
    ~SimulatedUnit();
    SimulatedUnit(const SimulatedUnit&) = delete;
    SimulatedUnit& operator=(const SimulatedUnit&) = delete;

    /// Binds the sockets and starts to serve; nothing if it serves already.
    /// @throws std::system_error, naming the address, if a socket can't be bound
    void start();
    /// Closes the sockets and ends the thread. From then on the host's datagrams find no port.
    void stop();
    bool running() const;

    const std::string& address() const;
    std::uint16_t controlPort() const;
    std::uint16_t dataPort() const;

    // What the unit tells in its status record.
    Identity identity() const;
    void setIdentity(const Identity& identity);
    Health health() const;
    void setHealth(const Health& health);
    /// Changes single values in place, in one step.
    void changeHealth(const std::function<void(Health&)>& change);
    GpsFix fix() const;
    void setFix(const GpsFix& fix);
    Oscillator oscillator() const;
    void setOscillator(const Oscillator& oscillator);

    // The flash.
    /// @throws std::invalid_argument unless the image has exactly `imageBytes`
    void loadImage(std::vector<std::uint8_t> image);
    std::vector<std::uint8_t> image() const;

    /// Puts other signals into the air, from the next capture or start of a stream on; null: samples of zero.
    void setScene(std::shared_ptr<const Scene> scene);
    std::shared_ptr<const Scene> scene() const;

    /// Edges of the marker line in streams, by rising position, from the next packet on; none: it stays low.
    void setMarkerEdges(std::vector<MarkerEdge> edges);
    /// Bits that go out in every trailer from the next packet on.
    void setStreamWarnings(std::uint32_t trailer);
    /// Lets a stream leave so many turns out, as if the unit's buffer had run over; it warns of it.
    void loseStreamTurns(std::uint64_t turns);

    FaultPlan& faults();
    const Recording& recording() const;
    void clearRecording();

    /// A copy of the registers, chips and modes as the words run so far have left them.
    UnitState state() const;
    /// How a channel is tuned, as far as the chips' registers tell.
    ///
    /// @param channel  0 to 3
    /// @param groupHz  the shared LO of the group's master (its `sharedLoHz(state())`), for a unit that takes
    ///                 it from there
    ChannelTuning tuning(std::size_t channel, std::optional<double> groupHz = std::nullopt) const;

    /// Words of no known form, on either socket.
    std::size_t unknownWords() const;
    /// Known words with impossible fields, and sequences that the unit can't run.
    std::size_t brokenRules() const;
    /// One line for each unknown word and broken rule, the first thousand.
    std::vector<std::string> breaches() const;
    void clearBreaches();

  private:
    class Core;
    std::unique_ptr<Core> core_;
};

}  // namespace hxr::sim
