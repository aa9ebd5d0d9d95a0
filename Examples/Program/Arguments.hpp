// How the programs read their arguments and report errors.
#pragma once

#include <CLI/CLI.hpp>
#include <exception>

namespace program {

/// Accepts numbers from `least` to `most`, both included, and rejects NaN.
CLI::Validator between(double least, double most);

/// Accepts an IPv4 address of four numbers. The library also accepts the short forms of
/// inet_aton(3), such as 192.168.1, which are more likely mistakes here.
CLI::Validator isAddress();

/// endEarly() prints the requested help or version, or the error in the arguments; complain()
/// prints any other error. Both return the exit status.
int endEarly(const CLI::App& arguments, const CLI::ParseError& end);
int complain(const char* name, const std::exception& error) noexcept;

/// Reads the arguments that `describe` adds and runs `body`. Prints an error as one line on
/// standard error. Returns the exit status: that of `body`, 1 if a std::exception was thrown, 2 for
/// wrong arguments. Both functions run on the calling thread.
template <typename Options>
int run(const char* name, const char* description, int argc, char** argv,
        void (*describe)(CLI::App& arguments, Options& options),
        int (*body)(const Options& options)) noexcept {
  try {
    Options options;
    CLI::App arguments(description, name);
    arguments.set_version_flag("--version", std::string(name) + " " TARNWICK_VERSION);
    describe(arguments, options);
    try {
      arguments.parse(argc, argv);
    } catch (const CLI::ParseError& end) {
      return endEarly(arguments, end);
    }
    return body(options);
  } catch (const std::exception& error) {
    return complain(name, error);
  }
}

}  // namespace program
