// Dots and lines against a painter of their own, byte by byte, including the bytes after the frame.
#include "server/devices/drawing.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr size_t GUARD_PIXELS = 1000;

// The display's frame with a guard after it.
class Frame {
 public:
  Frame() : pixels_(FRAME_BYTES / 2 + GUARD_PIXELS, 0x5A5A) {}

  uint16_t* Pixels() {
    return pixels_.data();
  }

  // A dot as the display test draws it: pixels of twice the colour's low byte, row ends running on into the
  // next row, nothing after the frame.
  void PaintDot(int x, int y, unsigned colour) {
    if (x < 1 || x > 238 || y < 1 || y > 318) return;
    for (int row = y; row < y + 4; ++row) {
      for (int column = x; column < x + 4; ++column) {
        const int pixel = row * 240 + column;
        if (pixel < 240 * 320)
          pixels_[static_cast<size_t>(pixel)] = static_cast<uint16_t>((colour & 0xFF) * 0x0101);
      }
    }
  }

  // Empty if both are equal, otherwise the first difference.
  std::string DifferenceFrom(const Frame& other) const {
    const auto [here, there] = std::mismatch(pixels_.begin(), pixels_.end(), other.pixels_.begin());
    if (here == pixels_.end()) return "";
    const auto index = here - pixels_.begin();
    return std::to_string(*here) + " for " + std::to_string(*there) + " at row " +
           std::to_string(index / 240) + " column " + std::to_string(index % 240);
  }

 private:
  std::vector<uint16_t> pixels_;
};

TEST(DrawDot, PaintsTheLowByteWrapsAtTheRightEdgeAndStopsAtTheFramesEnd) {
  const struct {
    int x, y;
  } dots[] = {{100, 200},
              {1, 1},
              {236, 50},
              {237, 50},
              {238, 50},
              {0, 50},
              {239, 50},
              {50, 0},
              {50, 319},
              {1, 318},
              {50, 317},
              {236, 317},
              {237, 317},
              {238, 317},
              {236, 318},
              {238, 318},
              {-1, 5},
              {5, -1},
              {240, 5},
              {5, 320},
              {0, 0},
              {239, 319},
              {238, 1},
              {1, 316},
              {237, 316},
              {5, 40000},
              {INT32_MAX, 5},
              {5, INT32_MAX},
              {5, INT32_MIN},
              {INT32_MIN, 5},
              {INT32_MAX, INT32_MAX}};
  for (const auto& dot : dots) {
    for (const uint16_t colour : {BLACK, WHITE, uint16_t{0x12EF}}) {
      Frame drawn, expected;
      DrawDot(drawn.Pixels(), dot.x, dot.y, colour);
      expected.PaintDot(dot.x, dot.y, colour);
      EXPECT_EQ(drawn.DifferenceFrom(expected), "") << dot.x << "," << dot.y << " in " << colour;
    }
  }
}

// How far along an axis of length `distance` the dot with number `dot` lies on a line of `steps` steps. The
// start is drawn twice on the longer axis, so each later dot is one step late, and a shorter axis moves only
// once its share has gone past a whole pixel.
int Offset(int dot, int distance, int steps) {
  const int length = abs(distance);
  if (length == 0 || dot == 0) return 0;
  const int moved = (dot * length + steps - 1) / steps - 1;
  return distance > 0 ? moved : -moved;
}

void ExpectLine(int x0, int y0, int x1, int y1) {
  Frame drawn, expected;
  DrawLine(drawn.Pixels(), x0, y0, x1, y1, 0xFFFF);
  const int steps = std::max(abs(x1 - x0), abs(y1 - y0));
  for (int dot = 0; dot < steps + 2; ++dot) {
    expected.PaintDot(x0 + Offset(dot, x1 - x0, steps), y0 + Offset(dot, y1 - y0, steps), 0xFFFF);
  }
  EXPECT_EQ(drawn.DifferenceFrom(expected), "") << x0 << "," << y0 << " to " << x1 << "," << y1;
}

TEST(DrawLine, ShallowLineDotByDot) {
  Frame drawn, expected;
  DrawLine(drawn.Pixels(), 10, 10, 15, 12, 0);
  const struct { int x, y; } dots[] = {{10, 10}, {10, 10}, {11, 10}, {12, 11}, {13, 11}, {14, 11}, {15, 12}};
  for (const auto& dot : dots) expected.PaintDot(dot.x, dot.y, 0);
  EXPECT_EQ(drawn.DifferenceFrom(expected), "");
}

TEST(DrawLine, EndsOnItsEndPointInEveryDirection) {
  ExpectLine(10, 10, 10, 10);
  ExpectLine(20, 50, 220, 50);
  ExpectLine(50, 300, 50, 10);
  ExpectLine(0, 0, 239, 319);  // dots on the frame's edge are left out
  ExpectLine(239, 0, 0, 319);
  ExpectLine(230, 310, 260, 330);
  std::mt19937 random(2);
  for (int i = 0; i < 200; ++i) {
    const auto coordinate = [&](int range) {
      return static_cast<int>(random() % static_cast<unsigned>(range));
    };
    ExpectLine(coordinate(240), coordinate(320), coordinate(240), coordinate(320));
  }
}

}  // namespace
