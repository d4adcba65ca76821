#include "picture.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <optional>

namespace renderer {
namespace {

constexpr int mirrorDepth = 4;       // maximum number of reflections of a ray
constexpr double offSurface = 1e-4;  // so that a ray does not hit its own surface
constexpr double lightRadius = 0.7;
constexpr int samplesPerSide = 2;

struct Ray {
  Vector origin;
  Vector direction;  // of length 1
};

struct Hit {
  double distance;
  Vector point;
  Vector normal;
  Vector colour;
  double mirror;
};

std::optional<double> distanceTo(const Sphere& sphere, const Ray& ray) {
  const Vector toCentre = sphere.centre - ray.origin;
  const double nearest = dot(toCentre, ray.direction);
  const double reach = sphere.radius * sphere.radius - dot(toCentre, toCentre) + nearest * nearest;
  if (reach < 0) return std::nullopt;
  const double distance = nearest - std::sqrt(reach);
  if (distance < offSurface) return std::nullopt;
  return distance;
}

Hit hitFloor(const Ray& ray, double distance) {
  const Vector point = ray.origin + ray.direction * distance;
  const bool dark = std::fmod(std::floor(point.x) + std::floor(point.z), 2) != 0;
  const double fade = std::exp(-0.06 * distance);  // the pattern fades towards the horizon
  const double grey = 0.62 + (dark ? -0.22 : 0.22) * fade;
  return {distance, point, {0, 1, 0}, {grey, grey, grey * 0.97}, 0.12};
}

std::optional<Hit> nearestHit(const Scene& scene, const Ray& ray) {
  std::optional<Hit> nearest;
  if (ray.direction.y < 0) nearest = hitFloor(ray, -ray.origin.y / ray.direction.y);
  for (const Sphere& sphere : scene.spheres) {
    const std::optional<double> distance = distanceTo(sphere, ray);
    if (!distance || (nearest && *distance >= nearest->distance)) continue;
    const Vector point = ray.origin + ray.direction * *distance;
    nearest =
        Hit{*distance, point, normalized(point - sphere.centre), sphere.colour, sphere.mirror};
  }
  return nearest;
}

// How much of the light is visible from a point, 0 to 1: the light is a ball, and a sphere hides
// more of it the closer it is to the line between the point and the light.
double lightSeen(const Scene& scene, const Vector& point) {
  const Vector toLight = scene.light - point;
  const double distance = std::sqrt(dot(toLight, toLight));
  const Vector direction = toLight * (1 / distance);
  double seen = 1;
  for (const Sphere& sphere : scene.spheres) {
    const Vector toCentre = sphere.centre - point;
    const double along = dot(toCentre, direction);
    if (along < offSurface || along > distance) continue;
    const double aside = std::sqrt(std::max(0.0, dot(toCentre, toCentre) - along * along));
    const double penumbra = lightRadius * along / distance;
    seen = std::min(seen, std::clamp((aside - sphere.radius) / penumbra + 0.5, 0.0, 1.0));
  }
  return seen;
}

Vector sky(Vector direction) {
  const double height = std::clamp(direction.y * 1.6, 0.0, 1.0);
  return Vector{0.86, 0.90, 0.95} * (1 - height) + Vector{0.28, 0.48, 0.80} * height;
}

// `depth` is the number of reflections left.
Vector colourOf(const Scene& scene, const Ray& ray, int depth) {  // NOLINT(misc-no-recursion)
  const std::optional<Hit> hit = nearestHit(scene, ray);
  if (!hit) return sky(ray.direction);
  const Vector point = hit->point + hit->normal * offSurface;
  const Vector toLight = normalized(scene.light - point);
  const Vector back = ray.direction - hit->normal * (2 * dot(ray.direction, hit->normal));
  const double seen = lightSeen(scene, point);
  const double dull = std::max(0.0, dot(hit->normal, toLight)) * seen;
  const double gloss = std::pow(std::max(0.0, dot(back, toLight)), 60) * seen * hit->mirror * 2;
  Vector colour = hit->colour * (0.22 + 0.78 * dull) * (1 - hit->mirror);
  if (depth > 0) colour = colour + colourOf(scene, {point, back}, depth - 1) * hit->mirror;
  colour = colour + Vector{gloss, gloss, gloss};
  const double haze = 1 - std::exp(-0.012 * hit->distance);
  return colour * (1 - haze) + sky({0, 0, 0}) * haze;
}

// The camera's axes, looking at the point of height 0.8 above the middle of the floor.
struct View {
  explicit View(const Scene& scene) : origin(scene.camera) {
    forward = normalized(Vector{0, 0.8, 0} - origin);
    right = normalized(cross({0, 1, 0}, forward));
    up = cross(forward, right);
  }

  // The ray through a point of the picture: the longer side ranges from -1 to 1, the shorter one
  // less.
  Ray through(double across, double upwards) const {
    return {origin, normalized(forward + right * (across * 0.6) + up * (upwards * 0.6))};
  }

  Vector origin;
  Vector forward;
  Vector right;
  Vector up;
};

std::uint8_t toByte(double value) {
  return static_cast<std::uint8_t>(std::lround(std::sqrt(std::clamp(value, 0.0, 1.0)) * 255));
}

Vector pixel(const Scene& scene, const View& view, const Picture& picture, int x, int y) {
  Vector sum;
  for (int sample = 0; sample < samplesPerSide * samplesPerSide; ++sample) {
    const std::div_t place = std::div(sample, samplesPerSide);
    const double column = x + (place.rem + 0.5) / samplesPerSide;
    const double row = y + (place.quot + 0.5) / samplesPerSide;
    const double across = (2 * column - picture.width) / picture.width;
    const double upwards = (picture.height - 2 * row) / picture.width;
    const Vector colour = colourOf(scene, view.through(across, upwards), mirrorDepth);
    sum = sum + Vector{colour.x * colour.x, colour.y * colour.y, colour.z * colour.z};
  }
  return sum * (1.0 / (samplesPerSide * samplesPerSide));
}

}  // namespace

Picture render(const Scene& scene, int width, int height) {
  Picture picture{width, height, {}};
  picture.bytes.reserve(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 3);
  const View view(scene);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const Vector colour = pixel(scene, view, picture, x, y);
      picture.bytes.insert(picture.bytes.end(),
                           {toByte(colour.x), toByte(colour.y), toByte(colour.z)});
    }
  }
  return picture;
}

}  // namespace renderer
