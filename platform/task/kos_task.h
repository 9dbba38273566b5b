// Task records: what a background job tells whoever polls it, one JSON file per task under
// /run/qrix/tasks/<owner>/<name>.json. Each write replaces the file atomically, and any process
// may read it (files 0644, directories 0755), so a job and its pollers may live in different
// processes.
#ifndef QRIX_PLATFORM_TASK_KOS_TASK_H_
#define QRIX_PLATFORM_TASK_KOS_TASK_H_

#include <json/json.h>

#include <memory>
#include <string>

#include "platform/qrix_export.h"

namespace KOS {

inline constexpr const char* kTaskRoot = "/run/qrix/tasks";

class QRIX_EXPORT Task {
 public:
  // Creates the record `name` of `owner`, unfinished and without properties, replacing one of
  // the same name. Owner and name are single path components ("@system", "haulport").
  Task(const std::string& owner, const std::string& name);

  // Each of these writes the whole record; false when it could not be written.
  bool setProperty(const std::string& name, const Json::Value& value);
  // Marks the task finished; with `remove` the record goes at once, as nobody will read it.
  bool finish(bool remove_record);
  // True when this call removed the record (false when it was gone already).
  bool remove();

  bool isFinished() const;
  // A string property, or `def` when it is missing or not a string.
  std::string getStringProperty(const std::string& name, const std::string& def) const;

 private:
  friend class TaskMgr;
  struct Loaded {};
  Task(Loaded, std::string path, Json::Value record);
  bool Write();

  std::string path_;  // empty for a record that cannot exist (a bad owner or name)
  Json::Value record_;
};

class QRIX_EXPORT TaskMgr {
 public:
  explicit TaskMgr(std::string owner) : owner_(std::move(owner)) {}
  // The record as it is on disk now, or null when there is none (or it is unreadable).
  std::unique_ptr<Task> getTask(const std::string& name) const;

 private:
  std::string owner_;
};

}  // namespace KOS

#endif  // QRIX_PLATFORM_TASK_KOS_TASK_H_
