#include "png.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace renderer {
namespace {

void appendBigEndian(std::string* out, std::uint32_t number) {
  for (int shift = 24; shift >= 0; shift -= 8) {
    *out += static_cast<char>((number >> shift) & 0xffU);
  }
}

std::uint32_t crc32(const std::string& bytes) {
  std::uint32_t crc = 0xffffffffU;
  for (const char byte : bytes) {
    crc ^= static_cast<unsigned char>(byte);
    for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ ((crc & 1U) != 0 ? 0xedb88320U : 0U);
  }
  return crc ^ 0xffffffffU;
}

std::uint32_t adler32(const std::string& bytes) {
  std::uint32_t low = 1;
  std::uint32_t high = 0;
  for (const char byte : bytes) {
    low = (low + static_cast<unsigned char>(byte)) % 65521U;
    high = (high + low) % 65521U;
  }
  return (high << 16) | low;
}

void appendChunk(std::string* out, const std::string& type, const std::string& data) {
  appendBigEndian(out, static_cast<std::uint32_t>(data.size()));
  *out += type + data;
  appendBigEndian(out, crc32(type + data));
}

// The rows, each after its filter number: 0, none.
std::string rowsOf(const Picture& picture) {
  const std::size_t rowLength = static_cast<std::size_t>(picture.width) * 3;
  std::string rows;
  for (std::size_t at = 0; at < picture.bytes.size(); at += rowLength) {
    rows += '\0';
    rows.append(reinterpret_cast<const char*>(picture.bytes.data()) + at, rowLength);
  }
  return rows;
}

// A zlib stream of stored blocks: larger than a compressed one, and a tenth of the code.
std::string stored(const std::string& bytes) {
  constexpr std::size_t longestBlock = 65535;
  std::string out = "\x78\x01";
  for (std::size_t at = 0; at < bytes.size(); at += longestBlock) {
    const std::size_t length = std::min(longestBlock, bytes.size() - at);
    const bool last = at + length == bytes.size();
    out += static_cast<char>(last ? 1 : 0);
    for (const std::size_t number : {length, ~length}) {
      out += static_cast<char>(number & 0xffU);
      out += static_cast<char>((number >> 8) & 0xffU);
    }
    out.append(bytes, at, length);
  }
  appendBigEndian(&out, adler32(bytes));
  return out;
}

std::string encode(const Picture& picture) {
  std::string header;
  appendBigEndian(&header, static_cast<std::uint32_t>(picture.width));
  appendBigEndian(&header, static_cast<std::uint32_t>(picture.height));
  header += std::string("\x08\x02\x00\x00\x00", 5);  // 8 bits, RGB, default methods
  std::string out = "\x89PNG\r\n\x1a\n";
  appendChunk(&out, "IHDR", header);
  appendChunk(&out, "IDAT", stored(rowsOf(picture)));
  appendChunk(&out, "IEND", "");
  return out;
}

// Returns 0, or the error number.
int writeFile(const std::string& path, const std::string& bytes) {
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) return errno;
  int error = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size() ? 0 : errno;
  if (std::fclose(file) != 0 && error == 0) error = errno;
  return error;
}

}  // namespace

std::string writePng(const Picture& picture, const std::string& path) {
  const std::string part = path + ".part";
  int error = writeFile(part, encode(picture));
  if (error == 0 && std::rename(part.c_str(), path.c_str()) != 0) error = errno;
  if (error == 0) return "";
  std::remove(part.c_str());
  return path + ": " + std::strerror(error);
}

}  // namespace renderer
