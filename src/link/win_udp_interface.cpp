#include "link/win_udp_interface.h"

#include <algorithm>
#include <bit>
#include <chrono>
#include <span>
#include <system_error>
#include <thread>

#include "link/byte_order.h"

namespace hxr {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds sendTimeout{2000};

// Receives that a collect waits for at a time.
constexpr int collectBatch = 64;

// Datagrams that the mover takes at a time: as many as the system gives in one call.
constexpr std::size_t moverBatch = 64;

// While datagrams flow and many more are due, the mover rests between two looks instead of waking for each: the longer,
// the slower they come, but never so long that the system's own buffer could fill by more than a quarter at the pace of
// the line. The system counts about twice a datagram's 8216 bytes.
constexpr std::chrono::microseconds shortestRest{250}, longestRest{1000};
constexpr std::size_t lineBytesPerMicrosecond = 38 * 2 * 8216 / 250;

// With fewer datagrams due a rest, or a long one, could make the unit wait for requests.
constexpr int dueForRests = 32, dueForLongRests = 512;

/// How long the mover may rest with a receive buffer of the system: not at all if that is under `shortestRest`.
std::chrono::microseconds longestRestFor(std::size_t receiveBuffer) {
    constexpr std::size_t parts = 4;
    const std::chrono::microseconds safe(receiveBuffer / parts / lineBytesPerMicrosecond);
    return safe < 2 * shortestRest ? std::chrono::microseconds(0) : std::min(safe, longestRest);
}

// A buffer's room, brought up to the next 64 bytes so that every buffer starts aligned.
constexpr std::size_t bufferStride =
    (receiveRoom + platform::bufferAlignment - 1) / platform::bufferAlignment * platform::bufferAlignment;

// Pages of memory are at least this large on every machine.
constexpr std::size_t smallestPage = 4096;

std::size_t index(int position) { return static_cast<std::size_t>(position); }

/// The words as they go over the wire, least significant byte first.
std::span<const std::byte> wireForm(const std::uint32_t* words,
                                    std::span<std::uint32_t, wordsPerPacket> turned) {
    if constexpr (std::endian::native == std::endian::little) {
        return std::as_bytes(std::span(words, wordsPerPacket));
    } else {
        std::transform(words, words + wordsPerPacket, turned.begin(), reversedBytes);
        return std::as_bytes(turned);
    }
}

}  // namespace

void WinUDPInterface::PostOrder::remove(int slot) {
    const auto end = slots_.begin() + count_;
    count_ = static_cast<int>(std::remove(slots_.begin(), end, slot) - slots_.begin());
}

WinUDPInterface::WinUDPInterface(platform::Clock& clock, SocketOpener openSocket)
    : clock_(clock), openSocket_(std::move(openSocket)) {
    closedResult_.timedOut = true;
}

WinUDPInterface::~WinUDPInterface() { close(); }

std::shared_ptr<platform::UdpSocket> WinUDPInterface::socketNow() const {
    const Lock lock(mutex_);
    return socket_;
}

bool WinUDPInterface::isOpen() const { return socketNow() != nullptr; }

std::string WinUDPInterface::localAddress() const {
    const Lock lock(mutex_);
    return localAddress_;
}

std::string WinUDPInterface::remoteAddress() const {
    const Lock lock(mutex_);
    return remoteAddress_;
}

std::uint16_t WinUDPInterface::localPort() const {
    const Lock lock(mutex_);
    return localPort_;
}

std::uint16_t WinUDPInterface::remotePort() const {
    const Lock lock(mutex_);
    return remotePort_;
}

bool WinUDPInterface::open(const char* localAddress, const char* remoteAddress, std::uint16_t localPort,
                           std::uint16_t remotePort) {
    const std::lock_guard oneAtATime(lifecycle_);
    release();
    auto socket = openSocket_(localAddress, localPort, remoteAddress, remotePort);
    if (!socket) return false;

    // Memory that nothing is received into is never touched, so most of this block stays with the system.
    auto buffers =
        platform::makeAlignedArray<std::byte>(index(slotCount) * index(receivesPerSlot) * bufferStride);
    std::array<std::unique_ptr<ReceiveSlot>, slotCount> slots;
    std::byte* next = buffers.get();
    for (auto& slot : slots) {
        slot = std::make_unique<ReceiveSlot>();
        for (std::byte*& buffer : slot->result.buffers) {
            buffer = next;
            next += bufferStride;
        }
    }
    std::string local = localAddress;
    std::string remote = remoteAddress;

    const Lock lock(mutex_);
    try {
        mover_ = platform::Thread("HXR Receive", platform::ThreadPriority::timeCritical,
                                  [this, socket] { moveDatagrams(socket); });
    } catch (const std::system_error&) {
        return false;  // no thread to give
    }
    socket_ = std::move(socket);
    buffers_ = std::move(buffers);
    receiveSlots_ = std::move(slots);
    localAddress_ = std::move(local);
    remoteAddress_ = std::move(remote);
    localPort_ = localPort;
    remotePort_ = remotePort;
    return true;
}

bool WinUDPInterface::close() {
    const std::lock_guard oneAtATime(lifecycle_);
    release();
    return true;
}

/// Ends every wait, then gives back what `open` has made.
void WinUDPInterface::release() {
    {
        Lock lock(mutex_);
        closing_ = true;
        endSocket(lock);
    }
    mover_.join();

    // Until the slots are gone nobody can come in, and nobody may be inside.
    Lock lock(mutex_);
    usersLeft_.wait(lock, [this] { return users_ == 0; });
    for (auto& slot : receiveSlots_) slot.reset();
    buffers_.reset();
    localAddress_.clear();
    remoteAddress_.clear();
    localPort_ = remotePort_ = 0;
    closing_ = false;
}

/// Closes the socket, once, and wakes everybody who waits on it.
void WinUDPInterface::endSocket(Lock&) {
    if (!socket_) return;
    socket_->shutDown();
    socket_.reset();
    postOrder_.clear();
    posted_.notify_all();
    for (const auto& slot : receiveSlots_) {
        if (slot) slot->progress.notify_all();
    }
}

void WinUDPInterface::send(int slot, const std::uint32_t* words) {
    SendSlot& state = sendSlots_[index(slot)];
    if (state.pending != 0) {
        lost_ = true;
        return;
    }
    if (lost_) return;
    state.pending = sendBytes;
    state.socket = socketNow();
    state.sent = sendNow(state.socket, wireForm(words, state.wireWords));
    if (state.sent) state.socket.reset();
}

/// Hands a datagram to the system, which nearly always takes it at once. Where it doesn't, it is asked again
/// here: a caller may collect the reply before it waits for the send.
bool WinUDPInterface::sendNow(const std::shared_ptr<platform::UdpSocket>& socket,
                              std::span<const std::byte> datagram) {
    if (!socket) return false;
    if (socket->send(datagram)) return true;

    const auto deadline = steady_clock::now() + clock_.timeout(sendTimeout);
    while (socketNow() == socket) {
        const auto left = std::chrono::ceil<milliseconds>(deadline - steady_clock::now());
        if (left <= milliseconds::zero()) return false;
        socket->waitSendable(left);
        if (socket->send(datagram)) return true;
    }
    return false;
}

std::size_t WinUDPInterface::waitSend(int slot) {
    SendSlot& state = sendSlots_[index(slot)];
    const std::size_t transferred = state.sent ? state.pending : 0;
    if (state.pending != 0 && !state.sent) {
        // A send that somebody has ended by a close is no failure of the endpoint.
        Lock lock(mutex_);
        if (socket_ == state.socket) loseEndpoint(lock);
    }
    state.socket.reset();
    state.pending = 0;
    return transferred;
}

void WinUDPInterface::postReceives(int number, int count, unsigned timeoutMs) {
    Lock lock(mutex_);
    ReceiveSlot* slot = slotAt(number);
    if (slot == nullptr) return;
    const SlotUse use(*this);
    takeBack(lock, *slot, number);
    slot->pendingCount = std::clamp(count, 0, receivesPerSlot);
    slot->arrived = 0;
    slot->batchArrived = {};
    slot->timeoutMs = timeoutMs;
    slot->result.count = slot->pendingCount;
    std::fill_n(slot->result.lengths.begin(), slot->pendingCount, 0U);
    touchBuffers(lock, *slot);
    if (slot->pendingCount == 0 || !socket_) return;
    postOrder_.append(number);
    posted_.notify_one();
}

/// Has the system give the memory of buffers that are posted for the first time: here it costs the poster a
/// little, in the mover it would cost datagrams.
void WinUDPInterface::touchBuffers(Lock& lock, ReceiveSlot& slot) {
    if (slot.touched >= slot.pendingCount) return;
    lock.unlock();
    for (; slot.touched < slot.pendingCount; ++slot.touched) {
        std::byte* const buffer = slot.result.buffers[index(slot.touched)];
        for (std::size_t offset = 0; offset < receiveRoom; offset += smallestPage)
            buffer[offset] = std::byte{0};
        buffer[receiveRoom - 1] = std::byte{0};
    }
    lock.lock();
}

ReceiveResult* WinUDPInterface::collectReceives(int number) {
    Lock lock(mutex_);
    ReceiveSlot* slot = slotAt(number);
    if (slot == nullptr) return &closedResult_;

    const SlotUse use(*this);
    const auto timeout = clock_.timeout(milliseconds(slot->timeoutMs));
    // Every 64 have a time-out of their own; but nobody is woken before all have come.
    const auto isOver = [&] { return slot->arrived >= slot->pendingCount || !socket_; };
    auto begin = steady_clock::now();
    while (!isOver()) {
        if (slot->progress.wait_until(lock, begin + timeout, isOver)) break;
        if (slot->batchArrived <= begin) lookOnceMore(lock);
        if (slot->batchArrived <= begin && !isOver()) loseEndpoint(lock);
        begin = slot->batchArrived;
    }
    if (slot->arrived < slot->pendingCount) slot->result.timedOut = true;
    slot->pendingCount = slot->arrived = 0;
    return closing_ ? &closedResult_ : &slot->result;
}

/// Takes what lies in the socket. A process that was held up as a whole must not find a time-out where the
/// datagram had come in time.
void WinUDPInterface::lookOnceMore(Lock& lock) {
    std::array<platform::ReceivePlace, moverBatch> places;
    const MoverPause pause(*this, lock);
    std::size_t wanted = 0, got = 0;
    do {
        wanted = choosePlaces(places);
        if (!socket_ || wanted == 0) return;
        got = socket_->receive(std::span(places).first(wanted));
        publishArrived(std::span(places).first(got));
    } while (got == wanted);
}

/// The endpoint has failed: it sends nothing any more, and its socket is closed.
void WinUDPInterface::loseEndpoint(Lock& lock) {
    lost_ = true;
    endSocket(lock);
}

int WinUDPInterface::withdrawReceives(int number) {
    Lock lock(mutex_);
    ReceiveSlot* slot = slotAt(number);
    if (slot == nullptr) return 0;
    const SlotUse use(*this);
    return takeBack(lock, *slot, number);
}

void WinUDPInterface::discardArrived() {
    constexpr int mostRounds = 1000;  // more than the system's buffer holds
    Lock lock(mutex_);
    ReceiveSlot* const slot = slotAt(0);
    if (slot == nullptr || !socket_) return;
    const SlotUse use(*this);
    const MoverPause pause(*this, lock);
    std::array<platform::ReceivePlace, moverBatch> places;
    for (std::size_t i = 0; i < places.size(); ++i) places[i] = {slot->result.buffers[i], receiveRoom, 0};
    for (int round = 0; round < mostRounds && socket_ && socket_->receive(places) > 0; ++round) continue;
}

/// Takes back what a slot has posted and nothing has arrived for, once the mover's hands are off its buffers.
int WinUDPInterface::takeBack(Lock& lock, ReceiveSlot& slot, int number) {
    if (slot.arrived == slot.pendingCount) return 0;
    const MoverPause pause(*this, lock);
    const int taken = slot.pendingCount - slot.arrived;
    postOrder_.remove(number);
    slot.pendingCount = slot.arrived;
    slot.result.count = slot.arrived;
    slot.progress.notify_all();
    return taken;
}

/// The mover: fills posted buffers with what arrives, in order, until the socket is closed.
void WinUDPInterface::moveDatagrams(const std::shared_ptr<platform::UdpSocket>& socket) {
    const auto longest = longestRestFor(socket->receiveBuffer());
    auto rest = shortestRest;
    std::array<platform::ReceivePlace, moverBatch> places;
    Lock lock(mutex_);
    while (true) {
        posted_.wait(lock, [&] { return socket_ != socket || (!postOrder_.empty() && pausesWanted_ == 0); });
        if (socket_ != socket) return;
        const std::size_t wanted = choosePlaces(places);
        moving_ = true;
        lock.unlock();
        const std::size_t got = socket->receive(std::span(places).first(wanted));
        lock.lock();
        moving_ = false;
        if (pausesWanted_ != 0) moverPaused_.notify_all();
        if (socket_ != socket) return;
        publishArrived(std::span(places).first(got));
        if (got == wanted) continue;
        // A look is to bring about two thirds of what it could.
        const int due = receivesDue();
        if (due < dueForLongRests || got > moverBatch * 7 / 8) {
            rest = shortestRest;
        } else if (got < moverBatch * 3 / 7) {
            rest = std::min(2 * rest, longest);
        }
        lock.unlock();
        if (longest.count() > 0 && got > 0 && due >= dueForRests) {
            std::this_thread::sleep_for(rest);
        } else {
            socket->waitReceivable();
        }
        lock.lock();
    }
}

int WinUDPInterface::receivesDue() const {
    int due = 0;
    for (int position = 0; position < postOrder_.size(); ++position) {
        const ReceiveSlot& slot = *slotAt(postOrder_[position]);
        due += slot.pendingCount - slot.arrived;
    }
    return due;
}

/// The places of the next datagrams: the oldest post's first, then those of the posts behind it.
std::size_t WinUDPInterface::choosePlaces(std::span<platform::ReceivePlace> places) {
    std::size_t chosen = 0;
    for (int position = 0; position < postOrder_.size() && chosen < places.size(); ++position) {
        const ReceiveSlot& slot = *slotAt(postOrder_[position]);
        for (int i = slot.arrived; i < slot.pendingCount && chosen < places.size(); ++i) {
            places[chosen++] = {slot.result.buffers[index(i)], receiveRoom, 0};
        }
    }
    return chosen;
}

void WinUDPInterface::publishArrived(std::span<const platform::ReceivePlace> places) {
    for (const platform::ReceivePlace& place : places) {
        const int number = postOrder_[0];
        ReceiveSlot& slot = *slotAt(number);
        slot.result.lengths[index(slot.arrived++)] = static_cast<std::uint32_t>(place.length);
        if (slot.arrived == slot.pendingCount) {
            postOrder_.remove(number);
            slot.progress.notify_all();
        } else if (slot.arrived % collectBatch == 0) {
            slot.batchArrived = steady_clock::now();
        }
    }
}

}  // namespace hxr
