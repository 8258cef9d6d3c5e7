// Measures of the camera's test pictures. A blemish picture shows an even card and is compared with its own
// local mean; a focus picture shows a chart with edges in its middle and its corners.
#pragma once

#include <vector>

#include "station/commands/answer.h"
#include "station/tasks/jpeg_check.h"

namespace station {

// Dark and bright spots: how many, and by how many percent of the local mean the strongest differs. Dead rows
// and columns. Shading: by how many percent the darkest corner is darker than the middle. Red and blue in
// percent of green.
std::vector<Reading> MeasureBlemishes(const Pixels& picture);

// The variance of the Laplacian (J. L. Pech-Pacheco, G. Cristóbal, J. Chamorro-Martínez, J.
// Fernández-Valdivia: "Diatom autofocusing in brightfield microscopy: a comparative study", ICPR 2000) of the
// brightness, in the middle and the four corners. It falls quickly when the picture is out of focus; how
// large it is when sharp depends on the chart, the light and the picture's size.
std::vector<Reading> MeasureFocus(const Pixels& picture);

}  // namespace station
