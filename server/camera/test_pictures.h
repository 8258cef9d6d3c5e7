// The camera's two test pictures: captured, encoded and kept on the phone, read out in chunks, deleted. The
// station examines them.
#pragma once

#include <cstdint>

#include "protocol/selectors.h"

// Whether a sub-command captures and therefore needs a buffer for the frame.
bool NeedsFrameBuffer(int32_t subcommand);

// Runs a sub-command. The two captures take a frame of width x height pixels, turn it by `rotation` degrees
// clockwise (90, 180 or 270; any other number leaves it as it is) in `buffer`, which takes width x height x 2
// bytes, and write it as a JPEG file. If the encoding fails, a part of the file may stay. Returns 0 or the
// code of the self-test or the capture; -9994 unknown sub-command, -9983 imaging manager not created, -9988
// no memory to rotate, -9982 file not opened, -9981 encoder not created, -9980 encoding failed.
int32_t CameraTest(int32_t subcommand, int32_t width, int32_t height, int32_t rotation, void* buffer);

// Reads the next chunk of a picture. Returns the number of bytes. At the end this is fewer than 1024, and the
// next call starts again. If a picture is open already, its next chunk is read, whichever of the two is asked
// for. The stops close it and return 0. Returns -9989 picture not opened, -9987 read error, -9994 unknown
// sub-command; after these no picture is open.
int32_t ReadTestImageChunk(int32_t subcommand, void* out);
