/// Who uses an endpoint: one owner at a time.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <utility>

#include "link/udp_device.h"

namespace hxr {

enum class EndpointOwner : std::uint8_t {
    nobody,
    entry,      ///< one call of an entry
    sweep,      ///< the sweep engine, from a sweep's start to its finish
    stream,     ///< a stream, from initiate to abort
    lifecycle,  ///< initiate, abort or close
};

/// What an endpoint of a unit carries.
enum class EndpointRole : std::uint8_t { control, data };

template <EndpointRole role>
class EndpointClaim;

/// An endpoint with its owner. Everybody may read its addresses and state; sending and receiving takes a claim.
template <EndpointRole role>
class OwnedEndpoint {
  public:
    /// @param device  a closed endpoint
    explicit OwnedEndpoint(std::unique_ptr<UDPDevice> device) : device_(std::move(device)) {}

    const UDPDevice& operator*() const { return *device_; }
    const UDPDevice* operator->() const { return device_.get(); }
    EndpointOwner owner() const { return owner_.load(std::memory_order_relaxed); }

    /// Takes the endpoint for `owner`. Never waits.
    /// @return an empty claim if somebody owns it
    EndpointClaim<role> tryClaim(EndpointOwner owner) {
        auto nobody = EndpointOwner::nobody;
        const bool taken = owner_.compare_exchange_strong(nobody, owner, std::memory_order_acquire);
        return EndpointClaim<role>(taken ? this : nullptr);
    }

  private:
    friend EndpointClaim<role>;

    std::unique_ptr<UDPDevice> device_;
    std::atomic<EndpointOwner> owner_ = EndpointOwner::nobody;
};

/// Exclusive use of an endpoint, until the claim is destroyed. Movable; an empty claim claims nothing. The endpoint
/// outlives the claim.
template <EndpointRole role>
class EndpointClaim {
  public:
    EndpointClaim() = default;
    EndpointClaim(EndpointClaim&& other) noexcept : endpoint_(std::exchange(other.endpoint_, nullptr)) {}
    EndpointClaim& operator=(EndpointClaim&& other) noexcept {
        std::swap(endpoint_, other.endpoint_);
        other.release();
        return *this;
    }
    ~EndpointClaim() { release(); }

    explicit operator bool() const { return endpoint_ != nullptr; }

    /// The endpoint; the claim must not be empty.
    UDPDevice& operator*() const { return *endpoint_->device_; }
    UDPDevice* operator->() const { return endpoint_->device_.get(); }

    /// Hands the endpoint from one owner to the next.
    void changeOwner(EndpointOwner owner) { endpoint_->owner_.store(owner, std::memory_order_relaxed); }

    void release() {
        if (OwnedEndpoint<role>* const endpoint = std::exchange(endpoint_, nullptr))
            endpoint->owner_.store(EndpointOwner::nobody, std::memory_order_release);
    }

  private:
    friend OwnedEndpoint<role>;

    explicit EndpointClaim(OwnedEndpoint<role>* endpoint) : endpoint_(endpoint) {}

    OwnedEndpoint<role>* endpoint_ = nullptr;
};

using ControlEndpoint = OwnedEndpoint<EndpointRole::control>;
using DataEndpoint = OwnedEndpoint<EndpointRole::data>;
using ControlClaim = EndpointClaim<EndpointRole::control>;
using DataClaim = EndpointClaim<EndpointRole::data>;

}  // namespace hxr
