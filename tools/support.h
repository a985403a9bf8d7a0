/// What the programs for users share: how they are told of units, what they say when something goes wrong, how they end.
#pragma once

#include <CLI/CLI.hpp>

#include <sys/types.h>

#include <cstdint>
#include <cstdio>
#include <exception>
#include <functional>
#include <iostream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "hxr_api.h"

namespace tools {

/// Exit statuses of all programs.
inline constexpr int allWell = 0;
inline constexpr int somethingFailed = 1;
inline constexpr int wrongUsage = 2;      ///< wrong options or values
inline constexpr int dataIncomplete = 3;  ///< samples or packets are missing from what was delivered

/// What every program's help says of them.
inline constexpr const char* exitStatusHelp =
    "\nExit status:\n  0  all went well\n  1  something went wrong with a unit, a file or this computer\n"
    "  2  wrong options or values\n  3  data are incomplete: samples or packets were lost\n";

/// Wrong options or values.
class UsageError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Reads the command line. Help, version and what is wrong with it are printed here.
/// @throws EarlyExit behind these
void parse(CLI::App& app, int argc, char** argv);

/// Ends the program without a further word.
struct EarlyExit {
    int status;
};

/// Which units are meant.
struct Where {
    std::string host = "192.168.2.2";
    std::vector<std::string> units{"192.168.2.10"};
    std::uint16_t port = 5000;
    bool simulate = false;
    std::vector<std::string> simulatorOptions{"--scene", "demo"};  ///< what a simulated unit is like
};

/// Adds `--host`, `--unit`, `--port` and `--simulate`, and the version.
void addCommonOptions(CLI::App& app, Where& where);

/// Takes numbers such as 2.4G or 100k.
CLI::Validator hertz();

/// Only a number above 0, and a finite one.
CLI::Validator aboveZero();

/// Adds an option that takes one of several names.
template <typename Value>
CLI::Option* addChoice(CLI::App& app, const std::string& name, Value& value,
                       const std::vector<std::pair<std::string, Value>>& choices, const std::string& text) {
    std::string names, usual;
    for (const auto& [choice, meaning] : choices) {
        names += (names.empty() ? "" : "|") + choice;
        if (meaning == value) usual = choice;
    }
    return app.add_option(name, value, text)
        ->transform(CLI::CheckedTransformer(choices))
        ->option_text(names + " =" + usual);
}

/// @throws std::runtime_error with the driver's text and what to do next, for an error; prints a warning
void check(const std::string& what, HXRStatus status);

/// A simulated unit of the program's own, in a process that ends with it.
class Simulation {
  public:
    /// @param where  is led to the simulated units
    /// @throws std::runtime_error
    explicit Simulation(Where& where);
    ~Simulation();
    Simulation(const Simulation&) = delete;
    Simulation& operator=(const Simulation&) = delete;

  private:
    pid_t process_ = -1;
};

/// Connected units, as one group under the first one's handle, until the end of the scope.
class Group {
  public:
    /// @throws std::runtime_error
    explicit Group(const Where& where);
    ~Group() { hxrCloseDevice(handle_); }
    Group(const Group&) = delete;
    Group& operator=(const Group&) = delete;

    operator int() const { return handle_; }
    int channelCount() const { return channelCount_; }
    /// What the connect warned of.
    HXRStatus warning() const { return warning_; }

  private:
    int handle_ = -1;
    int channelCount_ = 0;
    HXRStatus warning_ = hxrNoError;
};

/// That a group has no channel of this number.
UsageError noSuchChannel(const Group& group, int channel);

/// Runs a program that lies beside this one, or else in the path, to its end.
/// @throws std::runtime_error if it can't be run or fails
void runBeside(std::vector<std::string> words);

/// Runs this program anew, without `--simulate`, before simulated units on the USB.
/// @param options  of hxr-usb-sim
/// @return its exit status
int runOnSimulatedUsb(std::vector<std::string> options, int argc, char** argv);

/// The name of an empty file that is removed at the end of the scope.
class TemporaryFile {
  public:
    /// @throws std::runtime_error
    TemporaryFile();
    ~TemporaryFile();
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    const std::string& path() const { return path_; }

  private:
    std::string path_;
};

/// From now on the first Ctrl-C only asks the program to end, as does a reader of its output that goes away. If the program
/// is waiting for a unit and doesn't look for it in time, the wait is ended; if that doesn't help, the program is, a second
/// behind the Ctrl-C at the latest. A second Ctrl-C ends it at once.
void catchInterrupts();
/// Whether the program was asked to end.
bool interrupted();

/// How far something has come, on one line of a terminal; nothing where standard error is none.
class Progress {
  public:
    ~Progress();
    Progress() = default;
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void show(const std::string& text);
    /// @param part  0 to 1
    void bar(const std::string& what, double part);
    /// Shows the seconds that a call takes.
    HXRStatus timed(const std::string& what, const std::function<HXRStatus()>& call);

  private:
    bool shown_ = false;
};

/// Waits a while, or until the program is asked to end.
void pause(double seconds);

/// Waits until the program is asked to end or the seconds are over, and sees whether the unit still answers.
/// @param show  is called again and again with the part that is over, 0 to 1
/// @throws std::runtime_error if the link is lost
void keepRunning(const Group& group, double seconds, const std::function<void(double)>& show);

/// Runs a program's body and says what it throws.
/// @return the program's exit status
template <typename Body>
int run(const char* program, Body&& body) noexcept {
    const auto say = [program](const std::exception& error) {
        std::fprintf(stderr, "%s: %s\n", program, error.what());
    };
    try {
        const int status = body();
        std::cout.flush();
        if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0 || !std::cout)
            throw std::runtime_error("can't write to standard output");
        return status;
    } catch (const EarlyExit& exit) {
        return exit.status;
    } catch (const UsageError& error) {
        say(error);
        return wrongUsage;
    } catch (const std::exception& error) {
        say(error);
        return somethingFailed;
    }
}

}  // namespace tools
