// Whether the download schedule lets downloads run now.
#ifndef QRIX_PLATFORM_DLBASE_DOWNLOAD_SCHEDULE_H_
#define QRIX_PLATFORM_DLBASE_DOWNLOAD_SCHEDULE_H_

#include <ctime>
#include <string>

#include "platform/qrix_export.h"

namespace qrixdl {

// Whether a schedule lets downloads run at local time `when`. The schedule is 168 characters,
// seven days from Sunday of 24 hours each, "1" for an hour that downloads; an hour the text does
// not cover, or holds anything else, is a paused one. With `enabled` false every hour downloads.
QRIX_EXPORT bool ScheduleAllows(bool enabled, const std::string& schedule, const std::tm& when);

}  // namespace qrixdl

// True when the current local time lies inside the download schedule of settings.conf
// ("download_schedule_enable" exactly "yes", "download_schedule"); always true when the schedule
// is off, missing (the default, every hour on) or cannot be read.
QRIX_EXPORT bool IsInWhenToDownload();

#endif  // QRIX_PLATFORM_DLBASE_DOWNLOAD_SCHEDULE_H_
