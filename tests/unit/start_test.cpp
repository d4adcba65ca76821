#include "exec/start.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace runlet {
namespace {

AdapterContext fullContext() {
  AdapterContext context;
  context.jobFile = "/jobs/a/job.xml";
  context.appPath = "/opt/bin/tool";
  context.arguments = "render -x %tn";
  context.workingFolder = "/work";
  context.userName = "artist";
  context.uid = 71;
  context.gid = 72;
  context.umask = 18;
  context.redirectStderr = false;
  context.taskList.resize(2);
  return context;
}

void expectRest(const TaskStart& start) {
  EXPECT_EQ(start.folder, "/work");
  EXPECT_EQ(start.rights.gid, 72);
  EXPECT_EQ(start.rights.uid, 71);
  EXPECT_EQ(start.rights.userName, "artist");
  EXPECT_EQ(start.rights.umask, 18);
  EXPECT_FALSE(start.redirectStderr);
}

TEST(ComposedStart, HasEverythingAboutATask) {
  TaskStart start;
  ASSERT_TRUE(composeStart(fullContext(), 1, &start));
  EXPECT_EQ(start.commandLine, "/opt/bin/render -x 2");
  EXPECT_EQ(start.chmodPath, "/opt/bin/render");
  expectRest(start);
}

TEST(ComposedStart, HasTheDefaultsOfTheContext) {
  TaskStart start;
  AdapterContext context;
  context.taskList.resize(1);
  ASSERT_TRUE(composeStart(context, 0, &start));
  EXPECT_EQ(start.folder + start.commandLine + start.chmodPath + start.rights.userName, "");
  EXPECT_EQ(start.rights.gid, -1);
  EXPECT_EQ(start.rights.uid, -1);
  EXPECT_EQ(start.rights.umask, 0);
  EXPECT_TRUE(start.redirectStderr);
}

TEST(ComposedStart, HasTheFolderOfTheApplicationBeforeTheCommand) {
  const struct {
    const char* appPath;
    const char* arguments;
    const char* commandLine;
    const char* chmodPath;
  } rows[] = {
      {"", "render -x", "render -x", ""},
      {"", "render", "render", ""},
      {"", "", "", ""},
      {"tool", "render -x", "render -x", "render"},
      {"/opt/bin/", "render  -x ", "/opt/bin/render  -x ", "/opt/bin/render"},
      {"/opt/bin/tool", " render -x", "/opt/bin/ render -x", "/opt/bin/"},
      {"bin/../tool", "\"my render\" x", "bin/../\"my render\" x", "bin/../\"my"},
      {"/", " ", "/ ", "/"},
  };
  for (const auto& row : rows) {
    AdapterContext context = fullContext();
    context.appPath = row.appPath;
    context.arguments = row.arguments;
    TaskStart start;
    ASSERT_TRUE(composeStart(context, 0, &start)) << row.arguments;
    EXPECT_EQ(start.commandLine, row.commandLine);
    EXPECT_EQ(start.chmodPath, row.chmodPath);
  }
}

TEST(ComposedStart, HasNoCommandIfItCannotBeComposed) {
  AdapterContext context = fullContext();
  TaskStart start;
  ASSERT_TRUE(composeStart(fullContext(), 0, &start));
  context.arguments = "render -x %ta";
  EXPECT_FALSE(composeStart(context, 0, &start));
  EXPECT_EQ(start.commandLine + start.chmodPath, "");
  expectRest(start);

  ASSERT_TRUE(composeStart(fullContext(), 0, &start));
  context.arguments = "render";
  EXPECT_THROW(composeStart(context, 0, &start), std::out_of_range);
  EXPECT_EQ(start.commandLine + start.chmodPath, "");
  expectRest(start);
}

}  // namespace
}  // namespace runlet
