// How previews are told.
#pragma once

#include <cstdint>
#include <string>

#include "tool/job/loading.h"
#include "tool/job/preview.h"

namespace runlet_tool {

// Writes to standard output, in the order begin, task..., cut if there is cause, end.
class ExpandReport {
 public:
  virtual ~ExpandReport() = default;

  // Tells how the load went.
  virtual void begin(const std::string& job, const LoadResult& result) = 0;

  // `number` is the task's, from 1. Of a task that is not reached, `preview` has nothing but that,
  // and the reason.
  virtual void task(std::int32_t number, const Preview& preview) = 0;

  // In place of further tasks, which would be too much: `number` is the last that was told of, and
  // so many are left out.
  virtual void cut(std::int32_t number, std::int32_t leftOut) = 0;

  virtual void end() = 0;
};

// For people, and for programs (a documented form of JSON, see runlet-job(1)).
class TextExpandReport : public ExpandReport {
 public:
  explicit TextExpandReport(bool hasColour) : hasColour_(hasColour) {}
  void begin(const std::string& job, const LoadResult& result) override;
  void task(std::int32_t number, const Preview& preview) override;
  void cut(std::int32_t number, std::int32_t leftOut) override;
  void end() override {}

 private:
  bool hasColour_;
  bool isFirst_ = true;
  std::string text_;
};

class JsonExpandReport : public ExpandReport {
 public:
  void begin(const std::string& job, const LoadResult& result) override;
  void task(std::int32_t number, const Preview& preview) override;
  void cut(std::int32_t number, std::int32_t leftOut) override;
  void end() override;

 private:
  bool isFirst_ = true;
  std::int32_t leftOut_ = 0;
};

}  // namespace runlet_tool
