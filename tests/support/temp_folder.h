// A folder for the files of one test.
#pragma once

#include <string>

namespace runlet_test {

// A new folder that every user may enter, removed with its content on destruction.
class TempFolder {
 public:
  explicit TempFolder(const std::string& parent = "/tmp");
  ~TempFolder();
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  const std::string& path() const {
    return path_;
  }

  // The path of `name` in the folder.
  std::string file(const std::string& name) const {
    return path_ + "/" + name;
  }

  // Writes `text` to the file `name` with exactly `mode`, and returns its path.
  std::string write(const std::string& name, const std::string& text, unsigned mode = 0644) const;

  // Creates the folder `name` with exactly `mode`, and returns its path.
  std::string makeFolder(const std::string& name, unsigned mode = 0755) const;

 private:
  std::string path_;
};

// The content of the file at `path`; empty if there is none.
std::string readFile(const std::string& path);

// The permission bits of the file at `path`, as in 0755; -1 if there is none.
int modeOf(const std::string& path);

}  // namespace runlet_test
