#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "sim/sequencer.h"
#include "sim/synthetic_image.h"

namespace hxr::test {

inline constexpr std::uint32_t unitAddress = 0xC0A80214;  // 192.168.2.20

class WrittenDown : public sim::SequencerOutputs {
  public:
    void sendStatus() override { text += "status;"; }
    void sendPage(std::uint16_t page) override { text += "page " + std::to_string(page) + ";"; }
    void sendSamples(std::uint32_t count) override { text += "samples " + std::to_string(count) + ";"; }
    void startStream() override { text += "start;"; }
    void stopStream() override { text += "stop;"; }
    void sendStream(std::uint32_t count) override { text += "stream " + std::to_string(count) + ";"; }
    void pause(std::uint16_t ticks) override { text += "pause " + std::to_string(ticks) + ";"; }

    const sim::VcoTables& vcoTables() override { return vcos; }

    std::string text;
    /// Those of a unit with the default serial number.
    inline static const sim::VcoTables vcos{std::make_shared<const std::vector<std::uint8_t>>(
        sim::makeSyntheticImage({.pretest = false, .chamber = false}))};
};

/// A sequencer without a unit around it.
struct SequencerFixture : ::testing::Test {
    void run(const std::vector<std::uint32_t>& words) { sequencer.runControlPacket(words); }
    /// The rules broken since the last call, as one text.
    std::string breaches() {
        std::string text;
        for (const std::string& line : rules.lines()) text += line + "\n";
        rules.clear();
        return text;
    }

    sim::RuleBook rules;
    WrittenDown outputs;
    sim::Sequencer sequencer{rules, outputs, unitAddress};
};

}  // namespace hxr::test
