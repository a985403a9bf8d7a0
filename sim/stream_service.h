#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "sim/context_packet.h"
#include "sim/datagram_batch.h"
#include "sim/packet_file.h"
#include "sim/recording.h"
#include "sim/reply_path.h"
#include "sim/rule_book.h"
#include "sim/sample_stream.h"
#include "sim/stream_destination.h"
#include "sim/stream_samples.h"
#include "sim/sync_line.h"

namespace hxr::sim {

/// How a unit streams.
struct StreamSetup {
    StreamContent content = StreamContent::scene;
    std::size_t loopTurns = 0;
    bool inRealTime = false;
    double pace = 1;
    std::uint64_t bufferTurns = 0;
    std::shared_ptr<SyncLine> syncLine{};
    std::unique_ptr<PacketFile> packetFile{};  ///< for what goes out unasked
};

/// The streams of a unit. From a start word to the next stop, what the host asks for goes out as its samples are
/// taken. A stream that was started without a port of the host goes by itself, each input's packets to their own
/// destination, always by the unit's clock: over the network only to destinations on this machine. All but the setters belongs to the thread that serves.
///
/// A unit alone and the master of a group start at once, a slave together with its master.
class StreamService {
  public:
    using Clock = std::chrono::steady_clock;

    StreamService(StreamSetup setup, RuleBook& rules, Recording& recording, ReplyPath& replies);

    /// @param socket  by which a stream goes out that goes by itself
    void start(StreamReception reception, const ContextReport& report, UdpSocket& socket);
    void stop();
    /// Datagrams that go out as soon as they can, by the socket on which they were asked for.
    void request(std::uint32_t datagrams, const Endpoint& to, UdpSocket& socket);

    /// When `serve` has something to do next; nothing: not before a request.
    std::optional<Clock::time_point> nextTime() const;
    /// Sends some of what is owed, as far as its samples have been taken.
    void serve();

    /// Inputs that were overdriven since the last call, one bit each.
    std::uint8_t takeOverdriven();

    /// Edges by rising position, for packets from now on.
    void setMarkerEdges(std::vector<MarkerEdge> edges);
    /// Bits for every trailer from now on.
    void setWarnings(std::uint32_t trailer);
    /// Leaves turns out from the next one on.
    void loseTurns(std::uint64_t turns);

  private:
    void begin(const StreamStart& start);
    std::chrono::system_clock::time_point streamTime() const;
    Clock::time_point clockAt(std::chrono::system_clock::time_point streamTime) const;
    bool running();
    bool inRealTime() const { return setup_.inRealTime || goesByItself(); }
    bool goesByItself() const { return !destinations_.empty(); }
    void sendBatches(std::chrono::system_clock::time_point now);
    bool nextIsReady(std::chrono::system_clock::time_point now);
    void dropWhatIsTooOld(std::chrono::system_clock::time_point now);
    std::uint32_t fill(std::size_t channel, std::uint64_t firstSample, SampleStream::Payload payload);

    const StreamSetup setup_;
    RuleBook& rules_;
    Recording& recording_;
    ReplyPath& replies_;
    CaptureMaker captures_;
    std::vector<DatagramBatch> batches_;  ///< by input where each goes to a destination of its own

    ContextReport report_;
    std::vector<StreamDestination> destinations_;  ///< of a stream that goes by itself, by input
    std::optional<StreamReception> reception_;     ///< of the unit that waits for its master
    std::uint64_t startsBefore_ = 0;               ///< of the group's, when the unit began to wait
    std::unique_ptr<StreamSamples> samples_;
    std::optional<SampleStream> stream_;
    Clock::time_point startClock_;  ///< when the stream's first sample was taken
    std::uint64_t owed_ = 0;
    Endpoint to_{};
    UdpSocket* socket_ = nullptr;
    std::uint8_t overdriven_ = 0;
    std::uint32_t warningsNow_ = 0;

    std::mutex mutex_;  // guards what follows
    std::shared_ptr<const std::vector<MarkerEdge>> edges_ = std::make_shared<const std::vector<MarkerEdge>>();
    std::uint32_t warnings_ = 0;
    std::uint64_t turnsToLose_ = 0;
};

}  // namespace hxr::sim
