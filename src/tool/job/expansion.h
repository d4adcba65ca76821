// Printing previews.
#pragma once

#include <cstdint>
#include <string>

#include "tool/job/loading.h"
#include "tool/job/preview.h"

namespace runlet_tool {

// Writes to standard output. Called in the order begin, task..., possibly cut, end.
class ExpandReport {
 public:
  virtual ~ExpandReport() = default;

  // Reports the result of loading the job.
  virtual void begin(const std::string& job, const LoadResult& result) = 0;

  // `number` is the task number, from 1. For a task that is not reached, `preview` has only the
  // outcome and the reason.
  virtual void task(std::int32_t number, const Preview& preview) = 0;

  // Instead of the remaining tasks, which would take too long: `number` is the last task reported,
  // `leftOut` how many are skipped.
  virtual void cut(std::int32_t number, std::int32_t leftOut) = 0;

  virtual void end() = 0;
};

// For people.
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

// For programs, as JSON in the form documented in runlet-job(1).
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
