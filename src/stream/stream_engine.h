#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "hxr_api.h"

namespace hxr {

struct HXRDevice;
struct StreamLists;

/// Brings the samples of a group's streaming channels to the application: a thread for each unit keeps requests under
/// way, takes the packets apart, decimates them where the units don't go so far, and stores the samples in a ring.
///
/// Status, health and GPS entries may be used beside it: samples come over the data endpoints.
class StreamEngine {
  public:
    /// Starts all units; returns when all are started.
    /// @param master  of the group, whose settings are copied; outlives the engine
    /// @param lists   for each unit
    /// @throws std::bad_alloc, std::system_error, with all threads ended
    StreamEngine(HXRDevice& master, std::vector<StreamLists> lists);

    /// Ends the threads, when what was asked for has come. The units go on until they are told to stop.
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

    /// One thread at a time.
    /// @return as `hxrStreamRecv`
    HXRStatus receive(const Request& request);

  private:
    class Run;
    std::unique_ptr<Run> run_;
};

/// Plans the stream of a group and starts it: with an engine for a local stream, without for one to VRT addresses.
/// @return `hxrNoError`
/// @throws std::bad_alloc, std::system_error, with no engine made
HXRStatus configureStream(HXRDevice& master);

}  // namespace hxr
