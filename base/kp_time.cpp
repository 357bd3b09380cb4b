#include "base/kp_time.h"

#include <sys/single_threaded.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <limits>
#include <type_traits>

#include "base/kp_clib.h"

static constexpr long long seconds_per_minute = 60;
static constexpr long long seconds_per_day = 86400;
static constexpr int daylight_minutes = 60;

// ---- calendar: days since 1970-01-01 of the Gregorian calendar, and back ----

// Years are counted from March, so that the leap day is a year's last; an era is 400 such years.
static constexpr long long days_per_era = 146097;
static constexpr long long days_to_epoch = 719468;  // from 0000-03-01 to 1970-01-01

struct kp_civil_date {
  long long year;
  long long month;  // 1 to 12
  long long day;    // 1 to 31
};

static constexpr long long floor_divide(long long a, long long b) {
  return a / b - (a % b < 0 ? 1 : 0);
}

// Months and days outside their usual range count on from the date's year and month.
static constexpr long long days_of(const kp_civil_date& date) {
  const long long months = date.year * 12 + date.month - 3;  // since March of year 0
  const long long year = floor_divide(months, 12);
  const long long month = months - year * 12;
  const long long leap_days =
      floor_divide(year, 4) - floor_divide(year, 100) + floor_divide(year, 400);
  return year * 365 + leap_days + (153 * month + 2) / 5 + date.day - 1 - days_to_epoch;
}

static constexpr kp_civil_date date_of(long long days) {
  const long long shifted = days + days_to_epoch;
  const long long era = floor_divide(shifted, days_per_era);
  const long long day_of_era = shifted - era * days_per_era;
  const long long year_of_era =
      (day_of_era - day_of_era / 1460 + day_of_era / 36524 - day_of_era / 146096) / 365;
  const long long day_of_year =
      day_of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
  const long long month = (5 * day_of_year + 2) / 153;  // from March
  const long long day = day_of_year - (153 * month + 2) / 5 + 1;
  const bool next_year = month >= 10;
  return {era * 400 + year_of_era + (next_year ? 1 : 0), next_year ? month - 9 : month + 3, day};
}

static constexpr int days_in_month(int year, int month) {
  const kp_civil_date first = {year, month, 1};
  const kp_civil_date next = {year, month + 1, 1};
  return static_cast<int>(days_of(next) - days_of(first));
}

static constexpr long long last_year = std::numeric_limits<unsigned short>::max();
static constexpr long long earliest_second = days_of({0, 1, 1}) * seconds_per_day;
static constexpr long long latest_second = days_of({last_year + 1, 1, 1}) * seconds_per_day - 1;

static unsigned short field(long long value) {
  return static_cast<unsigned short>(std::clamp(value, 0LL, last_year));
}

// ---- the system's zone ----

// Bias and flag as a kp_Time holds them.
struct kp_system_zone {
  short bias;
  short daylight;
};

static bool operator==(const kp_system_zone& a, const kp_system_zone& b) {
  return a.bias == b.bias && a.daylight == b.daylight;
}

static int offset_of(const kp_system_zone& zone) {
  return (zone.daylight != 0 ? daylight_minutes : 0) - zone.bias;
}

// GMT, when the C library cannot tell.
static kp_system_zone zone_at(time_t moment) {
  struct tm local = {};
  if (KP_localtime_r(&moment, &local) == nullptr) return {0, 0};
  const bool ahead = local.tm_isdst > 0;
  const long bias = (ahead ? daylight_minutes : 0) - local.tm_gmtoff / seconds_per_minute;
  return {static_cast<short>(bias), static_cast<short>(ahead)};
}

static time_t instant_of(long long local_seconds, const kp_system_zone& zone) {
  return local_seconds - offset_of(zone) * seconds_per_minute;
}

// The zone that clocks showed when they showed that local time: of a time shown twice, the first
// showing; a time that clocks skipped is read with the zone from before the gap.
static kp_system_zone zone_at_local(long long local_seconds) {
  const kp_system_zone before = zone_at(local_seconds - seconds_per_day);
  if (zone_at(instant_of(local_seconds, before)) == before) return before;
  const kp_system_zone after = zone_at(local_seconds + seconds_per_day);
  return zone_at(instant_of(local_seconds, after)) == after ? after : before;
}

// What can be seen of the C library's zone without asking for it. A change by setenv("TZ") and
// tzset() shows in its variables, unless both zones have one standard offset, one pair of names and
// daylight time; then only the environment tells, which may be read as long as no other thread can
// change it. The names are those of the last conversion, and null while one is made.
struct kp_zone_signs {
  long standard_offset;
  int has_daylight;
  const char* names[2];
  char** variables;    // the environment; null when it was not read
  size_t n_variables;  //
  const char* last;    // of them; null when there is none
  size_t zone_at;      // which of them is TZ; n_variables when none is
  const char* zone;    // that variable; null when there is none
};

static const char* zone_name(int daylight_time) {
  return std::atomic_ref(tzname[daylight_time]).load(std::memory_order_relaxed);
}

static bool shows_name(const kp_zone_signs& signs, int daylight_time) {
  const char* const name = zone_name(daylight_time);
  return name == signs.names[daylight_time] || name == nullptr;
}

// Strings of the environment are compared by their addresses: what setenv() puts there stays.
static bool shows_environment(const kp_zone_signs& signs) {
  if (!__libc_single_threaded || signs.variables == nullptr) return true;
  return environ == signs.variables && environ[signs.n_variables] == nullptr &&
         (signs.n_variables == 0 || environ[signs.n_variables - 1] == signs.last) &&
         environ[signs.zone_at] == signs.zone;
}

static bool show(const kp_zone_signs& signs) {
  return signs.standard_offset == timezone && signs.has_daylight == daylight &&
         shows_name(signs, 0) && shows_name(signs, 1) && shows_environment(signs);
}

static kp_zone_signs current_zone_signs() {
  kp_zone_signs signs = {timezone, daylight, {zone_name(0), zone_name(1)}, nullptr, 0, nullptr,
                         0,        nullptr};
  if (!__libc_single_threaded || environ == nullptr) return signs;
  signs.variables = environ;
  size_t& n = signs.n_variables;
  for (; environ[n] != nullptr; ++n) {
    signs.last = environ[n];
    if (signs.zone != nullptr || std::strncmp(environ[n], "TZ=", 3) != 0) continue;
    signs.zone = environ[n];
    signs.zone_at = n;
  }
  if (signs.zone == nullptr) signs.zone_at = n;
  return signs;
}

// What a thread remembers of the current time. localtime_r takes a lock that is shared by the whole
// process, so threads that stamp entries would queue for it; within one second the time stays what
// it is, unless the zone itself is changed.
// Trivially destructible, so that unloading the library leaves nothing behind in running threads.
struct kp_second_memory {
  time_t second;
  bool known;
  kp_zone_signs signs;
  alignas(kp_Time) unsigned char told[sizeof(kp_Time)];
};

// Every entry that is made looks at it: this model spares the calls that find the variable of a
// shared library, and takes 112 bytes of the room that the system keeps for that.
[[gnu::tls_model("initial-exec")]] static thread_local kp_second_memory second_memory;
static_assert(sizeof(kp_second_memory) <= 112);

// ---- kp_Time ----

kp_Time::kp_Time() {
  const time_t now = KP_time(nullptr);
  const kp_second_memory& memory = second_memory;
  if (memory.second == now && memory.known && show(memory.signs))
    std::memcpy(static_cast<void*>(this), memory.told, sizeof *this);
  else
    tell_and_remember(now);
}

// Kept out of line, so that a time that is remembered gets by without its stack frame.
[[gnu::noinline]] void kp_Time::tell_and_remember(long long now) {
  const kp_system_zone zone = zone_at(now);
  tell(now, zone.bias, zone.daylight);
  kp_second_memory& memory = second_memory;
  memory.second = now;
  memory.known = true;
  memory.signs = current_zone_signs();  // as this conversion has left them
  std::memcpy(memory.told, this, sizeof *this);
}

void kp_Time::tell(long long instant, short bias, short flag) {
  gmt_ = false;
  zone_bias_ = bias;
  daylight_flag_ = flag;
  set_seconds_as_told(instant + offset_minutes() * seconds_per_minute);
}

kp_Time::kp_Time(int year, int month, int day, int hour, int minute, int second, bool gmt)
    : year_(field(year)),
      month_(field(month)),
      day_(field(day)),
      hour_(field(hour)),
      minute_(field(minute)),
      second_(field(second)),
      gmt_(gmt) {
  take_system_zone();
}

void kp_Time::local_to_GMT() {
  if (gmt_) return;
  set_seconds_as_told(seconds_as_told() - offset_minutes() * seconds_per_minute);
  gmt_ = true;
}

void kp_Time::GMT_to_local() {
  if (!gmt_) return;
  set_seconds_as_told(seconds_as_told() + offset_minutes() * seconds_per_minute);
  gmt_ = false;
}

void kp_Time::set_zero() {
  zone_bias_ = 0;
  daylight_flag_ = 0;
  gmt_ = true;
  set_seconds_as_told(0);
}

long long kp_Time::instant() const {
  return seconds_as_told() - (gmt_ ? 0 : offset_minutes() * seconds_per_minute);
}

kp_Time::kp_Time(std::chrono::system_clock::time_point moment) {
  const std::chrono::seconds seconds =
      std::chrono::floor<std::chrono::seconds>(moment.time_since_epoch());
  const kp_system_zone zone = zone_at(seconds.count());
  tell(seconds.count(), zone.bias, zone.daylight);
}

kp_Time kp_Time::in_GMT(long long seconds) {
  kp_Time time{not_told()};
  time.tell(seconds, 0, 0);
  time.gmt_ = true;
  return time;
}

std::chrono::system_clock::time_point kp_Time::to_time_point() const {
  using clock = std::chrono::system_clock;
  using std::chrono::seconds;
  const seconds reached(instant());
  if (reached > std::chrono::floor<seconds>(clock::duration::max()))
    return clock::time_point::max();
  if (reached < std::chrono::ceil<seconds>(clock::duration::min())) return clock::time_point::min();
  return clock::time_point(reached);
}

int kp_Time::compare_time(const kp_Time& other) const {
  const long long mine = instant();
  const long long theirs = other.instant();
  return (mine > theirs ? 1 : 0) - (mine < theirs ? 1 : 0);
}

long long kp_Time::seconds_as_told() const {
  return days_of({year_, month_, day_}) * seconds_per_day + hour_ * 3600LL + minute_ * 60LL +
         second_;
}

void kp_Time::set_seconds_as_told(long long seconds) {
  const long long told = std::clamp(seconds, earliest_second, latest_second);
  const long long days = floor_divide(told, seconds_per_day);
  const long long second_of_day = told - days * seconds_per_day;
  const kp_civil_date date = date_of(days);
  year_ = field(date.year);
  month_ = field(date.month);
  day_ = field(date.day);
  hour_ = field(second_of_day / 3600);
  minute_ = field(second_of_day / 60 % 60);
  second_ = field(second_of_day % 60);
}

int kp_Time::offset_minutes() const {
  return offset_of({zone_bias_, daylight_flag_});
}

void kp_Time::take_system_zone() {
  const long long told = seconds_as_told();
  const kp_system_zone zone = gmt_ ? zone_at(told) : zone_at_local(told);
  zone_bias_ = zone.bias;
  daylight_flag_ = zone.daylight;
}

// ---- texts ----

// Put a text at `at`, and return its end.

// Zeros come before a number of fewer digits than `least`.
static char* put_number(char* at, unsigned number, int least) {
  char digits[16];
  char* first = digits + sizeof digits;
  for (; number != 0 || least > 0; number /= 10, --least)
    *--first = static_cast<char>('0' + number % 10);
  return std::copy(first, digits + sizeof digits, at);
}

static char* put_two(char* at, char before, unsigned number) {
  *at = before;
  if (number >= 100) return put_number(at + 1, number, 2);
  at[1] = static_cast<char>('0' + number / 10);
  at[2] = static_cast<char>('0' + number % 10);
  return at + 3;
}

static char* put_date(char* at, const kp_Time& time) {
  at = put_number(at, time.get_year(), 4);
  return put_two(put_two(at, '-', time.get_month()), '-', time.get_day());
}

// With a character in front.
static char* put_time_of_day(char* at, char before, const kp_Time& time) {
  at = put_two(at, before, time.get_hour());
  return put_two(put_two(at, ':', time.get_minute()), ':', time.get_second());
}

// "Z", or the offset as in "+08:00".
static char* put_zone(char* at, bool gmt, int offset) {
  *at = 'Z';
  if (gmt) return at + 1;
  const auto minutes = static_cast<unsigned>(offset < 0 ? -offset : offset);
  return put_two(put_two(at, offset < 0 ? '-' : '+', minutes / 60), ':', minutes % 60);
}

// As much as there is room for, and a NUL.
static void copy_out(const char* text, const char* end, char* buffer, unsigned size) {
  if (size == 0) return;
  const size_t length = std::min(static_cast<size_t>(end - text), size_t{size} - 1);
  std::memcpy(buffer, text, length);
  buffer[length] = '\0';
}

// Holds any of the texts, also of fields of five digits.
using kp_time_text = char[64];

void kp_Time::print_date_out(char* buffer, unsigned size) const {
  kp_time_text text;
  copy_out(text, put_date(text, *this), buffer, size);
}

void kp_Time::print_time_out(char* buffer, unsigned size) const {
  kp_time_text text;
  const char* const end = put_time_of_day(text, 'T', *this);
  copy_out(text + 1, end, buffer, size);
}

void kp_Time::print_out(char* buffer, unsigned size) const {
  kp_time_text text;
  char* const end = put_time_of_day(put_date(text, *this), 'T', *this);
  copy_out(text, put_zone(end, gmt_, offset_minutes()), buffer, size);
}

// Walks over a text that tells a time. Every operation either takes what it names and moves on, or
// returns false; then where it stands no longer matters.
class kp_time_reader {
 public:
  explicit kp_time_reader(const char* text) : at_(text) {}

  bool at_end() const { return *at_ == '\0'; }

  // The next character, when it is one of `choices`; '\0' otherwise.
  char take_one_of(const char* choices) {
    return !at_end() && strchr(choices, *at_) != nullptr ? *at_++ : '\0';
  }

  // A number of exactly `digits` digits from `least` to `most`.
  bool take_number(int digits, int least, int most, int& number) {
    number = 0;
    for (int i = 0; i < digits; ++i, ++at_) {
      if (*at_ < '0' || *at_ > '9') return false;
      number = number * 10 + (*at_ - '0');
    }
    return number >= least && number <= most;
  }

 private:
  const char* at_;
};

// What a text tells; the zone is missing unless it is named.
struct kp_told_time {
  int year, month, day;
  int hour = 0, minute = 0, second = 0;
  char zone = '\0';  // 'Z', '+', '-' or none
  int zone_hours = 0, zone_minutes = 0;
};

static bool read_date(kp_time_reader& in, kp_told_time& told) {
  return in.take_number(4, 0, 9999, told.year) && in.take_one_of("-") != '\0' &&
         in.take_number(2, 1, 12, told.month) && in.take_one_of("-") != '\0' &&
         in.take_number(2, 1, days_in_month(told.year, told.month), told.day);
}

static bool read_time_of_day(kp_time_reader& in, kp_told_time& told) {
  return in.take_number(2, 0, 23, told.hour) && in.take_one_of(":") != '\0' &&
         in.take_number(2, 0, 59, told.minute) && in.take_one_of(":") != '\0' &&
         in.take_number(2, 0, 59, told.second);
}

static bool read_zone(kp_time_reader& in, kp_told_time& told) {
  told.zone = in.take_one_of("Z+-");
  if (told.zone == '\0' || told.zone == 'Z') return true;
  return in.take_number(2, 0, 23, told.zone_hours) && in.take_one_of(":") != '\0' &&
         in.take_number(2, 0, 59, told.zone_minutes);
}

static bool read_told_time(const char* text, kp_told_time& told) {
  kp_time_reader in(text);
  if (!read_date(in, told)) return false;
  if (in.at_end()) return true;
  return in.take_one_of("T ") != '\0' && read_time_of_day(in, told) && read_zone(in, told) &&
         in.at_end();
}

bool kp_Time::set_to_string_value(const char* text) {
  kp_told_time told = {};
  if (text == nullptr || !read_told_time(text, told)) return false;
  *this = kp_Time(told.year, told.month, told.day, told.hour, told.minute, told.second,
                  told.zone == 'Z');
  if (told.zone != '+' && told.zone != '-') return true;
  const int minutes = told.zone_hours * 60 + told.zone_minutes;
  zone_bias_ = static_cast<short>(told.zone == '-' ? minutes : -minutes);
  daylight_flag_ = 0;
  return true;
}
