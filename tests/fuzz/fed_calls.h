// System calls of the server's routines that the fuzz targets answer: programs print the input, files and
// ports hold it. The linker leads the calls here (--wrap); without a feed they are the real ones.
#pragma once

#include <string>

class Feed {
 public:
  // `content` is what a program prints, what any file holds that is opened to read, and what is read from the
  // modem's port: there in pieces, each after a byte that says how long it is.
  explicit Feed(std::string content);
  ~Feed();
  Feed(const Feed&) = delete;
  Feed& operator=(const Feed&) = delete;

  std::string mtd_lines{};  // printed instead of the content, if not empty
  std::string written{};    // what was written to a file opened to write; known after its close
};
