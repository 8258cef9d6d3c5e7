#include "benchmarks/figures.h"

#include <fmt/format.h>

#include <algorithm>

namespace {

std::string Verdict(const Goal& goal, double ratio) {
  if (goal.side == Goal::Side::None) return "";
  const bool at_least = goal.side == Goal::Side::AtLeast;
  const bool met = at_least ? ratio >= goal.ratio : ratio <= goal.ratio;
  return fmt::format("{} {:g} {}", at_least ? "at least" : "at most", goal.ratio, met ? "met" : "MISSED");
}

}  // namespace

void PrintHeading(const std::string& title) {
  fmt::print("\n{:<44}{:>22}  {:<36}{:>11}{:>9}  {}\n", title, "ours", "peer", "peer's", "ratio", "goal");
}

void PrintFigure(const Figure& figure) {
  const double ratio = figure.ours / figure.peers;
  fmt::print("{:<44}{:>10.4g} {:<11}  {:<36}{:>11.4g}{:>9.3g}  {}\n", figure.what, figure.ours, figure.unit,
             figure.peer, figure.peers, ratio, Verdict(figure.goal, ratio));
  fflush(stdout);
}

double Median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

Medians MeasureInTurns(int rounds, const std::function<double()>& ours,
                       const std::function<double()>& peers) {
  std::vector<double> our_times, peer_times;
  for (int round = 0; round < rounds; ++round) {
    our_times.push_back(ours());
    peer_times.push_back(peers());
  }
  return {Median(our_times), Median(peer_times)};
}
