// The task of runlet-job exec compared with the adapter's child: the same probe, run as both by the
// same starter, must report the same state.

#include <fcntl.h>
#include <grp.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "exec_run.h"
#include "tool_run.h"

namespace runlet_test {
namespace {

using Strings = std::vector<std::string>;

class ExecAsAChild : public ExecTest {
 protected:
  ExecAsAChild() {
    std::filesystem::copy_file(probePath, probe_);
    job_.arguments = command_;
    job_.set("WorkingFolder", work_);
  }

  // The probe's report without its process id and its parent's. The starter leads the process group
  // and the session.
  std::string reportOf(ProcessOptions options, const std::function<void()>& prepare) const {
    options.environment = {{"PATH", "/usr/bin:/bin"}, {"SHOT", "a=b\nc \xff"}, {"EMPTY", ""}};
    options.prepare = [&] {
      openAs(STDOUT_FILENO, folder_.file("output"), O_WRONLY | O_CREAT | O_TRUNC);
      openAs(STDERR_FILENO, folder_.file("error"), O_WRONLY | O_CREAT | O_TRUNC);
      if (prepare) prepare();
    };
    const ProcessResult result = runProcess(options);
    EXPECT_EQ(describeStatus(result.waitStatus), "exit 0") << readFile(folder_.file("error"));
    std::istringstream lines(readFile(work_ + "/report"));
    std::filesystem::remove(work_ + "/report");
    const std::string starter = std::string(" ").append(std::to_string(result.pid));
    std::string text;
    for (std::string line; std::getline(lines, line);) {
      if (line.starts_with("pid ") || line.starts_with("parent ")) continue;
      const bool isAboutGroups = line.starts_with("group ") || line.starts_with("session ");
      if (isAboutGroups && line.ends_with(starter)) {
        line.replace(line.size() - starter.size(), starter.size(), " of the starter");
      }
      text += line + "\n";
    }
    return text;
  }

  // Asserts that both report the same, and returns the report. `more` are options of the request.
  std::string expectSame(const Strings& more = {}, const std::function<void()>& prepare = nullptr) {
    write(job_);
    Strings request = newTask();
    request.insert(request.end(), more.begin(), more.end());
    const std::string child = reportOf(adapter(request), prepare);
    EXPECT_NE(child, "");
    const std::string report = reportOf(exec(task(1, more)), prepare);
    if (!isOfAnother_) {
      EXPECT_EQ(report, child);
    } else {
      EXPECT_EQ(withoutTheStarters(report), withoutTheStarters(child));
    }
    return child;
  }

  // Without what a task of another user inherits from the adapter but not from exec.
  static std::string withoutTheStarters(const std::string& report) {
    std::istringstream lines(report);
    std::string text;
    for (std::string line; std::getline(lines, line);) {
      const bool isOfStarter = line.starts_with("variable ") || line.starts_with("Groups:") ||
                               line.starts_with("keyring ") || line.starts_with("descriptor 3 ");
      if (!isOfStarter) text += line + "\n";
    }
    return text;
  }

  static bool has(const std::string& report, const std::string& line) {
    return ("\n" + report).find("\n" + line + "\n") != std::string::npos;
  }

  // In a run folder to which another user may write.
  const std::string work_ = folder_.makeFolder("place", 0777);
  const std::string probe_ = folder_.file("probe");
  const std::string command_ = probe_ + " report";
  Job job_;
  bool isOfAnother_ = false;
};

// The report of every row must have a line that shows that the row has an effect.
TEST_F(ExecAsAChild, IsWhatTheJobSays) {
  const struct {
    std::string arguments;
    Strings element;  // name and text
    Strings more;
    std::string line;
  } rows[] = {
      {command_, {"umask", "18"}, {}, "group of the starter"},
      {command_ + " \"one two\"three \"\" a\tb \"lost", {"umask", "18"}, {}, "argument one two"},
      {command_ + " %3tn %tp1 %tp9", {"umask", "18"}, {}, "argument 001"},
      {command_, {"WorkingFolder", work_ + "/../place/."}, {}, "folder " + work_},
      {command_, {"umask", "63"}, {}, "Umask:\t0077"},
      {command_, {"umask", "0"}, {}, "Umask:\t0000"},
      {command_, {"redirectStderr", "no"}, {}, "descriptor 2 " + folder_.file("error")},
      {command_, {"redirectStderr", "yes"}, {}, "descriptor 2 " + folder_.file("output")},
      {"probe report", {"umask", "18"}, {"-a", folder_.file("x")}, "argument " + probe_},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.arguments + ", " + row.element.front() + " " + row.element.back());
    job_.arguments = row.arguments;
    job_.set(row.element.front(), row.element.back());
    const std::string report = expectSame(row.more);
    EXPECT_TRUE(has(report, row.line)) << row.line << "\n" << report;
    job_.set("WorkingFolder", work_);
  }
}

TEST_F(ExecAsAChild, HasWhatTheStarterHas) {
  const struct {
    std::function<void()> prepare;
    std::string line;
  } rows[] = {
      {[] {
         for (const int signal : {SIGINT, SIGPIPE, SIGHUP}) std::signal(signal, SIG_IGN);
       },
       "SigIgn:\t0000000000001003"},
      {[] {
         sigset_t blocked;
         sigemptyset(&blocked);
         for (const int signal : {SIGUSR2, SIGTERM}) sigaddset(&blocked, signal);
         sigprocmask(SIG_SETMASK, &blocked, nullptr);
       },
       "SigBlk:\t0000000000004800"},
      // Only root may lower it below its starter's.
      {[] { setpriority(PRIO_PROCESS, 0, 19); }, "priority 19"},
      {[] {
         const rlimit few{17, 23};
         setrlimit(RLIMIT_NOFILE, &few);
       },
       "limit Max open files            17                   23                   files     "},
      {[] { std::ofstream("/proc/self/oom_score_adj") << 321; }, "oom 321"},
      {[] { umask(07); }, "Umask:\t0022"},
      {[this] { openAs(6, probe_, O_RDONLY); }, "descriptor 6 " + probe_},
      {[] { close(STDIN_FILENO); }, "descriptor 0 " + folder_.file("error")},
      {nullptr, R"(variable SHOT=a=b\x0ac \xff)"},
  };
  for (const auto& row : rows) {
    for (const Strings& more : {Strings{}, Strings{"-a", folder_.file("x")}}) {
      SCOPED_TRACE(row.line);
      job_.arguments = more.empty() ? command_ : "probe report";
      job_.set("umask", "18");
      const std::string report = expectSame(more, row.prepare);
      EXPECT_TRUE(has(report, row.line)) << report;
    }
  }
}

using ExecAsAChildOfRoot = ExecAsAChild;

TEST_F(ExecAsAChildOfRoot, HasTheRightsOfTheJob) {
  REQUIRE_ROOT();
  const struct {
    const char* uid;
    const char* gid;
    std::vector<gid_t> groups;  // the starter's
    std::string line;
  } rows[] = {
      {"71", "72", {}, "Uid:\t71\t71\t71\t71"},
      {"71", "72", {5, 7}, "Groups:\t5 7 "},
      {"0", "72", {5}, "Gid:\t72\t72\t72\t72"},
      {"71", "0", {0}, "CapEff:\t0000000000000000"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.line);
    job_.set("uid", row.uid).set("gid", row.gid);
    isOfAnother_ = std::string(row.uid) != "0";
    const auto prepare = [&] {
      if (setgroups(row.groups.size(), row.groups.data()) != 0) _exit(97);
    };
    const std::string report = expectSame({}, prepare);
    EXPECT_TRUE(has(report, row.line)) << report;
  }
}

}  // namespace
}  // namespace runlet_test
