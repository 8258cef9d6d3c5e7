// The stored pictures handed out in chunks, with one descriptor for both.
#include <filesystem>

#include "tests/phone/camera_test.h"
#include "tests/phone/processes.h"

namespace {

constexpr size_t CHUNK = 1024;
constexpr uint32_t READ_BLEMISH = 14;
constexpr uint32_t STOP_BLEMISH = 15;
constexpr uint32_t READ_FOCUS = 24;
constexpr uint32_t STOP_FOCUS = 25;

std::string Content(size_t size, uint8_t start) {
  std::string content;
  for (size_t index = 0; index < size; ++index)
    content += static_cast<char>(start + index % 251 + index / CHUNK);
  return content;
}

class PictureChunksTest : public CameraTest {
 protected:
  PictureChunksTest() {
    Boot();
    EXPECT_TRUE(StillAnswers());  // so the last file of its start is closed now
    descriptors_ = OpenDescriptors(Phone().ServerProcess());
    MarkJournal();
  }
  // Status and what was delivered; the rest of the data area must be zero.
  std::pair<int32_t, std::string> Chunk(uint32_t subcommand) {
    const Bytes answer = Ask(0x41, Words({subcommand}), 4 + CHUNK);
    const std::string data(answer.begin() + 4, answer.end());
    const size_t size = static_cast<size_t>(std::max(StatusOf(answer), 0));
    EXPECT_EQ(data.substr(size), std::string(CHUNK - size, '\0'));
    return {StatusOf(answer), data.substr(0, size)};
  }
  static std::pair<int32_t, std::string> Piece(const std::string& content, size_t chunk) {
    const std::string piece = content.substr(chunk * CHUNK, CHUNK);
    return {static_cast<int32_t>(piece.size()), piece};
  }
  bool IsPictureOpen() {
    return OpenDescriptors(Phone().ServerProcess()) == descriptors_ + 1;
  }

 private:
  size_t descriptors_;
};

TEST_F(PictureChunksTest, HandsOutPicturesOfEveryLength) {
  for (const auto& [subcommand, path] : {std::pair(READ_BLEMISH, BLEMISH), {READ_FOCUS, FOCUS}}) {
    for (const size_t size : {size_t{0}, size_t{1}, CHUNK - 1, CHUNK, CHUNK + 1, 3 * CHUNK, 3 * CHUNK + 7}) {
      SCOPED_TRACE(size);
      const std::string content = Content(size, static_cast<uint8_t>(subcommand));
      Phone().Root().PutFile(path, content);
      MarkJournal();
      // A picture of whole chunks ends with one of 0 bytes.
      for (size_t chunk = 0; chunk <= size / CHUNK; ++chunk) {
        EXPECT_EQ(Chunk(subcommand), Piece(content, chunk));
        EXPECT_EQ(IsPictureOpen(), chunk < size / CHUNK);
      }
      EXPECT_EQ(LinesSince(), Lines{"open " + path + " r+cloexec"}) << "opened once";
    }
  }
}

TEST_F(PictureChunksTest, HandsOutACapturedPicture) {
  ASSERT_EQ(Camera(CAPTURE_FOCUS, 160, 120), 0);
  std::string fetched;
  for (std::pair<int32_t, std::string> chunk(1024, ""); chunk.first == 1024;) {
    chunk = Chunk(READ_FOCUS);
    fetched += chunk.second;
  }
  EXPECT_TRUE(fetched == Phone().Root().ReadFile(FOCUS));
}

TEST_F(PictureChunksTest, GoesOnWithWhateverIsOpen) {
  const std::string blemish = Content(5 * CHUNK, 1);
  const std::string focus = Content(5 * CHUNK, 77);
  Phone().Root().PutFile(BLEMISH, blemish);
  Phone().Root().PutFile(FOCUS, focus);
  // The stop of either picture closes the open one. So does an unknown sub-command.
  uint32_t first = READ_BLEMISH;
  for (const uint32_t close : {STOP_BLEMISH, STOP_FOCUS, 0u, 13u, 16u, 23u, 26u, 0xFFFFFFFFu, 0x1000Eu}) {
    SCOPED_TRACE(close);
    const bool stop = close == STOP_BLEMISH || close == STOP_FOCUS;
    const uint32_t other = first == READ_BLEMISH ? READ_FOCUS : READ_BLEMISH;
    const std::string& content = first == READ_BLEMISH ? blemish : focus;
    EXPECT_EQ(Chunk(first), Piece(content, 0));
    EXPECT_EQ(Chunk(other), Piece(content, 1));
    EXPECT_EQ(Chunk(first), Piece(content, 2));
    for (const char* what : {"closes", "closes nothing"}) {
      EXPECT_EQ(Chunk(close), std::pair(stop ? 0 : -9994, std::string())) << what;
      EXPECT_FALSE(IsPictureOpen()) << what;
    }
    first = other;
  }
  // A picture that is deleted while it is read is read to its end.
  EXPECT_EQ(Chunk(READ_FOCUS), Piece(focus, 0));
  EXPECT_EQ(Camera(DELETE_FOCUS), 0);
  for (size_t chunk = 1; chunk <= 5; ++chunk) EXPECT_EQ(Chunk(READ_FOCUS), Piece(focus, chunk));
  EXPECT_EQ(Chunk(READ_FOCUS).first, -9989);
}

TEST_F(PictureChunksTest, TellsWhenThereIsNothingToRead) {
  for (const auto& [subcommand, path] : {std::pair(READ_BLEMISH, BLEMISH), {READ_FOCUS, FOCUS}}) {
    EXPECT_EQ(Chunk(subcommand), std::pair(-9989, std::string()));
    Phone().Root().MakeDirectory(path);  // can be opened, but not read
    EXPECT_EQ(Chunk(subcommand), std::pair(-9987, std::string()));
    EXPECT_FALSE(IsPictureOpen());
    Phone().Root().Remove(path);
    Phone().Root().PutFile(path, "a picture");
    EXPECT_EQ(Chunk(subcommand), std::pair(9, std::string("a picture")));
  }
}

}  // namespace
