#include "gateway/Configuration.h"
#include "gateway/Console.h"
#include "gateway/Findings.h"
#include "gateway/Init.h"
#include "gateway/Run.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <exception>

namespace {

int Check(const RunOptions& options) {
    if (!options.m_Directory.empty()) {
        const std::filesystem::path configuration = std::filesystem::absolute(options.m_Configuration);
        std::filesystem::current_path(options.m_Directory);
        return Check({configuration, "", "", "", true, {}});
    }
    Findings findings;
    const Configuration configuration = Configuration::Load(options.m_Configuration, findings);
    for (const Finding& finding : findings.List()) {
        Console::Print(finding.Format());
    }
    if (findings.HasErrors()) {
        return EXIT_FOUND;
    }
    for (const LogFile& file : configuration.m_LogFiles) {
        std::printf("%s\n", file.Describe().c_str());
    }
    return EXIT_WELL;
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
    bool reportLive = false;
    unsigned patience = 10;

    CLI::App app("Runs the log file service on reports, one JSON object a line.");
    app.require_subcommand(1);
    CLI::App& run = *app.add_subcommand("run", "run the service until the end of the input or a signal");
    AddConfiguration(run, options);
    run.add_option("--input", options.m_Input, "file of reports, or - for standard input")->capture_default_str();
    run.add_option("--module", options.m_Module, "the service's shared object (default: beside this program)");
    run.add_flag("--no-flow-control", reportLive, "report as live components do; a full queue drops reports");
    run.add_option("--patience", patience, "seconds to wait for mails and uploads at the end of the input")
        ->check(CLI::Range(0U, 86400U))
        ->capture_default_str();
    CLI::App& check = *app.add_subcommand("check", "say everything that is wrong with a configuration");
    AddConfiguration(check, options);
    CLI::App& init = *app.add_subcommand("init", "write a starting configuration");
    init.add_option("DIR", target, "directory of the configuration")->required();

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? EXIT_WELL : EXIT_NOT_DONE; // help is no error
    }
    if (init.parsed()) {
        return Init(target);
    }
    if (check.parsed()) {
        return Check(options);
    }
    options.m_bFlowControl = !reportLive;
    options.m_Patience = std::chrono::seconds(patience);
    return Run(options);
}

} // namespace

int main(int argc, char** argv) {
    try {
        return Dispatch(argc, argv);
    } catch (const std::exception& error) {
        Console::EndProgress();
        Console::Say(error.what());
        return EXIT_NOT_DONE;
    }
}
