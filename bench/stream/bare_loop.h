#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

/// The least that brings a unit's samples to an application: a loop of `recvmmsg` in one thread that copies each payload
/// twice, into rings as long as the driver's and from there to the caller's buffers. The unit sends by itself.
class BareLoop {
  public:
    /// @param channels  that the unit streams
    /// @param perCall   samples that the application fetches at a time
    BareLoop(const char* hostAddress, std::uint16_t port, std::size_t channels, std::size_t perCall);
    ~BareLoop();
    BareLoop(const BareLoop&) = delete;
    BareLoop& operator=(const BareLoop&) = delete;

    /// Receives for some time.
    /// @return samples that were fetched, of all channels
    double run(double seconds);

  private:
    void store(const std::byte* datagram);
    void fetch();

    static constexpr std::size_t ringSamples = std::size_t{1} << 24;

    int socket_;
    std::size_t channels_, perCall_;
    std::vector<std::vector<std::uint32_t>> rings_, buffers_;
    std::vector<std::size_t> stored_;  ///< samples by channel
    std::size_t fetched_ = 0;          ///< samples of each channel
};
