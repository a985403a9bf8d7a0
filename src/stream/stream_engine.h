#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "hxr_api.h"

namespace hxr {

struct Settings;
struct StreamCounters;
struct StreamLists;
struct UnitAccess;

/// Brings the samples of a group's streaming channels to the application: a thread for each unit keeps requests under
/// way, takes the packets apart, decimates them where the units don't go so far, and stores the samples in a ring.
///
/// Status, health and GPS entries may be used beside it: samples come over the data endpoints.
class StreamEngine {
  public:
    /// Starts all units; returns when all are started.
    /// @param group     its units: the claims of the control endpoints are used until this returns, those of the data
    ///                  endpoints are the engine's until `stop` returns, wherever they are kept
    /// @param settings  of the group, copied
    /// @param lists     for each unit
    /// @throws std::bad_alloc, std::system_error, with all threads ended
    StreamEngine(std::span<const UnitAccess> group, const Settings& settings, std::vector<StreamLists> lists);

    ~StreamEngine();
    StreamEngine(const StreamEngine&) = delete;
    StreamEngine& operator=(const StreamEngine&) = delete;

    /// What the application gets.
    struct Parameters {
        int channelCount;
        double sampleRate;  ///< samples a second
        double bandwidth;   ///< Hz
    };
    const Parameters& parameters() const;

    /// What the stream counts.
    std::shared_ptr<const StreamCounters> counters() const;

    /// What a call of `hxrStreamRecv` asks for.
    struct Request {
        void** buffers;
        int count;
        std::uint64_t* nanoseconds;
        bool purge;
        int* sampleLoss;
        int* samplesRemaining;
        double* triggers;
        int triggerRoom;
    };

    /// May be called from any thread, also beside `stop`.
    /// @return as `hxrStreamRecv`; `hxrInvalidConfigurationErr` while another thread receives, and once the engine is
    ///         stopped
    HXRStatus receive(const Request& request);

    /// Ends the threads, when what was asked for has come, and all waits for samples. The units go on until they are told
    /// to stop. The engine doesn't use them any more.
    void stop();

  private:
    class Run;
    std::unique_ptr<Run> run_;
};

/// Plans the stream of a group and starts it. A unit whose date and time nobody has set is asked for a status record.
/// @param settings  of the group; receives the bandwidths and the corrections that are used
/// @return the engine of a local stream; null for one to VRT addresses
/// @throws std::bad_alloc, std::system_error, with no engine made
std::shared_ptr<StreamEngine> configureStream(std::span<const UnitAccess> group, Settings& settings);

/// Sends what configures a unit for a stream.
/// @return false if the link is lost
bool sendConfiguration(const UnitAccess& unit, const StreamLists& lists);

}  // namespace hxr
