#include "core/log/log_rotation.h"

#include <algorithm>

#include "core/base/local_time.h"
#include "core/format/format.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/platform.h"

namespace CORE {
namespace {

constexpr std::wstring_view kExtension = L".txt";
constexpr wchar_t kWildcard[] =
    L"-????"
    L"-??"
    L"-??"
    L"-??????";                                               // in pieces: "??-" was a trigraph
constexpr std::wstring_view kPattern = L"0000-00-00-000000";  // 0 stands for a digit
constexpr std::size_t kDayLength = 10;
constexpr std::uint32_t kCheckInterval = 1000;  // milliseconds

/// As file names have it.
std::wstring textOf(const platform::SystemTime& t) {
  return format(L"%04d-%02d-%02d-%02d%02d%02d", t.year, t.month, t.day, t.hour, t.minute, t.second);
}

/// The local date and time that many days ago; empty, before every other, when it cannot be told.
std::wstring textOfDaysAgo(std::uint32_t days) {
  const auto local =
      localTimeOf(platform::current().clock.GetSystemTimeAsFileTime() - days * platform::kFileTimePerDay);
  return local ? textOf(*local) : std::wstring();
}

bool isDateTime(std::wstring_view text) {
  return text.size() == kPattern.size() && std::equal(text.begin(), text.end(), kPattern.begin(), [](auto c, auto p) {
           return p == L'0' ? L'0' <= c && c <= L'9' : c == p;
         });
}

}  // namespace

std::wstring LogRotation::pathOf(std::wstring_view dateTime) const {
  return format(L"%s%s-%s%s", folder_, base_, dateTime, kExtension);
}

/// The date and time texts of the files that there are, oldest first.
std::vector<std::wstring> LogRotation::names() const {
  platform::Files& files = platform::current().files;
  std::vector<std::wstring> out;
  platform::FoundFile found;
  const auto search = files.FindFirstFileW(folder_ + base_ + kWildcard + std::wstring(kExtension), found);
  if (!search) {
    return out;
  }
  do {
    // The wildcard matches short names, too.
    const std::wstring_view name = found.name;
    const std::size_t begin = base_.size() + 1;
    const std::wstring_view dateTime = name.size() > begin ? name.substr(begin, kPattern.size()) : std::wstring_view();
    if (!found.isFolder && isDateTime(dateTime) && name.size() == begin + kPattern.size() + kExtension.size()) {
      out.emplace_back(dateTime);
    }
  } while (files.FindNextFileW(search.value.get(), found));
  std::sort(out.begin(), out.end());
  return out;
}

std::wstring LogRotation::selectDateTimeLog(std::wstring_view day) const {
  std::wstring newest;
  for (const std::wstring& dateTime : names()) {
    newest = dateTime.starts_with(day) ? dateTime : newest;
  }
  return newest.empty() ? newest : pathOf(newest);
}

bool LogRotation::isFull(std::size_t bytes) const {
  const std::uint64_t size = limits_.maxBytes == 0 ? 0 : file_.size();
  return size != 0 && size + bytes > limits_.maxBytes;
}

LogRotation::Opened LogRotation::prepare(std::size_t bytes, std::uint32_t ticks, platform::Status& status) {
  if (file_.isOpen() && ticks - checkedAt_ < kCheckInterval && !isFull(bytes)) {
    return Opened::kNothing;
  }
  checkedAt_ = ticks;
  const std::wstring now = textOf(localTimeNow());
  const std::wstring today = now.substr(0, kDayLength);
  const bool ofToday = !path_.empty() && path_.starts_with(folder_ + base_ + L"-" + today);
  // One that fills up within the second it was begun in has to do until the next.
  if (file_.isOpen() && ofToday && (!isFull(bytes) || path_ == pathOf(now))) {
    return Opened::kNothing;
  }
  std::wstring wanted = file_.isOpen() ? std::wstring() : ofToday ? path_ : selectDateTimeLog(today);
  file_.close();
  for (;;) {
    const bool isNew = wanted.empty();
    path_ = isNew ? pathOf(now) : wanted;
    const platform::Status opened = file_.open(path_);
    if (!opened) {
      status = opened;
      return Opened::kFailed;
    }
    if (isNew || !isFull(bytes)) {
      removeOld();
      return isNew ? Opened::kNew : Opened::kExisting;
    }
    file_.close();
    wanted.clear();
  }
}

void LogRotation::removeOld() const {
  const auto all = names();
  const std::wstring oldest = textOfDaysAgo(limits_.maxDays);
  for (std::size_t i = 0; i < all.size(); ++i) {
    const std::wstring path = pathOf(all[i]);
    if ((all.size() - i > limits_.maxFiles || all[i] < oldest) && path != path_) {
      // Opened for nobody else beside it, so that a file in use stays; what cannot be removed stays as well.
      platform::current().files.CreateFileW(path, platform::kDelete, 0, platform::kOpenExisting,
                                            platform::kFileFlagDeleteOnClose);
    }
  }
}

}  // namespace CORE
