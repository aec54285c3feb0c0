#pragma once
// Command-line conventions shared by the tools: one-line errors naming the tool and pointing to --help,
// exit code 2 for every usage error.

#include <CLI/CLI.hpp>

#include <string>

namespace tpnf::tools {

// A count: 0 or a positive whole number, nothing else (CLI11 would take "-1" for an unsigned option).
inline CLI::Validator CountValidator() {
    return CLI::Validator(
        [](const std::string& text) {
            return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos
                       ? std::string()
                       : "must be 0 or a positive whole number";
        },
        "COUNT");
}

inline void UseToolErrors(CLI::App& app, const std::string& tool) {
    app.failure_message([tool](const CLI::App*, const CLI::Error& error) {
        return tool + ": " + error.what() + " (see --help)\n";
    });
}

// Parses; false when the tool must end with exitCode (0 after --help, 2 after a usage error).
inline bool Parse(CLI::App& app, int argc, char** argv, int& exitCode) {
    try {
        app.parse(argc, argv);
        return true;
    } catch (const CLI::ParseError& error) {
        exitCode = app.exit(error) == 0 ? 0 : 2;
        return false;
    }
}

} // namespace tpnf::tools
