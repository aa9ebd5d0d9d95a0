#pragma once

#include <benchmark/benchmark.h>

#include <functional>
#include <string>

namespace tarnwick::benchmarks {

using Body = std::function<void(benchmark::State&)>;
using Measure = std::function<double(benchmark::State&)>;

enum class Clock { wall, own };
enum class Unit { nanoseconds, count, bytes };

/// A row's goal: at most `times` its reference or, if `nanoseconds` is not 0, at most that time.
struct Goal {
  double times = 0, nanoseconds = 0;
};

/// Adds a row to the table: what it measures, its goal, our code, and as the reference the minimum
/// work for the same result. The time is wall time or, with Clock::own, what the bodies report. The
/// fastest repetition counts. Scripts/benchmark interleaves the repetitions of both bodies.
void compare(const std::string& what, const Goal& goal, const Body& ours, const Body& reference,
             Clock clock = Clock::wall);

/// Adds a row of figures that the two measures return. Each measure is called once.
void compareFigures(const std::string& what, Unit unit, const Goal& goal, const Measure& ours,
                    const Measure& reference);

// Each function adds the rows of one file.
void addReceiving();
void addBuffers();
void addClassification();
void addImages();
void addPassing();
void addStreaming();

/// Returns the resident bytes of this process after this many pictures. Call it in a new process.
double memoryAfter(int pictures);

}  // namespace tarnwick::benchmarks
