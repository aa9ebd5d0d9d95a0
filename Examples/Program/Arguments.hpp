// How all programs here read their arguments, and complain.
#pragma once

#include <CLI/CLI.hpp>
#include <exception>

namespace program {

/// Takes a number within limits, both included, and none that is not a number.
CLI::Validator between(double least, double most);

/// Takes an IPv4 address of four numbers. The library also takes what inet_aton(3) does, such as
/// 192.168.1, which here is more likely a mistake.
CLI::Validator isAddress();

/// Shows the help or the version that was asked for, or says what is wrong with the arguments, or
/// with the rest. Returns the exit status.
int endEarly(const CLI::App& arguments, const CLI::ParseError& end);
int complain(const char* name, const std::exception& error) noexcept;

/// Reads the arguments that `describe` adds and runs `body`. What goes wrong is said in one line on
/// standard error. Returns the exit status: what `body` returns, 1 when it throws, 2 for wrong
/// arguments.
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
