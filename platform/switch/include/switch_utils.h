#pragma once

/// Small tests and conversions of text that configuration, channel variables and commands share.

#include "switch_apr.h"
#include "switch_types.h"

SWITCH_BEGIN_EXTERN_C

static inline int _zstr(const char* s) {
  return !s || *s == '\0';
}
#define zstr(s) _zstr(s)

#define switch_str_nil(s) (s ? s : "")
#define switch_safe_free(it) \
  if (it) {                  \
    free(it);                \
    it = NULL;               \
  }

#define switch_set_flag(obj, flag) (obj)->flags |= (flag)
#define switch_test_flag(obj, flag) ((obj)->flags & (flag))
#define switch_clear_flag(obj, flag) (obj)->flags &= ~(flag)

/// An optional sign, then digits and points.
SWITCH_DECLARE(switch_bool_t) switch_is_number(const char* str);

static inline switch_bool_t switch_true(const char* expr) {
  static const char* const kWords[] = {"yes", "on", "true", "t", "enabled", "active", "allow"};
  size_t i;
  if (!expr) return SWITCH_FALSE;
  for (i = 0; i < sizeof(kWords) / sizeof(kWords[0]); ++i) {
    if (!strcasecmp(expr, kWords[i])) return SWITCH_TRUE;
  }
  return switch_is_number(expr) && atoi(expr) ? SWITCH_TRUE : SWITCH_FALSE;
}

/// Not the opposite of switch_true: other text is neither, null is not false, and "" is (it counts as a number).
static inline int switch_false(const char* expr) {
  static const char* const kWords[] = {"no", "off", "false", "f", "disabled", "inactive", "disallow"};
  size_t i;
  if (!expr) return SWITCH_FALSE;
  for (i = 0; i < sizeof(kWords) / sizeof(kWords[0]); ++i) {
    if (!strcasecmp(expr, kWords[i])) return SWITCH_TRUE;
  }
  return switch_is_number(expr) && !atoi(expr) ? SWITCH_TRUE : SWITCH_FALSE;
}

/// An absolute path or a URL, after any leading {...} groups and blanks. A group that is not closed is no path.
static inline switch_bool_t switch_is_file_path(const char* file) {
  if (!file) return SWITCH_FALSE;
  while (*file == '{' || *file == ' ' || *file == '\t') {
    if (*file == '{') {
      file = strchr(file, '}');
      if (!file) return SWITCH_FALSE;
    }
    ++file;
  }
  return *file && (*file == '/' || strstr(file, SWITCH_URL_SEPARATOR)) ? SWITCH_TRUE : SWITCH_FALSE;
}

/// Packet times (whole milliseconds) that implementations may have at a sampling rate (Hz). At 8000 and 16000 Hz
/// even ones up to 120 ms are taken, so that wide-band speech codecs of five 20 ms frames per packet can be offered.
static inline switch_bool_t switch_check_interval(uint32_t rate, uint32_t ptime) {
  uint32_t longest = 0;
  switch (rate) {
    case 8000:
    case 16000:
      longest = 120;
      break;
    case 12000:
      longest = 100;
      break;
    case 24000:
    case 32000:
      longest = 60;
      break;
    case 44100:
    case 48000:
      longest = 40;
      break;
    case 11025:
    case 22050:
      return ptime < 120 ? SWITCH_TRUE : SWITCH_FALSE;
    default:
      return SWITCH_FALSE;
  }
  return ptime <= longest && ptime % 2 == 0 ? SWITCH_TRUE : SWITCH_FALSE;
}

/// Holds a reference to a variable ("$", any backslashes, "{")?
static inline switch_bool_t switch_string_var_check_const(const char* s) {
  for (; s && *s; ++s) {
    if (*s == '$') {
      const char* next = s + 1;
      while (*next == '\\') ++next;
      if (*next == '{') return SWITCH_TRUE;
    }
  }
  return SWITCH_FALSE;
}

/// Splits `buf` in place and fills `array` (zeroed first) with at most `arraylen` pieces, the last one keeping the
/// rest; returns how many. With ' ' as delimiter a run of blanks is one delimiter and single and double quotes group;
/// with any other, empty fields are kept, pieces lose the blanks around them and single quotes group. A backslash
/// takes the next character as it is when that is a quote or the delimiter; \n, \r, \t and \s are control characters
/// and a blank.
SWITCH_DECLARE(unsigned int) switch_separate_string(char* buf, char delim, char** array, unsigned int arraylen);
#define switch_split(_data, _delim, _array) \
  switch_separate_string(_data, _delim, _array, (sizeof(_array) / sizeof(_array[0])))

/// First address of `host` as numeric text; FALSE when there is none or it does not fit.
SWITCH_DECLARE(switch_status_t) switch_resolve_host(const char* host, char* buf, size_t buflen);

/// A fresh random uuid as text; `buf` takes 37 bytes at least, else it becomes "".
SWITCH_DECLARE(char*) switch_uuid_str(char* buf, switch_size_t len);

SWITCH_END_EXTERN_C
