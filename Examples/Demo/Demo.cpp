// Moves pictures from this process to a second one over UDP and shows how well they arrived.
#include <Tarnwick/Tarnwick.hpp>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <optional>
#include <sstream>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "Demo/DemoPictures.hpp"
#include "Demo/DemoReceiver.hpp"
#include "Demo/DemoSender.hpp"
#include "Program/Arguments.hpp"
#include "Program/Program.hpp"

namespace {

using namespace demo;

const char* programName = "demo";  // argv[0]

struct Options {
  std::int64_t chunk = 1400;  // the kernel's default receive buffer holds 92 of these
  float compression = 0.8F;
  std::filesystem::path output;
  bool isVerbose = false;
  std::optional<std::uint16_t> receivePort;
  std::vector<std::string> files;
};

void describe(CLI::App& arguments, Options& options) {
  // With the minimum, a corner of any picture still fits one datagram.
  arguments.add_option("--chunk", options.chunk, "Longest datagram, in bytes")
      ->check(CLI::Range(std::int64_t{1000}, program::longestDatagram))
      ->capture_default_str();
  arguments
      .add_option("--compression", options.compression,
                  "From 0, the smallest files, to 1, the best pictures")
      ->check(program::between(0.0, 1.0))
      ->capture_default_str();
  arguments.add_option("--output", options.output,
                       "Where the received pictures go; else a fresh directory");
  arguments.add_flag("--verbose", options.isVerbose, "Show what the receiver logs, too");
  constexpr auto hidden = "";  // --receive starts the demo's second process
  arguments.add_option("--receive", options.receivePort)->group(hidden);
  arguments.add_option("FILE", options.files,
                       "JPEG or PNG files, the first sent as a full screen and the others as "
                       "regions of it; else a desktop that the demo draws");
}

std::filesystem::path makeDirectory(const std::filesystem::path& wanted) {
  if (!wanted.empty()) {
    std::filesystem::create_directories(wanted);
    return std::filesystem::absolute(wanted);
  }
  std::string name = std::filesystem::temp_directory_path() / "tarnwick-demo-XXXXXX";
  if (!mkdtemp(name.data())) throw std::system_error(errno, std::generic_category(), name);
  return name;
}

std::string thisProgram() {
  const std::filesystem::path link = "/proc/self/exe";  // more reliable than argv[0]
  return std::filesystem::exists(link) ? link.string() : programName;
}

std::string milliseconds(const Shipment& shipment) {
  if (!shipment.report) return "-";
  std::ostringstream text;
  const auto time = shipment.report->receivedAt - shipment.sentAt;
  text << std::fixed << std::setprecision(1)
       << std::chrono::duration<double, std::milli>(time).count();
  return text.str();
}

std::string decibels(const std::optional<double>& psnr) {
  if (!psnr) return "-";
  std::ostringstream text;
  text << std::fixed << std::setprecision(2) << *psnr;
  return text.str();
}

template <typename... Cell>
void printRow(const std::string& name, const std::string& rect, const Cell&... cells) {
  std::cout << std::left << std::setw(20) << name << ' ' << std::setw(22) << rect << std::right;
  ((std::cout << ' ' << std::setw(9) << cells), ...);
}

/// Prints `who` and `what` as an error. Returns the exit status.
int complain(const std::string& who, const std::string& what) {
  std::cerr << "demo: " << who << ' ' << what << "\n";
  return EXIT_FAILURE;
}

/// Prints the table. Returns the number of pictures that failed.
std::ptrdiff_t printTable(const std::vector<Shipment>& shipments, std::int64_t chunk,
                          const std::filesystem::path& directory) {
  std::cout << '\n';
  printRow("picture", "rectangle", "JPEG", "datagrams", "ms", "PSNR dB");
  std::cout << "  file\n";
  std::ptrdiff_t faults = 0;
  for (const Shipment& shipment : shipments) {
    const Outcome outcome = outcomeOf(shipment, chunk, directory);
    const bool isWell = outcome.fault.empty();
    printRow(shipment.picture.name, textOf(sentRect(shipment.picture)), shipment.file.size(),
             datagramCount(shipment, chunk), milliseconds(shipment), decibels(outcome.psnr));
    std::cout << "  " << (isWell ? shipment.report->file : outcome.fault) << std::endl;
    if (isWell) continue;
    ++faults;
    complain(shipment.picture.name + ":", outcome.fault);
  }
  return faults;
}

int movePictures(const Options& options) {
  const auto pictures = options.files.empty() ? drawnPictures() : loadedPictures(options.files);
  if (pictures.empty()) return complain("there", "is nothing to send");
  int status = EXIT_SUCCESS;
  const std::filesystem::path directory = makeDirectory(options.output);
  const auto receiver = startReceiver(thisProgram(), directory, options.isVerbose);
  const std::vector<Shipment> shipments =
      sendAll(pictures, options.compression, options.chunk, *receiver);
  if (const std::string trouble = receiver->end(); !trouble.empty()) {
    status = complain("the receiver", trouble);
  }
  const std::ptrdiff_t faults = printTable(shipments, options.chunk, directory);
  const std::string count = std::to_string(shipments.size());
  if (faults > 0) {
    status = complain(std::to_string(faults) + " of " + count, "pictures failed");
  } else {
    std::cout << "\nAll " << count
              << " arrived: rectangle and every pixel are what was sent as JPEG.\n";
  }
  std::cout << "Received pictures: " << directory.string() << std::endl;
  return status;
}

int moveOrReceivePictures(const Options& options) {
  if (options.receivePort) return receivePictures(*options.receivePort, options.output);
  return movePictures(options);
}

}  // namespace

int main(int argc, char** argv) {
  constexpr auto description =
      "Sends pictures to a second process of its own over UDP and compares what arrives with what\n"
      "was sent. Exit status: 0 all arrived as they should, 1 something failed, 2 wrong usage.";
  programName = argv[0];
  return program::run("demo", description, argc, argv, describe, moveOrReceivePictures);
}
