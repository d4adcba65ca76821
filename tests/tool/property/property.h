// A test that tries many random jobs.
//
//   RUNLET_JOBS=n       each test tries n jobs instead of its default
//   RUNLET_JOBS_SEED=n  the random seed, default 1
//   RUNLET_JOBS_CASE=n  tries only this job, as reported by a failure
//   RUNLET_JOBS_SHOW=1  shows how many jobs reached which outcome
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>

#include "scene.h"

namespace runlet_test {

// The result of trying a job.
struct Trial {
  std::string differences;      // empty = as expected
  std::set<std::string> marks;  // names of the events that happened
};

// The number of jobs that must reach the mark. If the regular number of jobs is not enough for
// that, up to five times as many are tried.
struct Minimum {
  std::string mark;
  unsigned count;
};

class Property : public testing::Test {
 protected:
  using Draw = std::function<const Kind&(runlet_model::Random* random)>;
  using Try = std::function<Trial(const Scene& scene, runlet_model::Random* random)>;

  void tryJobs(const Draw& draw, bool mayLackRights, const Try& tryJob,
               const std::vector<Minimum>& minima);

 private:
  std::uint64_t startOf(std::uint64_t number) const;
  bool areReached(const std::vector<Minimum>& minima) const;
  void show() const;

  std::map<std::string, unsigned> reached_;
};

}  // namespace runlet_test
