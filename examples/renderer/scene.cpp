#include "scene.h"

#include <numbers>

namespace renderer {
namespace {

constexpr double fullTurn = 2 * std::numbers::pi;

constexpr std::array<Vector, 6> palette = {{
    {0.93, 0.32, 0.22},
    {0.96, 0.67, 0.18},
    {0.45, 0.76, 0.35},
    {0.16, 0.66, 0.72},
    {0.30, 0.42, 0.86},
    {0.70, 0.36, 0.78},
}};

// A point on a circle around the middle of the floor.
Vector onCircle(double turns, double radius, double height) {
  return {std::cos(turns * fullTurn) * radius, height, std::sin(turns * fullTurn) * radius};
}

// Small spheres circle a mirror while the camera moves slowly around them.
Scene orbit(double phase) {
  Scene scene;
  scene.spheres.push_back({{0, 1.1, 0}, 1.1, {0.9, 0.9, 0.92}, 0.85});
  for (std::size_t i = 0; i < palette.size(); ++i) {
    const double place = static_cast<double>(i) / static_cast<double>(palette.size());
    // never so low that a sphere sinks into the floor
    const double height = 0.75 + 0.25 * std::sin((place * 3 + phase * 2) * fullTurn);
    scene.spheres.push_back({onCircle(place + phase, 2.3, height), 0.45, palette[i], 0.15});
  }
  scene.light = {4, 7, -3};
  scene.camera = onCircle(phase / 4 - 0.3, 6.5, 2.6);
  return scene;
}

// Spheres in a row jump in turn.
Scene bounce(double phase) {
  Scene scene;
  for (std::size_t i = 0; i < palette.size(); ++i) {
    const double place = static_cast<double>(i) / static_cast<double>(palette.size());
    const double height = 0.55 + 1.6 * std::abs(std::sin((phase + place) * fullTurn));
    scene.spheres.push_back(
        {{(static_cast<double>(i) - 2.5) * 1.25, height, 0}, 0.55, palette[i], 0.3});
  }
  scene.light = {-3, 8, -5};
  scene.camera = onCircle(0.02 * std::sin(phase * fullTurn) - 0.25, 7, 2.2);
  return scene;
}

}  // namespace

const std::array<SceneKind, 2> sceneKinds = {{{"orbit", orbit}, {"bounce", bounce}}};

}  // namespace renderer
