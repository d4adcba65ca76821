// Renders one frame of a small film:
//
//   frame_renderer --out frame.png [--frame 1] [--frames 24] [--size 320x180] [--scene orbit]
//                  [--label TEXT]

#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "picture.h"
#include "png.h"
#include "scene.h"

namespace {

constexpr int largestSide = 8192;

struct Request {
  std::string out;
  std::string scene = "orbit";
  std::string label = "frame";
  std::string size = "320x180";
  std::string frame = "1";
  std::string frames = "24";
};

struct Option {
  const char* name;
  std::string Request::*value;
};

constexpr Option options[] = {
    {"--out", &Request::out},   {"--scene", &Request::scene}, {"--label", &Request::label},
    {"--size", &Request::size}, {"--frame", &Request::frame}, {"--frames", &Request::frames},
};

[[noreturn]] void fail(const std::string& reason) {
  std::fprintf(stderr, "frame_renderer: %s\n", reason.c_str());
  std::exit(2);
}

std::string* findValue(Request* request, const char* name) {
  for (const Option& option : options) {
    if (std::strcmp(option.name, name) == 0) return &(request->*option.value);
  }
  fail(std::string("unknown option ") + name);
}

Request readOptions(int argc, char* argv[]) {
  Request request;
  for (int i = 1; i < argc; i += 2) {
    std::string* value = findValue(&request, argv[i]);
    if (i + 1 == argc) fail(std::string(argv[i]) + " has no value");
    *value = argv[i + 1];
  }
  if (request.out.empty()) fail("--out is missing");
  return request;
}

// Reads all of `text` as a number from 1 to `largest`.
int readNumber(const char* option, const std::string& text, int largest) {
  int number = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (error == std::errc() && stop == end && number >= 1 && number <= largest) return number;
  fail(std::string(option) + " is '" + text + "', not a number from 1 to " +
       std::to_string(largest));
}

const renderer::SceneKind& findScene(const std::string& name) {
  std::string known;
  for (const renderer::SceneKind& kind : renderer::sceneKinds) {
    if (name == kind.name) return kind;
    known += std::string(" ") + kind.name;
  }
  fail("--scene is '" + name + "', not one of" + known);
}

}  // namespace

int main(int argc, char* argv[]) {
  const Request request = readOptions(argc, argv);
  const std::size_t cross = request.size.find('x');
  if (cross == std::string::npos) fail("--size is '" + request.size + "', not like 320x180");
  const int width = readNumber("--size", request.size.substr(0, cross), largestSide);
  const int height = readNumber("--size", request.size.substr(cross + 1), largestSide);
  const int frames = readNumber("--frames", request.frames, 1000000);
  const int frame = readNumber("--frame", request.frame, frames);
  const renderer::SceneKind& scene = findScene(request.scene);

  std::printf("%s: frame %d of %d, scene %s, %dx%d\n", request.label.c_str(), frame, frames,
              scene.name, width, height);
  std::fflush(stdout);  // before anything goes to standard error
  const auto start = std::chrono::steady_clock::now();
  const double phase = static_cast<double>(frame - 1) / frames;
  const renderer::Picture picture = renderer::render(scene.at(phase), width, height);
  if (const std::string error = renderer::writePng(picture, request.out); !error.empty()) {
    fail(error);
  }
  const auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(
      std::chrono::steady_clock::now() - start);
  // On standard error, as renderers often do; the job sends it to standard output.
  std::fprintf(stderr, "frame_renderer: wrote %s in %d ms\n", request.out.c_str(),
               static_cast<int>(elapsed.count()));
  return 0;
}
