#pragma once

#include <CLI/CLI.hpp>
#include <cstdio>
#include <optional>
#include <string>

#include "protocol/Errors.h"
#include "protocol/Text.h"

namespace programs {

/// Prints the program's name and `message` as the one line on standard error that an error gets.
inline void complain(const char* program, const std::string& message)
{
    std::fprintf(stderr, "%s: %s\n", program, protocol::printable(message).c_str());
}

/// Adds --version, then reads the command line into the options of `app`, which bears the program's name.
/// @returns the exit status when the program has nothing left to do: --help, --version or wrong use.
inline std::optional<int> parse(CLI::App& app, int argc, char** argv)
{
    app.set_version_flag("--version", app.get_name() + " " ENGINEERING_VERSION);
    try {
        app.parse(argc, argv);
        return std::nullopt;
    } catch (const CLI::Success& request) {
        return app.exit(request);
    } catch (const CLI::ParseError& error) {
        complain(app.get_name().c_str(), std::string(error.what()) + " (see --help)");
        return protocol::kWrongUse;
    }
}

}  // namespace programs
