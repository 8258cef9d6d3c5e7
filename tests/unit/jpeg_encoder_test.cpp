// The imaging library by direct call, with no decoder: result codes, what is read, what is written.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "tests/camera_scene.h"
#include "tests/unit/encoded_picture.h"

namespace {

bool memoryIsOut = false;
size_t allocated = 0;  // bytes asked for, in all
bool mediumIsFull = false;
int interruptions = 0;  // of the next flushes, by a signal

}  // namespace

// The test program is linked with --wrap=malloc and --wrap=fsync.
extern "C" void* __real_malloc(size_t size);
extern "C" void* __wrap_malloc(size_t size) {
  allocated += size;
  return memoryIsOut ? nullptr : __real_malloc(size);
}
extern "C" int __real_fsync(int descriptor);
extern "C" int __wrap_fsync(int descriptor) {
  if (interruptions > 0) {
    --interruptions;
    errno = EINTR;
    return -1;
  }
  if (!mediumIsFull) return __real_fsync(descriptor);
  errno = ENOSPC;
  return -1;
}

namespace {

// Like the camera's, but it makes nothing.
int32_t RefusingFactory(MMemContext*, const void*, void**) {
  return 77;
}

// Where SOF0 stands, after SOI, APP0 and two quantization tables.
constexpr size_t FRAME_HEADER = 2 + 18 + 2 * 69;

const std::vector<uint16_t> ONE_PIXEL = {0xFFFF};

TEST(PlugInManager, GivesItsResultCodes) {
  EXPECT_EQ(MPlugInMgr_Init(MMEM_PLAIN_HEAP, nullptr), 2);
  MPlugInMgr* manager = nullptr;
  memoryIsOut = true;
  const int32_t withoutMemory = MPlugInMgr_Init(MMEM_PLAIN_HEAP, &manager);
  memoryIsOut = false;
  EXPECT_EQ(withoutMemory, 4);
  EXPECT_EQ(manager, nullptr);

  ASSERT_EQ(MPlugInMgr_Init(MMEM_PLAIN_HEAP, &manager), 0);
  EXPECT_EQ(MPlugInMgr_SetProp(manager, 0x80000001, MMEM_PLAIN_HEAP, 4), 0);
  EXPECT_NE(MPlugInMgr_SetProp(manager, 0x80000002, MMEM_PLAIN_HEAP, 4), 0);
  EXPECT_NE(MPlugInMgr_SetProp(nullptr, 0x80000001, MMEM_PLAIN_HEAP, 4), 0);
  EXPECT_NE(MPlugInMgr_Register(manager, 1, 2, 3, 4, nullptr), 0);
  for (uint32_t id = 1; id <= 8; ++id) {
    EXPECT_EQ(MPlugInMgr_Register(manager, id, 0x02000000, 2, 3, RefusingFactory), 0) << id;
  }
  EXPECT_NE(MPlugInMgr_Register(manager, 9, 0x02000000, 2, 3, RefusingFactory), 0) << "the registry is full";
  EXPECT_EQ(MPlugInMgr_Register(manager, 8, 0x02000000, 2, 3, MJpegEncoder_Create), 0) << "replaced";
  MPlugInMgr_Uninit(manager);
  MPlugInMgr_Uninit(nullptr);
}

TEST(PlugInManager, FindsEncodersByIdAndClass) {
  PictureObjects objects("/dev/null");
  ASSERT_NE(objects.stream, nullptr);
  const MImgEncoderParameters parameters = {objects.stream, 8, 8, 5, {3764, 3764}};
  const auto create = [&](uint32_t id) {
    return MImgEncoder_Create(objects.manager, &parameters, 1, id, &objects.encoder);
  };
  EXPECT_NE(create(0x81002003), 0) << "not registered";
  EXPECT_NE(create(0x81001002), 0) << "of another class";
  MPlugInMgr_Register(objects.manager, 0x81001002, 0x02000000, 2, 3, RefusingFactory);
  EXPECT_EQ(create(0x81001002), 77) << "the factory's own result";
  EXPECT_EQ(objects.encoder, nullptr);
  void* decoder = nullptr;
  EXPECT_NE(MPlugInMgr_Create(objects.manager, 0x81001102, 0x01000000, nullptr, &decoder), 0);
  EXPECT_EQ(create(0x81002002), 0);
  EXPECT_NE(objects.encoder, nullptr);
}

TEST(Stream, OpensFilesForWritingAlone) {
  EXPECT_EQ(MStreamOpenFromFileS("/no/such/folder/picture.jpg", 2), nullptr);
  EXPECT_EQ(MStreamOpenFromFileS("/dev/null", 1), nullptr);
  EXPECT_EQ(MStreamOpenFromFileS(nullptr, 2), nullptr);
  memoryIsOut = true;
  MStream* withoutMemory = MStreamOpenFromFileS("/dev/null", 2);
  memoryIsOut = false;
  EXPECT_EQ(withoutMemory, nullptr);
  EXPECT_EQ(MStreamClose(nullptr), 0);
}

TEST(JpegEncoder, RefusesWhatItCannotEncode) {
  for (const auto& [width, height] : {std::pair{0, 8}, {8, 0}, {-1, 8}, {8, -1}, {65536, 8}, {8, 65536}}) {
    EXPECT_NE(PictureObjects("/dev/null").CreateEncoder(width, height), 0) << width << " x " << height;
  }
  PictureObjects objects("/dev/null");
  MImgEncoderParameters parameters = {objects.stream, 8, 8, 5, {0, 0}};
  const auto create = [&](int32_t form) {
    return MImgEncoder_Create(objects.manager, &parameters, form, 0x81002002, &objects.encoder);
  };
  EXPECT_NE(create(2), 0);
  parameters.colourFormat = 4;
  EXPECT_NE(create(1), 0);
  parameters.colourFormat = 5;
  parameters.stream = nullptr;
  EXPECT_NE(create(1), 0);
  parameters.stream = objects.stream;
  EXPECT_NE(MImgEncoder_Create(objects.manager, nullptr, 1, 0x81002002, &objects.encoder), 0);
  EXPECT_NE(MImgEncoder_Create(nullptr, &parameters, 1, 0x81002002, &objects.encoder), 0);
  memoryIsOut = true;
  const int32_t withoutMemory = create(1);
  memoryIsOut = false;
  EXPECT_EQ(withoutMemory, 4);
  EXPECT_EQ(objects.encoder, nullptr);

  ASSERT_EQ(create(1), 0) << "whatever the reserved words are";
  const uint16_t frame[64] = {};
  const auto encode = [&](const uint16_t* pixels, int32_t bytesPerRow, int32_t rows) {
    return MImgEncoder_Encode(objects.encoder, &pixels, &bytesPerRow, &rows);
  };
  EXPECT_NE(encode(nullptr, 16, 8), 0);
  EXPECT_NE(encode(frame, 15, 8), 0);
  EXPECT_NE(encode(frame, -16, 8), 0);
  EXPECT_NE(encode(frame, 16, 7), 0);
  EXPECT_NE(encode(frame, 16, 0), 0);
  EXPECT_EQ(encode(frame, 16, 8), 0);
}

TEST(JpegEncoder, ReportsEveryLostByte) {
  const auto frame = CameraScene(320, 240);
  EXPECT_NE(EncodeToFile(frame.data(), 640, 320, 240, "/dev/full"), 0);
  EXPECT_NE(EncodeToFile(ONE_PIXEL.data(), 2, 1, 1, "/dev/full"), 0) << "lost by the last write";

  // A limit that is met in the middle of a block.
  const std::string path = testing::TempDir() + "limited." + std::to_string(getpid()) + ".jpg";
  const size_t size = Encode(frame, 320, 240).size();
  ASSERT_GT(size, 10000U);
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  const auto ignored = signal(SIGXFSZ, SIG_IGN);
  const auto encodeWithin = [&](size_t limit) {
    const rlimit limited = {limit, before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limited);
    const int32_t result = EncodeToFile(frame.data(), 640, 320, 240, path);
    setrlimit(RLIMIT_FSIZE, &before);
    return result;
  };
  EXPECT_NE(encodeWithin(5000), 0);
  EXPECT_NE(encodeWithin(size - 1), 0);
  EXPECT_EQ(encodeWithin(size), 0);
  mediumIsFull = true;  // as a file system that allocates late says when it has taken every byte
  EXPECT_NE(encodeWithin(size), 0);
  mediumIsFull = false;
  interruptions = 3;
  EXPECT_EQ(encodeWithin(size), 0);
  EXPECT_EQ(interruptions, 0);
  signal(SIGXFSZ, ignored);
  unlink(path.c_str());
}

TEST(JpegEncoder, TakesFewKilobytesWhateverThePicture) {
  const auto memoryFor = [](int32_t width, int32_t height) {
    const auto frame = CameraScene(width, height);
    const size_t before = allocated;
    EXPECT_EQ(EncodeToFile(frame.data(), width * 2, width, height, "/dev/null"), 0);
    return allocated - before;
  };
  const size_t small = memoryFor(16, 16);
  EXPECT_LT(small, 8192U);
  EXPECT_EQ(memoryFor(800, 600), small);
}

TEST(JpegEncoder, GoesByTheRowsDistanceAndNeedsNoAlignment) {
  constexpr int32_t width = 37;
  constexpr int32_t height = 21;
  const auto frame = CameraScene(width, height);
  const auto expected = Encode(frame, width, height);
  ASSERT_FALSE(expected.empty());

  for (const int32_t distance : {width + 1, width + 2, 3 * width}) {
    for (const int32_t offset : {0, 1}) {  // two bytes off a word's boundary, and on it
      std::vector<uint16_t> spaced(static_cast<size_t>(distance * height + offset + 2), 0xF81F);
      uint16_t* start = spaced.data() + offset;
      for (int32_t y = 0; y < height; ++y)
        memcpy(start + y * distance, &frame[static_cast<size_t>(y * width)], width * 2);
      EXPECT_EQ(Encode(start, distance * 2, width, height), expected) << distance << " + " << offset;
    }
  }
}

TEST(JpegEncoder, ReadsNothingOutsideTheFrame) {
  const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  const size_t room = 64 * page;
  auto* guarded =
      static_cast<uint8_t*>(mmap(nullptr, room + 2 * page, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  ASSERT_NE(guarded, MAP_FAILED);
  ASSERT_EQ(mprotect(guarded + page, room, PROT_READ | PROT_WRITE), 0);
  for (const auto& [width, height] :
       {std::pair{1, 1}, {7, 9}, {8, 8}, {16, 16}, {17, 33}, {31, 15}, {160, 120}}) {
    const auto frame = CameraScene(width, height);
    const size_t bytes = frame.size() * 2;
    const auto expected = Encode(frame, width, height);
    for (uint8_t* place : {guarded + page, guarded + page + room - bytes}) {  // after a wall, before a wall
      memcpy(place, frame.data(), bytes);
      EXPECT_EQ(Encode(reinterpret_cast<const uint16_t*>(place), width * 2, width, height), expected);
    }
  }
  munmap(guarded, room + 2 * page);
}

// If every block shows some of the picture, the pixels past the edge could as well have been in the frame.
TEST(JpegEncoder, RepeatsTheEdges) {
  constexpr int32_t width = 27;
  constexpr int32_t height = 26;
  const auto frame = CameraScene(width, height);
  std::vector<uint16_t> whole;
  for (int32_t i = 0; i < 32 * 32; ++i) {
    whole.push_back(
        frame[static_cast<size_t>(std::min(i / 32, height - 1) * width + std::min(i % 32, width - 1))]);
  }
  const auto picture = Encode(frame, width, height);
  auto expected = Encode(whole, 32, 32);
  ASSERT_GT(expected.size(), 600U);
  expected[FRAME_HEADER + 6] = height;
  expected[FRAME_HEADER + 8] = width;
  EXPECT_EQ(picture, expected);
}

TEST(JpegEncoder, TakesExtentsUpTo65535) {
  const std::vector<uint16_t> frame(65535, 0x1234);
  for (const auto& [width, height] : {std::pair{65535, 1}, {1, 65535}}) {
    const auto picture = Encode(frame, width, height);
    ASSERT_GT(picture.size(), 600U);
    const uint8_t* header = &picture[FRAME_HEADER];
    EXPECT_EQ(header[0] << 8 | header[1], 0xFFC0);
    EXPECT_EQ(header[5] << 8 | header[6], height);
    EXPECT_EQ(header[7] << 8 | header[8], width);
    EXPECT_EQ(picture[picture.size() - 2] << 8 | picture.back(), 0xFFD9);
  }
}

// FNV-1a
uint32_t Hash(const std::vector<uint8_t>& bytes) {
  uint32_t hash = 2166136261U;
  for (const uint8_t byte : bytes) hash = (hash ^ byte) * 16777619U;
  return hash;
}

// The picture is the same to the byte here and on the phone, whose build uses instructions of its processor.
// Decoding is tested where there is a decoder.
TEST(JpegEncoder, WritesTheSameBytesEverywhere) {
  struct Expected {
    int32_t width, height;
    size_t size;
    uint32_t hash;
  };
  for (const auto& [width, height, size, hash] : {Expected{1, 1, 633, 2590013589},
                                                  {7, 9, 659, 3330215592},
                                                  {17, 33, 790, 512517782},
                                                  {640, 481, 50113, 3242633868}}) {
    const auto picture = Encode(CameraScene(width, height), width, height);
    EXPECT_EQ(picture.size(), size) << width << " x " << height;
    EXPECT_EQ(Hash(picture), hash) << width << " x " << height;
  }
}

}  // namespace
