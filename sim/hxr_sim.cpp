// hxr-sim: simulated receiver units as a program of their own.

#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <ratio>
#include <stdexcept>
#include <string>
#include <vector>

#include "sim/fault_text.h"
#include "sim/scene_file.h"
#include "sim/scene_text.h"
#include "sim/simulated_unit.h"
#include "sim/sources.h"

#ifndef HXR_SIM_VERSION
#error "the build tells the version"
#endif

namespace {

using hxr::sim::Endpoint;
using hxr::sim::SimulatedUnit;
using hxr::sim::SyntheticImageOptions;

struct Arguments {
    std::vector<std::string> addresses = {"127.0.0.2"};
    std::vector<std::uint32_t> serials = {12345678};
    std::uint16_t port = 5000;
    std::uint16_t dataPort = 4991;
    unsigned units = 1;
    std::string imageFile;
    std::string writeImageFile;
    SyntheticImageOptions synthetic;
    bool blank = false;
    bool badChecksum = false;
    bool noFix = false;
    std::optional<std::uint16_t> trueDac;
    bool clockFault = false;
    bool honourPauses = false;
    bool streamsInRealTime = false;
    bool streamsCounter = false;
    std::vector<std::string> faults;
    std::string scene;
    std::vector<std::string> tones;
    std::optional<double> noise;
    bool quiet = false;
    bool verbose = false;
    pid_t parent = 0;
};

constexpr const char* examples =
    "\nExamples:\n"
    "  hxr-sim                                      one unit on 127.0.0.2, port 5000\n"
    "  hxr-sim --units 4                            four, on 127.0.0.2 to 127.0.0.5, serial numbers counted "
    "up\n"
    "  hxr-sim --address 127.0.0.7 --serial 777     another address and serial number\n"
    "  hxr-sim --no-chamber                         a unit that was never calibrated\n"
    "  hxr-sim --fault status:delay=200:always      every status 200 ms late\n"
    "  hxr-sim --fault page=300:length=8215         one flash page cut by a byte\n"
    "  hxr-sim --fault dies-after=500               a unit that falls silent in the middle\n"
    "  hxr-sim --tone 2.4G:-30 --noise -150         a carrier above noise, -30 dBm at 2.4 GHz\n"
    "  hxr-sim --scene demo                         a dozen signals from 100 kHz to 20 GHz\n"
    "  hxr-sim --scene air.txt                      those that a file tells\n\n";

void addOptions(CLI::App& app, Arguments& arguments) {
    app.add_option("--address", arguments.addresses, "local address; repeat it for several units")
        ->capture_default_str();
    app.add_option("--serial", arguments.serials, "serial number; repeat it for several units")
        ->check(CLI::Range(0u, 4294967294u))
        ->capture_default_str();
    app.add_option("--units", arguments.units,
                   "units; addresses and serial numbers are counted up from the last given")
        ->check(CLI::Range(1u, 16u))
        ->capture_default_str();
    app.add_option("--port", arguments.port, "control port")
        ->check(CLI::Range(1, 65535))
        ->capture_default_str();
    app.add_option("--data-port", arguments.dataPort, "port of the sample stream")
        ->check(CLI::Range(1, 65535))
        ->capture_default_str();

    auto* image = app.add_option("--image", arguments.imageFile, "calibration image to serve, 8 MiB")
                      ->check(CLI::ExistingFile);
    app.add_flag("!--no-cbb", arguments.synthetic.cbb, "no synthesizer tables in the flash")->excludes(image);
    app.add_flag("!--no-pretest", arguments.synthetic.pretest, "no pretest data in the flash")
        ->excludes(image);
    app.add_flag("!--no-chamber", arguments.synthetic.chamber, "no chamber calibration in the flash")
        ->excludes(image);
    app.add_flag("--ideal", arguments.synthetic.idealResponse,
                 "even rails and flat IF responses; hosts that have cached this serial number see them with "
                 "a later "
                 "--cal-date only")
        ->excludes(image);
    app.add_flag("!--untested-generator", arguments.synthetic.modulatorErrors,
                 "a flash that doesn't tell what the generator's modulator does wrong")
        ->excludes(image);
    app.add_flag("--blank", arguments.blank, "an erased flash")->excludes(image);
    app.add_flag("--bad-checksum", arguments.badChecksum, "a checksum that is wrong")->excludes(image);
    app.add_option("--cal-date", arguments.synthetic.calDate, "calibration date, seconds since 1970")
        ->capture_default_str()
        ->excludes(image);
    app.add_option("--write-image", arguments.writeImageFile,
                   "write the first unit's image to a file and end");

    app.add_flag("--no-fix", arguments.noFix, "GPS without a fix");
    app.add_option("--true-dac", arguments.trueDac,
                   "timebase value to which a unit disciplined by GPS steers");
    app.add_flag("--clock-fault", arguments.clockFault, "converter clocks that are not aligned");
    app.add_flag("--pauses", arguments.honourPauses, "let pauses in command lists take their time");
    app.add_flag("--counter", arguments.streamsCounter,
                 "streams count their samples in place of hearing anything: hxr-rate --counter looks whether "
                 "all come");
    app.add_flag("--real-time", arguments.streamsInRealTime,
                 "streams go by the unit's own clock; otherwise as fast as they are asked for");
    app.add_option("--fault", arguments.faults, hxr::sim::faultTextForm);
    app.add_option("--scene", arguments.scene, "signals in the air: demo, or a file of the form below");
    app.add_option("--tone", arguments.tones, hxr::sim::toneTextForm);
    app.add_option("--noise", arguments.noise, "density of noise in the air, dBm in 1 Hz");
    auto* quiet = app.add_flag("--quiet", arguments.quiet, "print nothing but errors");
    app.add_flag("--verbose", arguments.verbose, "print unknown words and broken rules at the end")
        ->excludes(quiet);
    app.add_option("--with-parent", arguments.parent,
                   "number of the process that has started it, with which it ends, however that ends");
    app.set_version_flag("--version", HXR_SIM_VERSION);
    app.footer(examples + hxr::sim::sceneFileForm() +
               "\nExit status:\n  0  ended by a signal\n  1  it can't run\n  2  wrong options or values\n");
}

std::vector<std::uint8_t> readImage(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::vector<std::uint8_t> bytes{std::istreambuf_iterator<char>(file), {}};
    if (!file) throw std::runtime_error("can't read " + path);
    return bytes;
}

void writeImage(const std::string& path, const std::vector<std::uint8_t>& image) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(image.data()), static_cast<std::streamsize>(image.size()));
    if (!file.flush()) throw std::runtime_error("can't write " + path);
}

std::vector<std::uint8_t> syntheticImage(const Arguments& arguments, std::uint32_t serialNumber,
                                         bool modulatorErrors) {
    SyntheticImageOptions options = arguments.synthetic;
    options.serialNumber = serialNumber;
    options.goodChecksum = !arguments.badChecksum;
    options.modulatorErrors = modulatorErrors;
    return hxr::sim::makeSyntheticImage(options);
}

/// What a unit's flash tells.
std::vector<std::uint8_t> imageFor(const Arguments& arguments, std::uint32_t serialNumber) {
    if (!arguments.imageFile.empty()) return readImage(arguments.imageFile);
    if (arguments.blank) return hxr::sim::makeBlankImage();
    return syntheticImage(arguments, serialNumber, arguments.synthetic.modulatorErrors);
}

/// What the unit is, if its flash doesn't tell.
std::vector<std::uint8_t> trueImageFor(const Arguments& arguments, std::uint32_t serialNumber) {
    if (arguments.synthetic.modulatorErrors || arguments.blank) return {};
    return syntheticImage(arguments, serialNumber, true);
}

/// Lengthens a list to `count` by counting up from its last entry.
std::vector<std::uint32_t> countedUp(std::vector<std::uint32_t> values, std::size_t count) {
    while (values.size() < count) values.push_back(values.back() + 1);
    return values;
}

/// The present sample of a capture, counted from 1970.
std::int64_t presentSample() {
    using Samples = std::chrono::duration<std::int64_t, std::ratio<1, 50'000'000>>;
    return std::chrono::floor<Samples>(std::chrono::system_clock::now().time_since_epoch()).count();
}

/// What all units hear; nothing if nothing was asked for.
std::shared_ptr<const hxr::sim::Scene> sceneFor(const Arguments& arguments) {
    auto scene = std::make_shared<hxr::sim::Scene>();
    if (arguments.scene == "demo") {
        *scene = hxr::sim::demoScene();
    } else if (!arguments.scene.empty()) {
        *scene = hxr::sim::readSceneFile(arguments.scene, presentSample());
    }
    for (const std::string& tone : arguments.tones) addToneFromText(*scene, tone);
    if (arguments.noise) scene->with<hxr::sim::WhiteNoise>(*arguments.noise);
    if (scene->empty()) return nullptr;
    return scene;
}

std::vector<std::unique_ptr<SimulatedUnit>> makeUnits(const Arguments& arguments) {
    std::vector<std::uint32_t> hosts;
    for (const std::string& address : arguments.addresses) hosts.push_back(Endpoint::of(address, 0).address);
    const std::size_t count =
        std::max<std::size_t>({arguments.units, hosts.size(), arguments.serials.size()});
    hosts = countedUp(hosts, count);
    const auto serials = countedUp(arguments.serials, count);

    const auto scene = sceneFor(arguments);
    const auto syncLine = std::make_shared<hxr::sim::SyncLine>();
    std::vector<std::unique_ptr<SimulatedUnit>> units;
    for (std::size_t i = 0; i < count; ++i) {
        hxr::sim::UnitOptions options;
        options.address = Endpoint{hosts[i], 0}.addressText();
        options.controlPort = arguments.port;
        options.dataPort = arguments.dataPort;
        options.identity.serialNumber = serials[i];
        options.image = imageFor(arguments, serials[i]);
        options.trueImage = trueImageFor(arguments, serials[i]);
        options.honourPauses = arguments.honourPauses;
        options.streamsInRealTime = arguments.streamsInRealTime;
        if (arguments.streamsCounter) options.streamContent = hxr::sim::StreamContent::counter;
        options.syncLine = syncLine;
        options.recordedPackets = 0;
        options.scene = scene;
        if (arguments.clockFault) options.health.clockStatus = 0;
        options.oscillator.trueDac = arguments.trueDac;
        if (arguments.noFix) options.fix = hxr::sim::GpsFix::none();
        units.push_back(std::make_unique<SimulatedUnit>(std::move(options)));
        for (const std::string& fault : arguments.faults) addFaultFromText(units.back()->faults(), fault);
    }
    return units;
}

void printReady(const std::vector<std::unique_ptr<SimulatedUnit>>& units) {
    std::printf("ready");
    for (const auto& unit : units) std::printf(" %s:%u", unit->address().c_str(), unit->controlPort());
    std::printf("\n");
    std::fflush(stdout);
}

void printSummary(const SimulatedUnit& unit, bool verbose) {
    const auto counts = unit.recording().counts();
    std::printf("%s serial %u: %zu packets, %zu words, %zu unknown words, %zu broken rules\n",
                unit.address().c_str(), unit.identity().serialNumber, counts.packets + counts.dataPackets,
                counts.words, unit.unknownWords(), unit.brokenRules());
    if (!verbose) return;
    for (const std::string& line : unit.breaches()) std::printf("  %s\n", line.c_str());
}

/// Serves until the program is asked to end.
void serve(const Arguments& arguments) {
    if (arguments.parent != 0) {
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        if (getppid() != arguments.parent) return;  // it has ended already
    }
    sigset_t endings;
    sigemptyset(&endings);
    sigaddset(&endings, SIGINT);
    sigaddset(&endings, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &endings, nullptr);

    const auto units = makeUnits(arguments);
    for (const auto& unit : units) unit->start();
    if (!arguments.quiet) printReady(units);

    int signal = 0;
    sigwait(&endings, &signal);
    for (const auto& unit : units) unit->stop();
    if (arguments.quiet) return;
    for (const auto& unit : units) printSummary(*unit, arguments.verbose);
}

}  // namespace

int main(int argc, char** argv) {
    try {
        CLI::App app("Simulated HXR receiver units on the network.");
        Arguments arguments;
        addOptions(app, arguments);
        try {
            app.parse(argc, argv);
        } catch (const CLI::ParseError& error) {
            constexpr int wrongUsage = 2;
            return app.exit(error) == 0 ? 0 : wrongUsage;
        }
        if (arguments.writeImageFile.empty()) {
            serve(arguments);
        } else {
            writeImage(arguments.writeImageFile, imageFor(arguments, arguments.serials.front()));
        }
        return EXIT_SUCCESS;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "hxr-sim: %s\n", error.what());
        return EXIT_FAILURE;
    }
}
