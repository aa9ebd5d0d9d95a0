// Moves pictures from this process to a second one over UDP and shows how well they arrived.
#include <getopt.h>

#include <Tarnwick/Tarnwick.hpp>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "DemoPictures.hpp"
#include "DemoReceiver.hpp"
#include "DemoSender.hpp"

namespace {

using namespace demo;

constexpr std::string_view usage =
    "usage: demo [OPTION...] [FILE...]\n"
    "Sends pictures to a second process of its own over UDP and compares what arrives with what\n"
    "was sent. The pictures are JPEG or PNG files, the first as a full screen and the others as\n"
    "regions of it; without a file, a desktop that it draws.\n\n"
    "  --chunk BYTES          longest datagram, 1000 to 65500 (1400)\n"
    "  --compression FACTOR   0, the smallest files, to 1, the best pictures (0.8)\n"
    "  --output DIR           where the received pictures go (a fresh directory)\n"
    "  --verbose              show what the receiver logs, too\n"
    "  --receive PORT DIR     be the receiver: how the demo starts its second process\n"
    "  --help                 show this\n\n"
    "Exit status: 0 all pictures arrived as they should, 1 something failed, 2 wrong usage.\n";

struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

struct Options {
  std::int64_t chunk = 1400;  // the system holds 92 of these for a receiver that is kept waiting
  float compression = 0.8F;
  std::filesystem::path output;
  bool isVerbose = false, wantsHelp = false;
  std::optional<std::uint16_t> receivePort;
  std::vector<std::string> files;
};

template <typename Number>
Number parse(const char* option, std::string_view text, Number least, Number most) {
  Number number{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  const bool isNumber = error == std::errc() && end == text.data() + text.size();
  if (isNumber && number >= least && number <= most) return number;
  std::ostringstream expected;
  expected << "--" << option << " takes a number from " << least << " to " << most;
  throw UsageError(expected.str());
}

Options parseOptions(int argc, char** argv) {
  enum : int {
    help = 'h',
    chunk = 'c',
    compression = 'q',
    output = 'o',
    verbose = 'v',
    port = 'r'
  };
  const option known[] = {{"help", no_argument, nullptr, help},
                          {"chunk", required_argument, nullptr, chunk},
                          {"compression", required_argument, nullptr, compression},
                          {"output", required_argument, nullptr, output},
                          {"verbose", no_argument, nullptr, verbose},
                          {"receive", required_argument, nullptr, port},
                          {nullptr, 0, nullptr, 0}};
  Options options;
  for (int found; (found = getopt_long(argc, argv, "", known, nullptr)) != -1;) {
    switch (found) {
      case help:
        options.wantsHelp = true;
        break;
      case chunk:
        // A corner of a picture, however small, is to fit one datagram.
        options.chunk = parse<std::int64_t>("chunk", optarg, 1000, longestDatagram);
        break;
      case compression:
        options.compression = parse<float>("compression", optarg, 0, 1);
        break;
      case output:
        options.output = optarg;
        break;
      case verbose:
        options.isVerbose = true;
        break;
      case port:
        options.receivePort = parse<std::uint16_t>("receive", optarg, 1, 65535);
        break;
      default:
        throw UsageError("see demo --help");
    }
  }
  options.files.assign(argv + optind, argv + argc);
  if (options.receivePort && options.files.size() != 1) {
    throw UsageError("--receive takes a port and a directory");
  }
  return options;
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

std::string thisProgram(const char* name) {
  const std::filesystem::path link = "/proc/self/exe";  // where there is one, no name misleads
  return std::filesystem::exists(link) ? link.string() : name;
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

/// Says what went wrong with whom. Returns the exit status.
int complain(const std::string& who, const std::string& what) {
  std::cerr << "demo: " << who << ' ' << what << "\n";
  return EXIT_FAILURE;
}

/// Shows the table. Returns how many pictures did not arrive as they should.
std::ptrdiff_t printTable(const std::vector<Shipment>& shipments, std::int64_t chunk,
                          const std::filesystem::path& directory) {
  std::cout << '\n';
  printRow("picture", "rectangle", "JPEG", "datagrams", "ms", "PSNR dB");
  std::cout << "  file\n";
  std::ptrdiff_t faults = 0;
  for (const Shipment& shipment : shipments) {
    const Outcome outcome = outcomeOf(shipment, directory);
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

int movePictures(const Options& options, const char* program) {
  const auto pictures = options.files.empty() ? drawnPictures() : loadedPictures(options.files);
  if (pictures.empty()) return complain("there", "is nothing to send");
  int status = EXIT_SUCCESS;
  const std::filesystem::path directory = makeDirectory(options.output);
  const auto receiver = startReceiver(thisProgram(program), directory, options.isVerbose);
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

}  // namespace

int main(int argc, char** argv) try {
  const Options options = parseOptions(argc, argv);
  if (options.wantsHelp) {
    std::cout << usage;
    return EXIT_SUCCESS;
  }
  if (options.receivePort) return receivePictures(*options.receivePort, options.files.front());
  return movePictures(options, argv[0]);
} catch (const UsageError& error) {
  std::cerr << "demo: " << error.what() << "\n";
  return 2;
} catch (const std::exception& error) {
  std::cerr << "demo: " << error.what() << "\n";
  return EXIT_FAILURE;
}
