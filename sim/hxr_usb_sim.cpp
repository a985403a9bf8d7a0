/// Runs a command on a machine whose USB has simulated units on it.

#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <list>
#include <string>
#include <vector>

#include "sim/emulated_usb.h"

int main(int argc, char** argv) try {
    CLI::App app("Runs a command that sees simulated HXR units on the USB of this machine.");
    app.set_version_flag("--version", HXR_SIM_VERSION);
    app.footer(
        "Example:\n  umockdev-wrapper hxr-usb-sim --serial 20000001 hxr-netconfig show 20000001\n"
        "\nExit status:\n  that of the command; 2 for wrong options or values\n");
    app.prefix_command();
    std::vector<std::string> serials;
    bool blank = false;
    app.add_option("--serial", serials, "serial number of a unit; may be given more than once")
        ->expected(1)
        ->take_all()
        ->allow_extra_args(false);
    app.add_flag("--blank", blank, "one more unit, without firmware");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        constexpr int wrongUsage = 2;
        return app.exit(error) == 0 ? 0 : wrongUsage;
    }

    hxr::sim::EmulatedUsb usb;
    std::list<hxr::sim::Fx3Unit> units;
    for (const std::string& serial : serials)
        units.emplace_back(hxr::sim::Fx3Options{.serialNumber = {serial.begin(), serial.end()}});
    if (blank) units.emplace_back(hxr::sim::Fx3Options{.blank = true});
    for (auto& unit : units) usb.plugIn(unit);

    std::vector<std::string> words = app.remaining();
    std::vector<char*> command;
    command.reserve(words.size() + 1);
    for (std::string& word : words) command.push_back(word.data());
    command.push_back(nullptr);
    if (words.empty()) return 0;
    const pid_t child = fork();
    if (child == 0) {
        execvp(command[0], command.data());
        std::perror(command[0]);
        _exit(127);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
} catch (const std::exception& error) {
    std::fprintf(stderr, "hxr-usb-sim: %s\n", error.what());
    return 1;
}
