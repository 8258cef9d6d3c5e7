// The work of the camera's commands, and their records on the wire.
#pragma once

#include "server/camera/test_pictures.h"
#include "server/service/command.h"

using PictureChunk = Bytes<PICTURE_CHUNK_SIZE>;

int32_t QueryCamera(const Ignored&, Bytes<128>&);
int32_t ReadPictureChunk(const Words<1>& request, PictureChunk& chunk);

// A sub-command, a width, a height and a rotation.
using CameraRequest = Words<4>;

// A handler of its own: it lends the frame's buffer to the work and takes it back behind the answer.
int32_t CameraCommand();
