#include "Program/Arguments.hpp"

#include <cstdlib>
#include <iostream>
#include <sstream>
#include <string>

namespace program {
namespace {

constexpr int usageStatus = 2;

}  // namespace

CLI::Validator between(double least, double most) {
  std::ostringstream range;
  range << least << " to " << most;
  const auto check = [least, most, range = range.str()](const std::string& text) {
    double number = 0;
    const bool isNumber = CLI::detail::lexical_cast(text, number);
    if (isNumber && number >= least && number <= most) return std::string();
    return "takes a number from " + range + ", not " + text;
  };
  return {check, range.str()};
}

int endEarly(const CLI::App& arguments, const CLI::ParseError& end) {
  if (end.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
    std::cout << arguments.help();
    return EXIT_SUCCESS;
  }
  const std::string& name = arguments.get_name();
  std::cerr << name << ": " << end.what() << "; see " << name << " --help\n";
  return usageStatus;
}

int complain(const char* name, const std::exception& error) noexcept {
  std::cerr << name << ": " << error.what() << "\n";
  return EXIT_FAILURE;
}

}  // namespace program
