#include "gateway/Console.h"
#include "gateway/Run.h"
#include "gateway/StartFiles.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <exception>
#include <fstream>
#include <tuple>

#include <fcntl.h>
#include <unistd.h>

namespace {

// Writes a commented configuration to start from; nothing when one of its files exists.
int Init(const std::filesystem::path& directory) {
    const std::pair<std::filesystem::path, const char*> files[] = {{directory / "kvLogFile.json", START_LOG_FILES},
                                                                   {directory / "gateway.json", START_GATEWAY}};
    for (const auto& [path, text] : files) {
        if (std::filesystem::exists(path)) {
            throw std::runtime_error(path.string() + " is there already; nothing was written");
        }
    }
    std::filesystem::create_directories(directory);
    for (const auto& [path, text] : files) {
        std::ofstream file(path, std::ios::binary);
        if (!(file << text).flush()) {
            throw std::runtime_error(path.string() + " cannot be written");
        }
        std::printf("%s\n", path.c_str());
    }
    return EXIT_OK;
}

void AddConfiguration(CLI::App& command, RunOptions& options) {
    command.add_option("--config", options.m_Configuration, "directory of kvLogFile.json and gateway.json")
        ->required()
        ->check(CLI::ExistingDirectory);
    command.add_option("--directory", options.m_Directory, "working directory; relative paths begin here")
        ->check(CLI::ExistingDirectory);
}

int Dispatch(int argc, char** argv) {
    RunOptions options;
    options.m_Module = std::filesystem::read_symlink("/proc/self/exe").parent_path() / "kvLogFile.so";
    std::filesystem::path target;

    CLI::App app("Runs the log file service on reports, one JSON object a line.");
    app.require_subcommand(1);
    app.set_version_flag("--version", PROGRAM_VERSION);
    CLI::App& run = *app.add_subcommand("run", "run the service until the end of the input or a signal");
    AddConfiguration(run, options);
    run.add_option("--input", options.m_Input, "file of reports, or - for standard input")->capture_default_str();
    run.add_option("--module", options.m_Module, "the service's shared object (default: beside this program)");
    run.add_flag("--no-flow-control", options.m_bReportLive,
                 "report as live components do; a full queue drops reports");
    CLI::App& check = *app.add_subcommand("check", "say everything that is wrong with a configuration");
    AddConfiguration(check, options);
    CLI::App& init = *app.add_subcommand("init", "write a starting configuration");
    init.add_option("DIR", target, "directory of the configuration")->required();

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? EXIT_OK : EXIT_REFUSED; // help is no error
    }
    return init.parsed() ? Init(target) : check.parsed() ? Check(options) : Run(options);
}

} // namespace

int main(int argc, char** argv) {
    // If a standard file is closed, the first log file would get its number, and so the messages.
    for (int file = STDIN_FILENO; file <= STDERR_FILENO; ++file) {
        if (fcntl(file, F_GETFD) < 0) {
            std::ignore = open("/dev/null", O_RDWR); // takes the lowest number that is free
        }
    }
    try {
        return Dispatch(argc, argv);
    } catch (const std::exception& error) {
        Console::ShowProgress("");
        Console::Say(error.what());
        return EXIT_REFUSED;
    }
}
