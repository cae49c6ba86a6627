#include <switch.h>

namespace {

/// The character that a backslash makes of `c`; `c` itself when it makes nothing of it.
char unescaped(char c) {
  switch (c) {
    case 'n':
      return '\n';
    case 'r':
      return '\r';
    case 't':
      return '\t';
    case 's':
      return ' ';
    default:
      return c;
  }
}

/// Follows quotes through a text. A quote only opens when there is another one to close it.
class Quotes {
 public:
  explicit Quotes(bool doubles) : doubles_(doubles) {}

  /// Whether the character at `at` opens or closes a quotation; it then counts as seen.
  bool Take(const char* at) {
    if (open_) {
      if (*at != open_) return false;
      open_ = 0;
      return true;
    }
    if (*at != '\'' && !(doubles_ && *at == '"')) return false;
    if (!strchr(at + 1, *at)) return false;
    open_ = *at;
    return true;
  }
  bool Inside() const { return open_ != 0; }

 private:
  const bool doubles_;
  char open_ = 0;
};

/// Takes quotes and escapes out of a piece, and the blanks around it.
char* clean(char* piece, char delim) {
  while (*piece == ' ') ++piece;
  Quotes quotes(delim == ' ');
  char* out = piece;
  char* end = piece;  // behind the last character that stays
  for (const char* in = piece; *in; ++in) {
    if (*in == '\\' && in[1]) {
      const char next = in[1];
      if (next == '\'' || next == '"' || next == delim || unescaped(next) != next) {
        *out++ = next == delim ? delim : unescaped(next);
        end = out;
        ++in;
        continue;
      }
    }
    if (quotes.Take(in)) {
      end = out;
      continue;
    }
    *out++ = *in;
    if (*in != ' ' || quotes.Inside()) end = out;
  }
  *end = '\0';
  return piece;
}

/// Ends the piece at its delimiter; returns where the next one starts, at the terminator when there is none.
char* end_piece(char* at, char delim) {
  Quotes quotes(delim == ' ');
  if (delim == ' ') {
    while (*at == ' ') ++at;
  }
  for (; *at; ++at) {
    if (*at == '\\' && at[1]) {
      ++at;
    } else if (!quotes.Take(at) && *at == delim && !quotes.Inside()) {
      *at++ = '\0';
      break;
    }
  }
  if (delim == ' ') {
    while (*at == ' ') ++at;
  }
  return at;
}

}  // namespace

unsigned int switch_separate_string(char* buf, char delim, char** array, unsigned int arraylen) {
  if (!buf || !array || !arraylen) return 0;
  memset(array, 0, arraylen * sizeof(*array));
  unsigned int count = 0;
  char* at = buf;
  while (*at && count < arraylen) {
    char* piece = at;
    if (count + 1 < arraylen) {
      at = end_piece(at, delim);
    } else {
      at += strlen(at);
    }
    array[count++] = piece;
  }
  for (unsigned int i = 0; i < count; ++i) array[i] = clean(array[i], delim);
  return count;
}
