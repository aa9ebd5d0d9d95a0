#pragma once

#include <benchmark/benchmark.h>

#include <functional>
#include <string>

namespace tarnwick::benchmarks {

using Body = std::function<void(benchmark::State&)>;
using Measure = std::function<double(benchmark::State&)>;

enum class Clock { wall, own };
enum class Unit { nanoseconds, count, bytes };

/// What a row is to reach: so many times its reference, or, where it is not 0, a time by itself.
struct Goal {
  double times = 0, nanoseconds = 0;
};

/// A row of the table: what it measures, what we take for it and what the least thing takes that
/// has to be done for it, measured in turns in the same run, and what it is to reach. The time is
/// the wall's, or what the bodies say themselves; of all turns the least counts.
void compare(const std::string& what, const Goal& goal, const Body& ours, const Body& reference,
             Clock clock = Clock::wall);

/// Likewise a row of other figures, each of which one call measures; the mean of all turns counts.
void compareFigures(const std::string& what, Unit unit, const Goal& goal, const Measure& ours,
                    const Measure& reference);

// The rows, one function a file.
void addReceiving();
void addBuffers();
void addClassification();
void addImages();
void addPassing();
void addStreaming();

/// The bytes that this process holds after so many pictures; for a process of its own.
double memoryAfter(int pictures);

}  // namespace tarnwick::benchmarks
