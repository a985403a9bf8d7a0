#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <vector>

#include "api/device_table.h"
#include "hxr_api.h"
#include "sim/simulated_unit.h"
#include "support/loopback.h"
#include "support/temporary_folder.h"
#include "support/test_clock.h"

namespace hxr::test {

/// The driver on this machine with simulated units beside it: a clock and folders of the test's
/// own, and every handle closed at the end. At the end the units must have met no word and no sequence that
/// they don't know.
class Installation : public testing::Test {
  protected:
    Installation();
    ~Installation() override;

    /// Starts a further unit: serial numbers 12345678 and up, addresses as `unitAddress` counts them.
    sim::SimulatedUnit& startUnit(sim::UnitOptions options = {});

    /// Connects to the unit at a position.
    HXRStatus connect(int position = 0);
    HXRStatus pair(int position);

    /// The open unit of a handle.
    static HXRDevice& device(int handle) { return *api::deviceTable().find(handle); }

    /// Datagrams that a unit has got since its recording was cleared, with all that had left this host by now.
    static std::size_t datagramsAt(sim::SimulatedUnit& unit);

    /// Clears a unit's recording of all that had left this host by now.
    static void forgetWhatWasSent(sim::SimulatedUnit& unit) {
        datagramsAt(unit);
        unit.clearRecording();
    }

    /// The unit's calibration cache file, where the folder is as it should be.
    std::filesystem::path cacheFile(int position = 0) const;

    TestClock clock;
    TemporaryFolder folder;
    std::filesystem::path machineFolder = folder.path() / "shared" / "cal_files";
    std::filesystem::path fallbackFolder = folder.path() / "local" / "cal_files";
    std::vector<std::unique_ptr<sim::SimulatedUnit>> units;
    std::shared_ptr<sim::SyncLine> syncLine = std::make_shared<sim::SyncLine>();  ///< between all of them
    int handle = -1;
};

/// A synthetic image for the unit at a position.
std::vector<std::uint8_t> imageFor(int position, const sim::SyntheticImageOptions& options = {});

}  // namespace hxr::test
