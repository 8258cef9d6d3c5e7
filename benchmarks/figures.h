// A measured figure and its peer's from the same run, as a row of a table.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

// What the ratio of ours to the peer's should be.
struct Goal {
  enum class Side { None, AtLeast, AtMost } side = Side::None;
  double ratio = 0;
};

inline Goal AtLeast(double ratio) {
  return {Goal::Side::AtLeast, ratio};
}
inline Goal AtMost(double ratio) {
  return {Goal::Side::AtMost, ratio};
}

struct Figure {
  std::string what;
  std::string unit;
  double ours;
  std::string peer;
  double peers;
  Goal goal = {};
};

void PrintHeading(const std::string& title);
void PrintFigure(const Figure& figure);

double Median(std::vector<double> values);

// The medians of both times in seconds, taken in turns so that other work on the machine meets both alike.
struct Medians {
  double ours, peers;
};
Medians MeasureInTurns(int rounds, const std::function<double()>& ours, const std::function<double()>& peers);

// How long the work takes, in seconds.
template <typename Work>
double Seconds(Work work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}
