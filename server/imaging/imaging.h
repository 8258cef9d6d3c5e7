// The imaging library's operations: a registry of plug-ins, streams over files, and the encoder that writes a
// camera frame as a JPEG picture. Every operation that can fail returns 0 or one of the result codes below.
#pragma once

#include <cstdint>

constexpr int32_t MIMG_OK = 0;
constexpr int32_t MIMG_INVALID_PARAMETER = 2;
constexpr int32_t MIMG_UNSUPPORTED = 3;  // no such plug-in, property or form
constexpr int32_t MIMG_OUT_OF_MEMORY = 4;
constexpr int32_t MIMG_WRITE_FAILED = 5;  // the stream did not take everything

// Handles. Only the library knows what they point to.
struct MMemContext;
struct MPlugInMgr;
struct MStream;
struct MImgEncoder;

// Where a manager and what it creates take their memory from. The plain heap is the only context.
constexpr MMemContext* MMEM_PLAIN_HEAP = nullptr;

// A plug-in's factory makes one object of the plug-in's class; `parameters` is the class's own record.
using MPlugInFactory = int32_t (*)(MMemContext* memory, const void* parameters, void** object);

constexpr uint32_t MPLUGIN_CLASS_DECODER = 0x01000000;
constexpr uint32_t MPLUGIN_CLASS_ENCODER = 0x02000000;

constexpr uint32_t MPLUGIN_ID_SCALED_JPEG_DECODER = 0x81001102;
constexpr uint32_t MPLUGIN_ID_JPEG_DECODER = 0x81001002;
constexpr uint32_t MPLUGIN_ID_JPEG_ENCODER = 0x81002002;

constexpr uint32_t MPLUGINMGR_PROP_MEMORY_CONTEXT = 0x80000001;

// Makes an empty registry. Fails with MIMG_INVALID_PARAMETER if `manager` is null, or MIMG_OUT_OF_MEMORY.
int32_t MPlugInMgr_Init(MMemContext* memory, MPlugInMgr** manager);

// Sets a property. The memory context is the only one. Its value is one word, the context.
int32_t MPlugInMgr_SetProp(MPlugInMgr* manager, uint32_t id, MMemContext* value, uint32_t size);

// Adds a plug-in, or replaces the one with the same id and class. `a` and `b` are stored and not used.
int32_t MPlugInMgr_Register(MPlugInMgr* manager, uint32_t id, uint32_t plugInClass, uint32_t a, uint32_t b,
                            MPlugInFactory factory);

// Lets the plug-in of that id and class make an object. Fails with MIMG_UNSUPPORTED if none is registered.
int32_t MPlugInMgr_Create(MPlugInMgr* manager, uint32_t id, uint32_t plugInClass, const void* parameters,
                          void** object);

// Objects that its plug-ins made must be destroyed first. A null manager is ignored.
void MPlugInMgr_Uninit(MPlugInMgr* manager);

// The library's plug-ins. This build of the library only writes pictures. The two decoders exist so that
// every caller can register the same set; they return MIMG_UNSUPPORTED.
int32_t MScaledJpegDecoder_Create(MMemContext* memory, const void* parameters, void** decoder);
int32_t MJpegDecoder_Create(MMemContext* memory, const void* parameters, void** decoder);
int32_t MJpegEncoder_Create(MMemContext* memory, const void* parameters, void** encoder);

constexpr int32_t MSTREAM_WRITE = 2;  // "wb": created or truncated, for writing

// Opens a file as a stream. Returns null if it cannot be opened, if memory runs out, and in any mode but
// MSTREAM_WRITE.
MStream* MStreamOpenFromFileS(const char* path, int32_t mode);

// Fails with MIMG_WRITE_FAILED if the file system reports a lost write only now. A null stream is ignored.
int32_t MStreamClose(MStream* stream);

constexpr int32_t MIMG_COLOUR_RGB565 = 5;  // one 16-bit word a pixel, red in its top bits

// What an encoder is created for: six 32-bit words on the phone.
struct MImgEncoderParameters {
  MStream* stream;  // belongs to the caller, who keeps it open until the encoder is destroyed
  int32_t width;    // 1 to 65535 pixels
  int32_t height;   // 1 to 65535 pixels
  int32_t colourFormat;
  int32_t reserved[2];  // callers set both to 3764; they are not used
};
static_assert(sizeof(void*) != 4 || sizeof(MImgEncoderParameters) == 24);

constexpr int32_t MIMG_ENCODER_FORM = 1;  // the form of the parameters above
constexpr int32_t MIMG_ENCODER_RESERVED = 3764;

// Creates the encoder that is registered under `encoderId`.
int32_t MImgEncoder_Create(MPlugInMgr* manager, const MImgEncoderParameters* parameters, int32_t form,
                           uint32_t encoderId, MImgEncoder** encoder);

// Writes the frame to the stream as one whole picture. 0 means that all of it has reached the storage. Rows
// start `bytesPerRow` bytes apart, which may be more than a row's pixels take. `rows` is the height that the
// encoder was created for.
int32_t MImgEncoder_Encode(MImgEncoder* encoder, const uint16_t* const* pixels, const int32_t* bytesPerRow,
                           const int32_t* rows);

// A null encoder is ignored.
void MImgEncoder_Destroy(MImgEncoder* encoder);
