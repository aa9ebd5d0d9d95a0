#include "Program/Arguments.hpp"

#include <arpa/inet.h>

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

CLI::Validator isAddress() {
  const auto check = [](const std::string& text) {
    in_addr address{};
    if (inet_pton(AF_INET, text.c_str(), &address) == 1) return std::string();
    return text + " is no IPv4 address: give one like 192.168.1.20, not a name";
  };
  return {check, "IPv4"};
}

int endEarly(const CLI::App& arguments, const CLI::ParseError& end) {
  if (end.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
    return arguments.exit(end);
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
