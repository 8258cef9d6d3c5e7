// A line on standard error that is rewritten in place while something goes on. Shown only to a person at a
// terminal, and gone when it is over.
#pragma once

#include <cstddef>
#include <string>

namespace station {

class Progress {
 public:
  explicit Progress(bool shown) : shown_(shown) {}
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  ~Progress();

  void Show(const std::string& line);

  // "[#####.....]  50 %  label"
  void ShowBar(const std::string& label, std::size_t done, std::size_t total);

 private:
  bool shown_;
  bool dirty_ = false;
  std::string last_;
};

}  // namespace station
