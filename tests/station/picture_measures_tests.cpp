// What a camera picture is judged by: spots, lines, shading and colours that are painted into a grey picture.
#include <gtest/gtest.h>

#include "station/tasks/picture_measures.h"

namespace {

using namespace station;

constexpr std::size_t SIDE = 128;
constexpr std::uint8_t GREY = 200;  // so half a percent is one level

class Painting {
 public:
  Painting() : pixels_{SIDE, SIDE, std::vector<std::uint8_t>(SIDE * SIDE * 3, GREY)} {}

  // Makes a part of the picture so many percent brighter, in all colours or in one.
  Painting& Brighter(int percent, std::size_t x, std::size_t y, std::size_t width = 1, std::size_t height = 1,
                     std::size_t colour = 3) {
    for (std::size_t row = y; row < y + height; ++row) {
      for (std::size_t i = (row * SIDE + x) * 3; i < (row * SIDE + x + width) * 3; ++i) {
        if (colour == 3 || i % 3 == colour) pixels_.levels[i] = static_cast<std::uint8_t>(GREY + 2 * percent);
      }
    }
    return *this;
  }

  const Pixels& Picture() const {
    return pixels_;
  }

 private:
  Pixels pixels_;
};

double Value(const std::vector<Reading>& readings, const std::string& name) {
  const auto found = std::ranges::find(readings, name, &Reading::name);
  return found == readings.end() ? -1 : found->value.get<double>();
}

TEST(PictureMeasures, ASpotOrALineIsOneFromItsBoundOn) {
  const struct {
    const char* about;
    Painting painting;
    int dark, bright, lines;
  } cases[] = {
      {"grey", Painting(), 0, 0, 0},
      {"a pixel a little darker", Painting().Brighter(-11, 60, 60), 0, 0, 0},
      {"a dark pixel", Painting().Brighter(-14, 60, 60), 1, 0, 0},
      {"a dark pixel in the corner", Painting().Brighter(-14, 127, 127), 1, 0, 0},
      {"a pixel a little brighter", Painting().Brighter(11, 60, 60), 0, 0, 0},
      {"a bright pixel", Painting().Brighter(14, 0, 60), 0, 1, 0},
      {"a faint spot", Painting().Brighter(-5, 60, 60, 3, 3), 0, 0, 0},
      {"a larger faint spot", Painting().Brighter(-8, 60, 60, 3, 3), 1, 0, 0},
      {"pixels that touch by a corner", Painting().Brighter(-14, 60, 60).Brighter(-14, 61, 61), 1, 0, 0},
      {"pixels apart", Painting().Brighter(-14, 60, 60).Brighter(-14, 66, 60), 2, 0, 0},
      {"half a dark row", Painting().Brighter(-30, 0, 60, 64), 1, 0, 0},
      {"more than half a dark row", Painting().Brighter(-30, 0, 60, 65), 0, 0, 1},
      {"a bright column", Painting().Brighter(20, 60, 0, 1, SIDE), 0, 0, 1},
      {"adjacent rows", Painting().Brighter(-30, 0, 60, SIDE, 2), 0, 0, 1},
      {"rows apart", Painting().Brighter(-30, 0, 30, SIDE).Brighter(-30, 0, 90, SIDE), 0, 0, 2},
      {"a row and a column", Painting().Brighter(-30, 0, 0, SIDE).Brighter(-30, 127, 0, 1, SIDE), 0, 0, 2}};
  for (const auto& [about, painting, dark, bright, lines] : cases) {
    const std::vector<Reading> found = MeasureBlemishes(painting.Picture());
    EXPECT_EQ(Value(found, "dark-spots"), dark) << about;
    EXPECT_EQ(Value(found, "bright-spots"), bright) << about;
    EXPECT_EQ(Value(found, "dead-lines"), lines) << about;
  }
}

TEST(PictureMeasures, ShadingAndColoursArePercentOfTheMiddle) {
  const std::vector<Reading> darker = MeasureBlemishes(Painting().Brighter(-20, 0, 112, 16, 16).Picture());
  EXPECT_NEAR(Value(darker, "shading"), 20, 1);
  EXPECT_EQ(Value(darker, "red-balance"), 100);
  const Painting tinted = Painting().Brighter(10, 0, 0, SIDE, SIDE, 0).Brighter(-15, 0, 0, SIDE, SIDE, 2);
  const std::vector<Reading> colours = MeasureBlemishes(tinted.Picture());
  EXPECT_EQ(Value(colours, "red-balance"), 110);
  EXPECT_EQ(Value(colours, "blue-balance"), 85);
  EXPECT_EQ(Value(colours, "shading"), 0);
  // Sharp in the corner that has a pattern, and nowhere else.
  Painting pattern;
  for (std::size_t x = 104; x < SIDE; x += 2) pattern.Brighter(-20, x, 0, 1, 24);
  const std::vector<Reading> sharp = MeasureFocus(pattern.Picture());
  EXPECT_GT(Value(sharp, "sharpness-top-right"), 1000);
  for (const char* place : {"middle", "top-left", "bottom-left", "bottom-right"})
    EXPECT_EQ(Value(sharp, std::string("sharpness-") + place), 0) << place;
}

}  // namespace
