// The animated scenes.
#pragma once

#include <array>
#include <cmath>
#include <vector>

namespace renderer {

// A point, a direction or a colour.
struct Vector {
  double x = 0;
  double y = 0;
  double z = 0;
};

inline Vector operator+(Vector a, Vector b) {
  return {a.x + b.x, a.y + b.y, a.z + b.z};
}

inline Vector operator-(Vector a, Vector b) {
  return {a.x - b.x, a.y - b.y, a.z - b.z};
}

inline Vector operator*(Vector a, double factor) {
  return {a.x * factor, a.y * factor, a.z * factor};
}

inline double dot(Vector a, Vector b) {
  return a.x * b.x + a.y * b.y + a.z * b.z;
}

inline Vector cross(Vector a, Vector b) {
  return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

inline Vector normalized(const Vector& a) {
  return a * (1 / std::sqrt(dot(a, a)));
}

struct Sphere {
  Vector centre;
  double radius = 1;
  Vector colour;
  double mirror = 0;  // 0 dull .. 1 a perfect mirror
};

// Spheres above a chequered floor at height 0, under one light, with a camera that looks at a point
// above the middle of the floor.
struct Scene {
  std::vector<Sphere> spheres;
  Vector light;
  Vector camera;
};

// One of the available scenes; `phase` goes from 0 to 1 over the whole film.
struct SceneKind {
  const char* name;
  Scene (*at)(double phase);
};

extern const std::array<SceneKind, 2> sceneKinds;

}  // namespace renderer
