#include "support.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <future>
#include <iterator>
#include <map>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <thread>

namespace tools {
namespace {

static_assert(std::atomic<int>::is_always_lock_free);
std::atomic<int> interrupts = 0;
std::atomic<bool> interruptSeen = false;  ///< the program knows that it is to end

/// Ends the waits of a program that was asked to end and doesn't know it, then the program.
void watchInterrupts() {
    using namespace std::chrono_literals;
    constexpr int groupHandle = 0;
    const auto seenWithin = [](std::chrono::milliseconds time) {
        const auto end = std::chrono::steady_clock::now() + time;
        while (!interruptSeen && std::chrono::steady_clock::now() < end) std::this_thread::sleep_for(10ms);
        return interruptSeen.load();
    };
    while (interrupts == 0) std::this_thread::sleep_for(20ms);
    if (seenWithin(300ms)) return;
    // Another thread, since an abort itself may wait for a unit that is lost.
    std::thread([] {
        while (hxrAbort(groupHandle) == hxrInvalidConfigurationErr && !interruptSeen)
            std::this_thread::sleep_for(10ms);
    }).detach();
    if (seenWithin(500ms)) return;
    std::fflush(nullptr);
    _exit(somethingFailed);
}

/// What the user is told where the status alone doesn't help.
std::string adviceFor(HXRStatus status) {
    switch (status) {
        case hxrConnectionLostErr:
            return "; the unit stopped answering, or a packet was lost on the way: connect anew";
        case hxrADCAlignmentErr:
        case hxrDataSyncErr:
            return "; switch the unit off and on";
        case hxrCalChecksumFailed:
            return "; levels may be wrong";
        default:
            return "";
    }
}

void checkConnected(const Where& where, const std::string& unit, HXRStatus status) {
    if (status == hxrDeviceNotFoundErr)
        throw std::runtime_error(
            "can't reach " + unit + " from " + where.host +
            ": is that an address of this computer (`ip address` shows them, --host names "
            "another)? --simulate tries the program without a unit");
    if (status == hxrConnectionLostErr)
        throw std::runtime_error(
            "no answer from " + unit + ": is the unit on, is the interface " + where.host +
            " up with MTU 9000? `hxr-info --check-host` looks at this computer; --simulate "
            "tries the program without a unit");
    check("connecting to " + unit, status);
}

/// The program that lies beside this one, in the same folder or in that of the simulated receiver, or else in the path.
std::string programBeside(const char* name) {
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe");
    for (const auto& folder : {self.parent_path(), self.parent_path() / "../sim"}) {
        if (std::filesystem::exists(folder / name)) return (folder / name).string();
    }
    return name;
}

/// Starts a program.
/// @return its number; nothing if it can't be started
std::optional<pid_t> spawn(std::vector<std::string>& words, const posix_spawn_file_actions_t* files = nullptr,
                           const posix_spawnattr_t* attributes = nullptr) {
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    pid_t process = -1;
    if (posix_spawnp(&process, arguments[0], files, attributes, arguments.data(), environ) != 0) return {};
    return process;
}

/// @return the exit status of a program; below 0 if it can't be run
int runToItsEnd(std::vector<std::string>& words) {
    int status = -1;
    const auto process = spawn(words);
    if (!process || waitpid(*process, &status, 0) != *process || !WIFEXITED(status)) return -1;
    return WEXITSTATUS(status);
}

}  // namespace

void addCommonOptions(CLI::App& app, Where& where) {
    app.set_version_flag("--version", hxrGetAPIVersion());
    app.add_option("--host", where.host, "address of this computer's network interface")
        ->capture_default_str();
    app.add_option("--unit", where.units, "address of a unit; repeat it for a group, the master first")
        ->expected(1)
        ->take_all()
        ->allow_extra_args(false)
        ->capture_default_str();
    app.add_option("--port", where.port, "UDP port of the units")
        ->check(CLI::Range(1, 65535))
        ->capture_default_str();
    app.add_flag("--simulate", where.simulate, "start a simulated unit and use that");
}

CLI::Validator hertz() {
    const std::map<std::string, double> thousands{{"k", 1e3},   {"M", 1e6},   {"G", 1e9},  {"Hz", 1},
                                                  {"kHz", 1e3}, {"MHz", 1e6}, {"GHz", 1e9}};
    return CLI::AsNumberWithUnit(thousands, CLI::AsNumberWithUnit::CASE_SENSITIVE, "Hz").description("k M G");
}

CLI::Validator aboveZero() {
    return {[](std::string& text) {
                double value = 0;
                const bool number = CLI::detail::lexical_cast(text, value);
                return number && std::isfinite(value) && value > 0 ? std::string()
                                                                   : text + " is no number above 0";
            },
            "above 0"};
}

void check(const std::string& what, HXRStatus status) {
    if (status < 0 && interrupted()) throw std::runtime_error("interrupted");
    const std::string text = what + ": " + hxrGetErrorString(status) + adviceFor(status);
    if (status < 0) throw std::runtime_error(text);
    if (status > 0) std::fprintf(stderr, "%s\n", text.c_str());
}

void runBeside(std::vector<std::string> words) {
    const std::string name = words.front();
    words.front() = programBeside(name.c_str());
    if (runToItsEnd(words) != 0) throw std::runtime_error(name + " failed");
}

int runOnSimulatedUsb(std::vector<std::string> options, int argc, char** argv) {
    std::vector<std::string> words{"umockdev-wrapper", programBeside("hxr-usb-sim")};
    words.insert(words.end(), options.begin(), options.end());
    words.push_back(std::filesystem::read_symlink("/proc/self/exe"));
    std::copy_if(argv + 1, argv + argc, std::back_inserter(words),
                 [](std::string_view word) { return !word.starts_with("--simulate"); });
    const int status = runToItsEnd(words);
    constexpr int notThere = 127;
    if (status < 0 || status == notThere)
        throw std::runtime_error("simulated units on the USB need umockdev: apt install umockdev");
    return status;
}

TemporaryFile::TemporaryFile() : path_((std::filesystem::temp_directory_path() / "hxr-XXXXXX").string()) {
    const int file = mkstemp(path_.data());
    if (file < 0)
        throw std::runtime_error("can't write in " + std::filesystem::temp_directory_path().string());
    close(file);
}

TemporaryFile::~TemporaryFile() { unlink(path_.c_str()); }

UsageError noSuchChannel(const Group& group, int channel) {
    return UsageError("there are " + std::to_string(group.channelCount()) + " channels, no channel " +
                      std::to_string(channel) + "; more units are given by --unit");
}

Simulation::Simulation(Where& where) {
    if (!where.simulate) return;
    // Addresses that no other program uses at the moment.
    const int number = static_cast<int>(getpid());
    const std::string prefix =
        "127." + std::to_string(64 + number / 256 % 64) + '.' + std::to_string(number % 256) + '.';
    std::vector<std::string> words{
        programBeside("hxr-sim"),  "--with-parent", std::to_string(number), "--real-time", "--port",
        std::to_string(where.port)};
    for (std::size_t i = 0; i < where.units.size(); ++i) {
        where.units[i] = prefix + std::to_string(2 + i);
        words.insert(words.end(), {"--address", where.units[i], "--serial", std::to_string(20000001 + i)});
    }
    words.insert(words.end(), where.simulatorOptions.begin(), where.simulatorOptions.end());
    where.host = prefix + '1';

    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe to the simulated unit");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);  // the terminal's Ctrl-C isn't for it
    process_ = spawn(words, &actions, &attributes).value_or(-1);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    close(ends[1]);
    // It says that it is ready, or ends.
    std::string said;
    std::array<char, 256> piece{};
    while (process_ > 0 && said.find("ready") == std::string::npos) {
        const ssize_t got = read(ends[0], piece.data(), piece.size());
        if (got <= 0) break;
        said.append(piece.data(), static_cast<std::size_t>(got));
    }
    close(ends[0]);
    if (said.find("ready") == std::string::npos) throw std::runtime_error("the simulated unit doesn't start");
}

Simulation::~Simulation() {
    if (process_ <= 0) return;
    kill(process_, SIGTERM);
    waitpid(process_, nullptr, 0);
}

Group::Group(const Where& where) {
    warning_ = hxrConnectDevice(&handle_, where.host.c_str(), where.units[0].c_str(), where.port);
    checkConnected(where, where.units[0], warning_);
    for (std::size_t i = 1; i < where.units.size(); ++i) {
        const HXRStatus status =
            hxrPairDevice(handle_, where.host.c_str(), where.units[i].c_str(), where.port);
        if (status < 0) hxrCloseDevice(handle_);
        checkConnected(where, where.units[i], status);
    }
    hxrGetChannelCount(handle_, &channelCount_);
}

void catchInterrupts() {
    struct sigaction action {};
    action.sa_handler = [](int) { ++interrupts; };
    action.sa_flags = static_cast<int>(SA_RESETHAND);  // the second one ends it at once
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    action.sa_flags = 0;
    sigaction(SIGPIPE, &action, nullptr);  // who read along has gone
    std::thread(watchInterrupts).detach();
}

bool interrupted() {
    if (interrupts > 0) interruptSeen = true;
    return interrupts > 0;
}

void parse(CLI::App& app, int argc, char** argv) {
    app.footer(app.get_footer() + exitStatusHelp);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        throw EarlyExit{app.exit(error) == 0 ? allWell : wrongUsage};
    }
}

void pause(double seconds) {
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + std::chrono::duration<double>(seconds);
    while (!interrupted() && Clock::now() < end)
        std::this_thread::sleep_for(
            std::min<std::chrono::duration<double>>(end - Clock::now(), std::chrono::milliseconds(50)));
}

void keepRunning(const Group& group, double seconds, const std::function<void(double)>& show) {
    constexpr double look = 0.5;
    using Clock = std::chrono::steady_clock;
    const auto begin = Clock::now();
    const auto elapsed = [&] { return std::chrono::duration<double>(Clock::now() - begin).count(); };
    while (!interrupted() && elapsed() < seconds) {
        pause(std::min(look, seconds - elapsed()));
        // Warnings would come again and again.
        const HXRStatus status = hxrGetDeviceDiagnostics(group, nullptr, nullptr, nullptr);
        if (status < 0) check("the unit", status);
        show(std::min(elapsed() / seconds, 1.0));
    }
}

Progress::~Progress() {
    if (shown_) std::fputc('\n', stderr);
}

void Progress::show(const std::string& text) {
    if (isatty(STDERR_FILENO) == 0) return;
    shown_ = true;
    std::fprintf(stderr, "\r\033[K%s", text.c_str());
}

void Progress::bar(const std::string& what, double part) {
    constexpr std::size_t width = 40;
    const auto filled = static_cast<std::size_t>(part * width);
    show(what + " [" + std::string(filled, '#') + std::string(width - filled, ' ') + "] " +
         std::to_string(static_cast<int>(100 * part)) + " %");
}

HXRStatus Progress::timed(const std::string& what, const std::function<HXRStatus()>& call) {
    const auto start = std::chrono::steady_clock::now();
    auto result = std::async(std::launch::async, call);
    while (result.wait_for(std::chrono::milliseconds(500)) == std::future_status::timeout) {
        const auto elapsed = std::chrono::steady_clock::now() - start;
        show(what + ' ' + std::to_string(std::chrono::duration_cast<std::chrono::seconds>(elapsed).count()) +
             " s");
    }
    return result.get();
}

}  // namespace tools
