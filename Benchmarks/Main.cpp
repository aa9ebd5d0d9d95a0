// Compares the library's costs with the minimum cost of the same work and prints a table. If the
// last argument is --json=FILE, also writes the table to a file.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <iterator>
#include <numeric>
#include <sstream>
#include <string_view>
#include <thread>
#include <vector>

#include "Comparison.hpp"

namespace tarnwick::benchmarks {
namespace {

struct Row {
  std::string what;
  Unit unit;
  Goal goal;
  double (*summary)(const std::vector<double>&);
  std::vector<double> ours, reference;  // one figure per repetition; times in nanoseconds
};

std::vector<Row>& rows() {
  static std::vector<Row> table;
  return table;
}

const std::string oursMark = "/ours", referenceMark = "/reference", figureName = "figure";

/// Collects the figures of the runs.
class Collector final : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context&) override { return true; }
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Iteration) continue;
      const std::string& name = run.run_name.function_name;
      const std::string trouble = troubleOf(run);
      if (trouble.empty()) {
        take(name, figure(run));
      } else {
        std::cerr << name << ": " << trouble << "\n";
      }
    }
  }

 private:
  /// Returns why a run failed; empty if it did not. Google Benchmark 1.8 renamed these members.
  template <typename AnyRun>
  static std::string troubleOf(const AnyRun& run) {
    if constexpr (requires { run.error_occurred; }) {
      return run.error_occurred ? run.error_message : "";
    } else {
      return run.skipped == decltype(run.skipped){} ? "" : run.skip_message;
    }
  }

  static double figure(const Run& run) {
    const auto counter = run.counters.find(figureName);
    if (counter != run.counters.end()) return counter->second.value;
    return run.real_accumulated_time / static_cast<double>(run.iterations) * 1e9;
  }

  static void take(const std::string& name, double figure) {
    for (Row& row : rows()) {
      if (name == row.what + oursMark) row.ours.push_back(figure);
      if (name == row.what + referenceMark) row.reference.push_back(figure);
    }
  }
};

double least(const std::vector<double>& figures) {
  return *std::min_element(figures.begin(), figures.end());
}

double mean(const std::vector<double>& figures) {
  return std::accumulate(figures.begin(), figures.end(), 0.0) / static_cast<double>(figures.size());
}

/// Calls `visit` with each measured row and its two figures.
template <typename Visitor>
void forEachMeasured(const Visitor& visit) {
  for (const Row& row : rows()) {
    if (!row.ours.empty() && !row.reference.empty()) {
      visit(row, row.summary(row.ours), row.summary(row.reference));
    }
  }
}

/// Returns 0 if `ours` is 0, even if the reference is 0, too.
double ratio(double ours, double reference) { return ours == 0 ? 0 : ours / reference; }

double goalBeside(double reference, const Goal& goal) {
  return goal.nanoseconds == 0 ? goal.times : goal.nanoseconds / reference;
}

std::string text(Unit unit, double figure) {
  using Scale = std::vector<std::pair<double, const char*>>;
  const Scale scale = unit == Unit::nanoseconds ? Scale{{1e6, " ms"}, {1e3, " us"}, {1, " ns"}}
                      : unit == Unit::bytes     ? Scale{{1e6, " MB"}}
                                                : Scale{{1, ""}};
  const auto step = std::find_if(scale.begin(), std::prev(scale.end()),
                                 [&](const auto& each) { return figure >= each.first; });
  std::array<char, 32> room{};
  std::snprintf(room.data(), room.size(), "%.4g%s", figure / step->first, step->second);
  return room.data();
}

void print() {
  std::fprintf(stderr, "On %u processors\n", std::thread::hardware_concurrency());
  std::fprintf(stderr, "%-75s %9s %9s %6s %6s\n", "what", "ours", "reference", "ratio", "goal");
  forEachMeasured([](const Row& row, double ours, double reference) {
    std::fprintf(stderr, "%-75s %9s %9s %6.2f %6.2f\n", row.what.c_str(),
                 text(row.unit, ours).c_str(), text(row.unit, reference).c_str(),
                 ratio(ours, reference), goalBeside(reference, row.goal));
  });
}

/// Formats a number as JSON. JSON has no infinity, so numbers that are not finite become null.
std::string number(double figure) {
  std::ostringstream text;
  text << figure;
  return std::isfinite(figure) ? text.str() : "null";
}

void write(const std::string& path) {
  std::ofstream file(path);
  file << R"({"processors": )" << std::thread::hardware_concurrency() << R"(, "rows": [)";
  const char* separator = "\n";
  forEachMeasured([&](const Row& row, double ours, double reference) {
    constexpr std::array units{"ns", "count", "bytes"};
    file << separator << R"(  {"what": )" << std::quoted(row.what) << R"(, "unit": )"
         << std::quoted(units.at(static_cast<std::size_t>(row.unit))) << R"(, "ours": )" << ours
         << R"(, "reference": )" << reference << R"(, "ratio": )" << number(ratio(ours, reference))
         << R"(, "goal": )" << goalBeside(reference, row.goal) << "}";
    separator = ",\n";
  });
  file << "\n]}\n";
}

}  // namespace

void compare(const std::string& what, const Goal& goal, const Body& ours, const Body& reference,
             Clock clock) {
  rows().push_back({what, Unit::nanoseconds, goal, least, {}, {}});
  for (const auto& [mark, body] : {std::pair(oursMark, ours), {referenceMark, reference}}) {
    auto* const enlisted = benchmark::RegisterBenchmark((what + mark).c_str(), body);
    clock == Clock::own ? enlisted->UseManualTime() : enlisted->UseRealTime();
  }
}

void compareFigures(const std::string& what, Unit unit, const Goal& goal, const Measure& ours,
                    const Measure& reference) {
  rows().push_back({what, unit, goal, mean, {}, {}});
  for (const auto& [mark, measure] : {std::pair(oursMark, ours), {referenceMark, reference}}) {
    const auto body = [measure = measure](benchmark::State& state) {
      for (auto _ : state) state.counters[figureName] = measure(state);
    };
    benchmark::RegisterBenchmark((what + mark).c_str(), body)->Iterations(1)->Repetitions(1);
  }
}

}  // namespace tarnwick::benchmarks

int main(int argc, char** argv) {
  using namespace tarnwick::benchmarks;
  if (argc == 3 && std::string_view(argv[1]) == "--memory-after") {
    std::cout << std::fixed << memoryAfter(std::stoi(argv[2])) << std::endl;
    return 0;
  }
  constexpr std::string_view option = "--json=";
  std::string json;
  if (argc > 1 && std::string_view(argv[argc - 1]).starts_with(option)) {
    json = argv[--argc] + option.size();
  }
  benchmark::Initialize(&argc, argv);
  if (std::freopen("/dev/null", "w", stdout) == nullptr) return 2;  // drops the framework's log
  addReceiving();
  addBuffers();
  addClassification();
  addImages();
  addPassing();
  addStreaming();
  Collector collector;
  benchmark::RunSpecifiedBenchmarks(&collector);
  print();
  if (!json.empty()) write(json);
}
