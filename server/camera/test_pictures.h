// The camera's two test pictures, which the station judges: captured, encoded and kept on the phone, handed
// out in chunks, deleted.
#pragma once

#include <cstdint>

#include "protocol/selectors.h"

// Whether a sub-command captures, and so needs a buffer for the frame.
bool NeedsFrameBuffer(int32_t subcommand);

// Runs a sub-command. The two captures take a frame of width x height pixels, turn it by `rotation` degrees
// clockwise (90, 180 or 270; any other number leaves it) in `buffer`, which takes width x height x 2 bytes,
// and write it as a JPEG file. Gives 0 or the code of the self-test or the capture; -9994 unknown
// sub-command, -9983 imaging manager not made, -9988 no memory to rotate, -9982 file not opened, -9981
// encoder not created, -9980 encoding failed.
int32_t CameraTest(int32_t subcommand, int32_t width, int32_t height, int32_t rotation, void* buffer);

// Hands out the next chunk of a picture: the number of bytes, fewer than 1024 at the end, and the next call
// starts again. A picture that is open is read on, whichever of the two is asked for. The stops close it and
// give 0. Gives -9989 picture not opened, -9987 read error, -9994 unknown sub-command; the picture is closed
// then.
int32_t ReadTestImageChunk(int32_t subcommand, void* out);
