#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "link/udp_device.h"

namespace hxr::test {

/// An endpoint without a network: it notes what is sent and hands out what it was told to.
class ScriptedEndpoint final : public UDPDevice {
  public:
    std::vector<std::vector<std::uint32_t>> sent;
    std::deque<std::vector<std::byte>> replies;  ///< none left: a time-out
    std::optional<std::size_t> shortSend;        ///< this send, counted from 0, transfers fewer bytes
    std::optional<std::size_t> lostAt;           ///< from this send on the endpoint is lost
    std::vector<std::string> calls;              ///< what was asked for, in order
    std::function<void()> onSend = [] {};        ///< called behind each send

    bool isOpen() const override { return open_; }
    bool open(const char* local, const char* remote, std::uint16_t localPort,
              std::uint16_t remotePort) override {
        open_ = true;
        local_ = local;
        remote_ = remote;
        ports_ = {localPort, remotePort};
        ++opens;
        return true;
    }
    bool close() override {
        open_ = false;
        ++closes;
        return true;
    }
    std::string localAddress() const override { return local_; }
    std::string remoteAddress() const override { return remote_; }
    std::uint16_t localPort() const override { return ports_.first; }
    std::uint16_t remotePort() const override { return ports_.second; }
    void send(int slot, const std::uint32_t* words) override {
        note("send", slot);
        sent.emplace_back(words, words + wordsPerPacket);
        onSend();
    }
    std::size_t waitSend(int slot) override {
        note("wait", slot);
        return shortSend && sent.size() == *shortSend + 1 ? 1000 : sendBytes;
    }
    void postReceives(int slot, int count, unsigned timeoutMs) override {
        note("post", slot, count, timeoutMs);
    }
    ReceiveResult* collectReceives(int slot) override {
        note("collect", slot);
        result_.timedOut = result_.timedOut || replies.empty();
        if (!replies.empty()) {
            current_ = replies.front();
            replies.pop_front();
            result_.buffers[0] = current_.data();
            result_.lengths[0] = static_cast<std::uint32_t>(current_.size());
        }
        return &result_;
    }
    int withdrawReceives(int) override { return 0; }
    void discardArrived() override {}
    bool lost() const override { return lostAt && sent.size() > *lostAt; }

    int opens = 0, closes = 0;

  private:
    template <typename... Numbers>
    void note(std::string call, Numbers... numbers) {
        ((call += ' ' + std::to_string(numbers)), ...);
        calls.push_back(call);
    }

    bool open_ = false;
    std::string local_, remote_;
    std::pair<std::uint16_t, std::uint16_t> ports_{};
    std::vector<std::byte> current_;
    ReceiveResult result_;
};

}  // namespace hxr::test
