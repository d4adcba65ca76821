#include "tool/record/read.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string_view>
#include <utility>

#include "tool/record/events.h"
#include "tool/record/store.h"
#include "tool/system/files.h"
#include "tool/text/characters.h"
#include "tool/text/fields.h"
#include "tool/text/units.h"

namespace runlet_tool {
namespace {

// Not the kind that keeps the order of members: that one copies values when an object grows, by
// recursion, which would exhaust the stack if one is nested a million deep.
using Event = nlohmann::json;

// Thrown for an event that this program would not have written.
struct Damage {};

void require(bool isFine) {
  if (!isFine) throw Damage();
}

template <typename Number>
Number number(const Event& event, const char* key, std::int64_t lowest, std::int64_t highest) {
  const Event& value = event.at(key);
  require(value.is_number_integer());
  const bool isHuge =
      value.is_number_unsigned() && value.get<std::uint64_t>() > std::uint64_t{INT64_MAX};
  require(!isHuge && value.get<std::int64_t>() >= lowest && value.get<std::int64_t>() <= highest);
  return static_cast<Number>(value.get<std::int64_t>());
}

// Seconds, as a duration or since 1970.
double seconds(const Event& event, const char* key) {
  constexpr double longest = 1e11;
  const double value = event.at(key).get<double>();
  require(value >= 0 && value <= longest);
  return value;
}

// The texts of an event.
class Texts {
 public:
  explicit Texts(const Event& event) : event_(event), inBytes_(event.value("bytes", false)) {}

  std::string operator()(const char* key) const {
    return of(event_.at(key));
  }

  std::vector<std::string> list(const char* key) const {
    std::vector<std::string> all;
    require(event_.at(key).is_array());
    for (const Event& text : event_.at(key)) all.push_back(of(text));
    return all;
  }

 private:
  std::string of(const Event& text) const {
    const auto& characters = text.get_ref<const std::string&>();
    if (!inBytes_) return characters;
    std::string bytes;
    require(charactersAsBytes(characters, &bytes));
    return bytes;
  }

  const Event& event_;
  bool inBytes_;
};

constexpr std::int64_t mostTasks = std::numeric_limits<std::int32_t>::max();
constexpr std::int64_t mostPids = std::numeric_limits<pid_t>::max();
constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max();

Session sessionOf(const Event& event) {
  const Texts text(event);
  Session session;
  session.begin = seconds(event, "time");
  session.toolVersion = text("tool");
  session.verb = text("verb");
  session.options = text.list("options");
  session.expected = text.list("expect");
  session.job = text("job");
  session.appPath = text("application");
  session.digest = text("sha256");
  session.folder = text("folder");
  session.uid = number<std::int32_t>(event, "uid", INT32_MIN, INT32_MAX);
  session.gid = number<std::int32_t>(event, "gid", INT32_MIN, INT32_MAX);
  session.process.host = text("host");
  session.process.boot = text("boot");
  session.process.space = number<std::uint64_t>(event, "pidSpace", 0, most);
  session.process.process = number<pid_t>(event, "pid", 1, mostPids);
  session.process.start = number<std::uint64_t>(event, "pidStart", 0, most);
  session.atATime = number<std::int32_t>(event, "atATime", 1, INT32_MAX);
  session.timeLimit = seconds(event, "timeLimit");
  session.isWhole = event.at("whole").get<bool>();
  return session;
}

unsigned valueOfDigit(char digit) {
  const std::size_t value = std::string_view("0123456789abcdef").find(digit);
  require(value != std::string_view::npos);
  return static_cast<unsigned>(value);
}

TaskIdentity identityOfDigits(std::string_view digits) {
  TaskIdentity identity;
  for (std::size_t i = 0; i < identity.size(); ++i) {
    identity[i] = static_cast<unsigned char>(valueOfDigit(digits[2 * i]) * 16U +
                                             valueOfDigit(digits[2 * i + 1]));
  }
  return identity;
}

void appendRange(std::string_view text, std::size_t mostNew, std::vector<std::int32_t>* tasks) {
  const std::optional<NumberRange> range = parseRange(text);
  require(range && range->first >= 1);
  require(tasks->empty() || range->first > tasks->back());
  require(static_cast<std::size_t>(range->last - range->first) < mostNew);
  for (std::int64_t task = range->first; task <= range->last; ++task) {
    tasks->push_back(static_cast<std::int32_t>(task));
  }
}

// Reads events in the order of the file.
class Reader {
 public:
  explicit Reader(Record* record) : record_(record) {}

  void take(const Event& event) {
    const auto& name = event.at(eventKey).get_ref<const std::string&>();
    for (const Handler& row : handlers) {
      if (name == row.name) return (this->*row.take)(event);
    }
  }

  // Whether the last session has all its tasks.
  bool isPlanned() const {
    return !record_->sessions.empty() && record_->sessions.back().tasks.size() == count_;
  }

  // A session that was killed before it had recorded all its tasks has run none of them. What the
  // batch is, the session before it says.
  void finishSession() {
    if (record_->sessions.empty() || isPlanned()) return;
    if (record_->sessions.size() > 1) {
      record_->sessions.pop_back();
    } else {
      session().isPlanned = false;
      session().tasks.clear();
      session().identities.clear();
    }
  }

  void takeSession(const Event& event) {
    finishSession();
    record_->sessions.push_back(sessionOf(event));
    count_ = number<std::size_t>(event, "count", 0, mostTasks);
  }

  void takePlan(const Event& event) {
    const std::string identities = Texts(event)("identities");
    constexpr std::size_t length = 2 * TaskIdentity().size();
    require(identities.size() % length == 0);
    const std::size_t before = session().tasks.size();
    const std::size_t added = identities.size() / length;
    const std::string ranges = Texts(event)("tasks");
    for (const std::string_view range : split(',', ranges)) {
      appendRange(range, before + added - session().tasks.size(), &session().tasks);
    }
    require(session().tasks.size() == before + added && session().tasks.size() <= count_);
    for (std::size_t i = 0; i < added; ++i) {
      session().identities.push_back(
          identityOfDigits(std::string_view(identities).substr(i * length)));
    }
  }

  void takeStart(const Event& event) {
    bool isNew = false;
    Attempt& started = attempt(event, &isNew);
    require(isNew);
    const Texts text(event);
    started.begin = seconds(event, "time");
    started.words = text.list("argv");
    started.log = text("log");
    started.process = number<pid_t>(event, "pid", 1, mostPids);
    started.processStart = number<std::uint64_t>(event, "pidStart", 0, most);
  }

  void takeEnd(const Event& event) {
    bool isNew = false;
    Attempt& ended = attempt(event, &isNew);
    require(!ended.end);
    ended.end = seconds(event, "time");
    if (isNew) ended.begin = *ended.end;
    const Texts text(event);
    const std::string name = text("end");
    const char* const key = name == endName(Ending::failed) ? "code" : "signal";
    const bool hasNumber = name == endName(Ending::failed) || name == endName(Ending::killed);
    const int number = hasNumber ? runlet_tool::number<int>(event, key, 0, 255) : 0;
    const std::optional<TaskEnd> result =
        endOfName(name, number, event.contains("reason") ? text("reason") : "");
    require(result.has_value());
    ended.result = *result;
    if (isNew) return;
    ended.wall = seconds(event, "wall");
    ended.cpu = seconds(event, "cpu");
    ended.peakMemory = runlet_tool::number<std::int64_t>(event, "peakMemory", 0, most);
    if (event.value("logRemoved", false)) ended.log.clear();
    ended.isDiskFull = event.value("diskFull", false);
  }

  void takeStop(const Event& event) {
    session().end = seconds(event, "time");
    if (event.contains("reason")) session().stopReason = Texts(event)("reason");
  }

 private:
  struct Handler {
    const char* name;
    void (Reader::*take)(const Event& event);
  };
  static const Handler handlers[5];

  Session& session() {
    require(!record_->sessions.empty());
    return record_->sessions.back();
  }

  // The attempt that an event is about, which is new if there is none yet.
  Attempt& attempt(const Event& event, bool* isNew) {
    require(isPlanned());
    const auto task = number<std::int32_t>(event, "task", 1, mostTasks);
    const std::vector<std::int32_t>& tasks = session().tasks;
    require(std::binary_search(tasks.begin(), tasks.end(), task));
    const auto tried = number<std::int32_t>(event, "attempt", 1, mostTasks);
    const auto [position, isInserted] =
        positions_.insert({{task, tried}, record_->attempts.size()});
    *isNew = isInserted;
    if (!isInserted) return record_->attempts[position->second];
    Attempt& added = record_->attempts.emplace_back();
    added.task = task;
    added.number = tried;
    added.session = record_->sessions.size() - 1;
    return added;
  }

  Record* record_;
  std::size_t count_ = 0;  // of the last session's tasks
  std::map<std::pair<std::int32_t, std::int32_t>, std::size_t> positions_;  // of the attempts
};

const Reader::Handler Reader::handlers[] = {{sessionEvent, &Reader::takeSession},
                                            {planEvent, &Reader::takePlan},
                                            {startEvent, &Reader::takeStart},
                                            {endEvent, &Reader::takeEnd},
                                            {stopEvent, &Reader::takeStop}};

// The member of that name; null if there is none or `event` is no object. Not a copy, as from
// Event::value(): copying and dumping work by recursion, too.
const Event* member(const Event& event, const char* key) {
  if (!event.is_object()) return nullptr;
  const auto found = event.find(key);
  return found == event.end() ? nullptr : &*found;
}

// The text of that member; null if there is none.
const std::string* textMember(const Event& event, const char* key) {
  const Event* const value = member(event, key);
  return value == nullptr ? nullptr : value->get_ptr<const std::string*>();
}

bool isSession(const Event& event) {
  const std::string* const name = textMember(event, eventKey);
  return name != nullptr && *name == sessionEvent;
}

std::string damageIn(std::size_t line) {
  return "damaged in line " + std::to_string(line);
}

constexpr std::size_t longestVersion = 100;  // bytes, in a message

// Why the first event does not begin a record of this version; empty if it does.
std::string complaintAboutFirst(const Event& event) {
  if (!isSession(event)) return "not a record of runlet-job";
  const Event* const version = member(event, "version");
  if (version != nullptr && version->is_structured()) return damageIn(1);
  if (version == nullptr || *version != recordVersion) {
    const std::string text =
        version == nullptr ? "null" : version->dump(-1, ' ', true, Event::error_handler_t::replace);
    return "a record of version " + shortened(visible(text), longestVersion) +
           ", and this program reads version " + std::to_string(recordVersion);
  }
  const std::string* const id = textMember(event, "id");
  return id != nullptr && isRecordId(*id) ? "" : damageIn(1);
}

// See Record::distrust.
std::string distrustOf(const struct stat& status) {
  if (status.st_uid != geteuid()) {
    return "the record belongs to user " + std::to_string(status.st_uid);
  }
  // With an access control list, the group's bits are the most that it grants.
  const bool isOpen = (status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
  return isOpen ? "others may write to the record" : "";
}

// A file that is being read from its beginning.
struct RecordFile {
  OwnDescriptor descriptor;
  std::size_t size = 0;  // when it was opened
  std::string text;      // what has been read
};

// Reads on until there are `size` bytes, or the end of the file. Returns 0, or the error number.
int readUpTo(std::size_t size, RecordFile* file) {
  std::string& text = file->text;
  std::size_t done = text.size();
  text.resize(std::max(done, size));
  ssize_t count = 0;
  while ((count = read(file->descriptor.number(), text.data() + done, text.size() - done)) > 0) {
    done += static_cast<std::size_t>(count);
  }
  text.resize(done);
  return count == -1 ? errno : 0;
}

// The first line may have all the words of a command line, and nobody knows the longest one.
constexpr std::size_t longestFirstLine = 64 << 20;  // bytes

// Opens a file and reads at least its first line. Returns why it is no record of this version;
// empty if it may be one. A file of another kind may be of any size and is not read further.
std::string openRecord(const std::string& path, Record* record, RecordFile* file) {
  file->descriptor = OwnDescriptor(openRegularFile(path, O_RDONLY | O_NONBLOCK));
  struct stat status {};
  if (file->descriptor.number() == -1) return openFailure(errno);
  fstat(file->descriptor.number(), &status);
  record->distrust = distrustOf(status);
  record->file = {status.st_dev, status.st_ino};
  file->size = static_cast<std::size_t>(status.st_size);
  const std::string& text = file->text;
  constexpr std::size_t firstPart = 1 << 16;
  const std::size_t limit = std::min(file->size, longestFirstLine);
  // The file may have been cut since.
  std::size_t wanted = std::min(limit, firstPart);
  for (bool isThere = true; isThere && text.find('\n') == std::string::npos;) {
    const int error = readUpTo(wanted, file);
    if (error != 0) return std::strerror(error);
    isThere = text.size() == wanted && wanted < limit;
    wanted = std::min(limit, 2 * wanted);
  }
  // A line without an end is incomplete.
  const Event event = Event::parse(text.substr(0, text.find('\n') + 1), nullptr, false);
  return complaintAboutFirst(event);
}

// Calls `read`, which reads an event. False if the event is damaged.
bool isSound(const std::function<void()>& read) {
  try {
    read();
  } catch (const Event::exception&) {
    return false;
  } catch (const Damage&) {
    return false;
  }
  return true;
}

}  // namespace

std::string readRecord(const std::string& path, Record* record) {
  RecordFile file;
  std::string complaint = openRecord(path, record, &file);
  if (!complaint.empty()) return complaint;
  const int error = readUpTo(file.size, &file);
  if (error != 0) return std::strerror(error);
  std::string& text = file.text;
  text.resize(text.rfind('\n') + 1);  // what follows is incomplete
  Reader reader(record);
  std::size_t line = 0;
  std::size_t broken = 0;  // the number of a preceding line that is no JSON; 0 = none
  for (const std::string_view part : split('\n', text)) {
    ++line;
    const Event event = Event::parse(part, nullptr, false);
    if (line == 1) record->id = *textMember(event, "id");
    // Only what a killed writer left incomplete may be broken. Then a new session or nothing
    // follows.
    if (broken != 0 && !isSession(event)) return damageIn(broken);
    broken = event.is_discarded() ? line : 0;
    if (broken != 0) continue;
    if (!isSound([&] { reader.take(event); })) return damageIn(line);
  }
  reader.finishSession();
  return "";
}

std::string jobOfRecord(const std::string& path) {
  // As it is written: the kind of an event comes first.
  const std::string beginning = std::string("{\"") + eventKey + "\":\"" + sessionEvent + "\"";
  Record unused;
  RecordFile file;
  if (!openRecord(path, &unused, &file).empty() || readUpTo(file.size, &file) != 0) return "";
  std::string job;
  for (const std::string_view line : split('\n', file.text)) {
    if (!line.starts_with(beginning)) continue;
    const Event event = Event::parse(line, nullptr, false);
    isSound([&] { job = sessionOf(event).job; });
  }
  return job;
}

std::string distrustOfFile(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 ? distrustOf(status) : std::strerror(errno);
}

}  // namespace runlet_tool
