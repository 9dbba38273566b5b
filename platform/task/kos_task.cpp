#include "platform/task/kos_task.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/vlibc/atomic_file.h"

namespace KOS {
namespace {

bool IsComponent(const std::string& s) {
  return !s.empty() && s != "." && s != ".." && s.find('/') == std::string::npos &&
         s.find('\0') == std::string::npos && s.size() <= 128;
}

// The record's path, or "" when owner or name could name another file.
std::string PathOf(const std::string& owner, const std::string& name) {
  return IsComponent(owner) && IsComponent(name)
             ? std::string(kTaskRoot) + "/" + owner + "/" + name + ".json"
             : std::string();
}

// Makes `dir` and its parents readable by everybody, whatever the umask.
bool MakeDirs(const std::string& dir) {
  if (::mkdir(dir.c_str(), 0755) == 0) {
    return ::chmod(dir.c_str(), 0755) == 0;
  }
  if (errno == EEXIST) {
    return true;
  }
  return errno == ENOENT && dir != "/" && MakeDirs(qrix::DirName(dir)) &&
         (::mkdir(dir.c_str(), 0755) == 0 || errno == EEXIST) && ::chmod(dir.c_str(), 0755) == 0;
}

}  // namespace

Task::Task(const std::string& owner, const std::string& name) : path_(PathOf(owner, name)) {
  record_["finished"] = false;
  record_["properties"] = Json::Value(Json::objectValue);
  Write();
}

Task::Task(Loaded, std::string path, Json::Value record)
    : path_(std::move(path)), record_(std::move(record)) {}

bool Task::Write() {
  if (path_.empty() || !MakeDirs(qrix::DirName(path_))) {
    return false;
  }
  record_["updated_by"] = static_cast<Json::Int64>(::getpid());
  Json::StreamWriterBuilder writer;
  writer["indentation"] = "";
  return qrix::PublishFile(path_, Json::writeString(writer, record_) + "\n", 0644) == 0;
}

bool Task::setProperty(const std::string& name, const Json::Value& value) {
  record_["properties"][name] = value;
  return Write();
}

bool Task::finish(bool remove_record) {
  record_["finished"] = true;
  return remove_record ? remove() : Write();
}

bool Task::remove() {
  return !path_.empty() && ::unlink(path_.c_str()) == 0;
}

bool Task::isFinished() const {
  return record_["finished"].asBool();
}

std::string Task::getStringProperty(const std::string& name, const std::string& def) const {
  const Json::Value& value = record_["properties"][name];
  return value.isString() ? value.asString() : def;
}

std::unique_ptr<Task> TaskMgr::getTask(const std::string& name) const {
  const std::string path = PathOf(owner_, name);
  std::string text;
  Json::Value record;
  if (path.empty() || qrix::ReadFile(path, &text) != 0 ||
      !Json::Reader().parse(text, record, false) || !record.isObject() ||
      !record["finished"].isBool() || !record["properties"].isObject()) {
    return nullptr;
  }
  return std::unique_ptr<Task>(new Task(Task::Loaded{}, path, std::move(record)));
}

}  // namespace KOS
