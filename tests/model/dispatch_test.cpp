// Which tasks a request runs and when a task exceeds its time limit, compared with the model. This
// program has its own loader and launcher, so that no job file is read and nothing is started.
//
//   RUNLET_TEST_CASES and RUNLET_TEST_SEED: see random_test.cpp
#include "adapter/dispatch.h"

#include "cases.h"
#include "exec/launch.h"
#include "job/parameter_file.h"
#include "model.h"

namespace {

constexpr std::int32_t none = -1;

// The calls to this program's launcher, and what it does.
std::vector<std::int32_t> launched;
std::int32_t failing = none;  // index of the task that cannot be started
bool growing = false;         // each task adds one to the list

// More launches than any request of these tests selects, so that a wrong range ends soon.
constexpr std::size_t tooMany = 100;

}  // namespace

namespace runlet {

bool loadParameterFile(AdapterContext*) {
  return true;
}

bool launchTask(AdapterContext* context, std::int32_t taskIndex) {
  launched.push_back(taskIndex);
  if (growing) context->taskList.push_back("one more");
  return taskIndex != failing && launched.size() < tooMany;
}

}  // namespace runlet

namespace runlet_model {
namespace {

const std::int32_t borders[] = {INT32_MIN,
                                INT32_MIN + 1,
                                INT32_MIN + 2,
                                INT32_MIN + 3,
                                INT32_MIN + 4,
                                -5,
                                -2,
                                -1,
                                0,
                                1,
                                2,
                                3,
                                4,
                                5,
                                100,
                                INT32_MAX - 4,
                                INT32_MAX - 3,
                                INT32_MAX - 2,
                                INT32_MAX - 1,
                                INT32_MAX};

struct Request {
  std::int32_t firstTask;
  std::int32_t taskCount;
  std::int32_t taskListSize;
};

std::ostream& operator<<(std::ostream& out, const Request& request) {
  return out << "the tasks from " << request.firstTask << ", " << request.taskCount << " of "
             << request.taskListSize << ", where task " << failing << " fails";
}

// Checks each position, one by one.
std::vector<std::int32_t> expectedLaunches(const Request& request) {
  std::vector<std::int32_t> expected;
  for (std::int32_t i = 0; i < request.taskListSize; ++i) {
    if (!isInRange(request.firstTask, request.taskCount, i)) continue;
    expected.push_back(i);
    if (i == failing) break;
  }
  return expected;
}

testing::AssertionResult sameLaunches(const Request& request) {
  runlet::AdapterContext context;
  context.opcode = "NewTask";
  context.firstTask = request.firstTask;
  context.taskCount = request.taskCount;
  for (std::int32_t i = 0; i < request.taskListSize; ++i) context.taskList.push_back("task");
  launched.clear();
  const std::int32_t result = runlet::dispatchOpcode(&context);
  const std::vector<std::int32_t> expected = expectedLaunches(request);
  const bool failed = !expected.empty() && expected.back() == failing;
  if (launched == expected && result == (failed ? -1 : 0)) return testing::AssertionSuccess();
  return testing::AssertionFailure()
         << request << "\nThe adapter runs " << testing::PrintToString(launched) << " and returns "
         << result << ",\nthe model runs " << testing::PrintToString(expected);
}

void checkEveryRange() {
  for (const std::int32_t firstTask : borders) {
    for (const std::int32_t taskCount : borders) {
      for (const std::int32_t size : {0, 1, 2, 4, 7}) {
        ASSERT_TRUE(sameLaunches({firstTask, taskCount, size}));
      }
    }
  }
}

class Range : public testing::Test {
 protected:
  ~Range() override {
    failing = none;
    growing = false;
  }
};

TEST_F(Range, SelectsTheSameTasksAtEveryBorder) {
  checkEveryRange();
}

TEST_F(Range, EndsLikeTheModelAtATaskThatFails) {
  for (failing = 0; failing < 4; ++failing) checkEveryRange();
}

TEST_F(Range, IsClippedToTheListAsItIsAfterEachTask) {
  runlet::AdapterContext context;
  context.opcode = "NewTask";
  context.firstTask = 1;
  context.taskCount = 5;
  context.taskList.push_back("task");
  launched.clear();
  growing = true;
  EXPECT_EQ(runlet::dispatchOpcode(&context), 0);
  EXPECT_EQ(launched, (std::vector<std::int32_t>{0, 1, 2, 3, 4}));
}

// Any number, or one near a limit.
std::int32_t randomNumber(Random& random) {
  const auto any = static_cast<std::uint32_t>(random.bits());
  if (random.oneIn(2)) return static_cast<std::int32_t>(any);
  const auto border = static_cast<std::uint32_t>(random.from(borders));
  return static_cast<std::int32_t>(border + any % 16);
}

TEST_F(Range, SelectsTheSameTasksAtRandom) {
  checkRandomCases(200'000, [](Random& random) {
    const auto size = static_cast<std::int32_t>(random.below(20));
    failing = random.oneIn(4) ? static_cast<std::int32_t>(random.below(20)) : none;
    return sameLaunches({randomNumber(random), randomNumber(random), size});
  });
}

// Counts expired tasks in `*expired`.
testing::AssertionResult sameTimeOut(std::int32_t elapsed, std::int32_t limit, int* expired) {
  runlet::AdapterContext context;
  context.opcode = "PingTask";
  context.elapsedMs = elapsed;
  context.taskTimeout = limit;
  const bool expected = isTimedOut(elapsed, limit);
  *expired += expected ? 1 : 0;
  if (runlet::dispatchOpcode(&context) == (expected ? -1 : 0)) return testing::AssertionSuccess();
  return testing::AssertionFailure() << elapsed << " ms with a limit of " << limit
                                     << " minutes: the model's result is " << expected;
}

// Runs `check` and expects the message as many times as it counted.
template <typename Check>
void expectMessages(Check check) {
  int expired = 0;
  testing::internal::CaptureStderr();
  check(&expired);
  const std::string written = testing::internal::GetCapturedStderr();
  std::string expected;
  for (int i = 0; i < expired; ++i) expected += "Runlet adapter: Ping task time out.\n";
  EXPECT_TRUE(written == expected)
      << "expected " << expired << " messages instead of " << written.substr(0, 1000);
}

const std::int32_t limits[] = {INT32_MIN,
                               INT32_MIN + 1,
                               -71583,
                               -71582,
                               -35792,
                               -35791,
                               -1,
                               0,
                               1,
                               2,
                               30,
                               35790,
                               35791,
                               35792,
                               71582,
                               71583,
                               0x8000,
                               1'000'000,
                               INT32_MAX - 1,
                               INT32_MAX};

TEST(TimeLimit, IsTheSameAtEveryBorder) {
  expectMessages([](int* expired) {
    for (const std::int32_t limit : limits) {
      const auto wrapped = static_cast<std::uint32_t>(limit) * 60'000U;
      for (std::uint32_t offset = 0; offset < 5; ++offset) {
        const auto near = static_cast<std::int32_t>(wrapped + offset - 2);
        EXPECT_TRUE(sameTimeOut(near, limit, expired));
      }
      for (const std::int32_t elapsed : borders) {
        EXPECT_TRUE(sameTimeOut(elapsed, limit, expired));
      }
    }
  });
}

TEST(TimeLimit, IsTheSameAtRandom) {
  expectMessages([](int* expired) {
    checkRandomCases(100'000, [&](Random& random) {
      return sameTimeOut(randomNumber(random), randomNumber(random), expired);
    });
  });
}

TEST(TimeLimit, IsTheSameForEveryNumberOfMinutesThatFits) {
  expectMessages([](int* expired) {
    for (std::int32_t limit = 0; limit < 35'792; limit += 7) {
      ASSERT_TRUE(sameTimeOut(limit * 60'000, limit, expired));
      ASSERT_TRUE(sameTimeOut(limit * 60'000 + 1, limit, expired));
    }
  });
}

}  // namespace
}  // namespace runlet_model
