// A terminal for programs under test.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>
#include <string>

namespace runlet_test {

// What is written to it can be read here.
class Terminal {
 public:
  Terminal() : descriptor_(posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC)) {
    if (descriptor_ < 0 || grantpt(descriptor_) != 0 || unlockpt(descriptor_) != 0) {
      throw std::runtime_error("cannot make a terminal");
    }
    name_ = ptsname(descriptor_);
  }
  ~Terminal() {
    close(descriptor_);
  }
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  const std::string& name() const {
    return name_;
  }

  std::string written() const {
    std::string text;
    char buffer[4096];
    for (ssize_t count = 0; (count = read(descriptor_, buffer, sizeof buffer)) > 0;) {
      text.append(buffer, static_cast<std::size_t>(count));
    }
    return text;
  }

 private:
  int descriptor_;
  std::string name_;
};

}  // namespace runlet_test
