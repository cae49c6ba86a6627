#include "line_source.h"

#include <histedit.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <utility>

#include "history_file.h"

namespace kvx_cli {
namespace {

constexpr int kHistoryLines = 1000;

/// Returns when standard input can be read, or ends, having served the background meanwhile.
void await_input(const Background& background) {
  for (;;) {
    pollfd waiting[] = {{STDIN_FILENO, POLLIN, 0}, {background.descriptor(), POLLIN, 0}};
    if (poll(waiting, 2, -1) < 0 && errno != EINTR) return;
    if (waiting[0].revents != 0) return;
    if (waiting[1].revents != 0) background.serve();
  }
}

void write_out(const std::string& text) {
  std::fwrite(text.data(), 1, text.size(), stdout);
  std::fflush(stdout);
}

class PipedLines : public LineSource {
 public:
  explicit PipedLines(Background background) : background_(std::move(background)) {}

  bool Next(std::string& line) override {
    for (;;) {
      const size_t end = read_.find('\n');
      if (end != std::string::npos || (over_ && !read_.empty())) {
        line = read_.substr(0, end);
        read_.erase(0, end == std::string::npos ? end : end + 1);
        return true;
      }
      if (over_) return false;
      await_input(background_);
      char bytes[4096];
      const ssize_t count = read(STDIN_FILENO, bytes, sizeof(bytes));
      if (count > 0) read_.append(bytes, static_cast<size_t>(count));
      over_ = count == 0 || (count < 0 && errno != EINTR && errno != EAGAIN);
    }
  }

  void Show(const std::string& text) override { write_out(text); }

 private:
  const Background background_;
  std::string read_;
  bool over_ = false;
};

class EditedLines : public LineSource {
 public:
  EditedLines(const std::string& prompt, Completer complete, Background background)
      : prompt_(prompt),
        complete_(std::move(complete)),
        background_(std::move(background)),
        history_(history_init(), &history_end),
        editor_(el_init("kvx-cli", stdin, stdout, stderr), &el_end),
        file_(history_file()) {
    el_set(editor_.get(), EL_CLIENTDATA, this);
    el_set(editor_.get(), EL_PROMPT, &EditedLines::Prompt);
    el_set(editor_.get(), EL_EDITOR, "emacs");
    el_set(editor_.get(), EL_SIGNAL, 1);
    el_set(editor_.get(), EL_GETCFN, &EditedLines::ReadKey);
    el_set(editor_.get(), EL_ADDFN, "kvx-complete", "completes a word of a command", &EditedLines::Complete);
    el_set(editor_.get(), EL_BIND, "^I", "kvx-complete", nullptr);
    HistEvent event{};
    history(history_.get(), &event, H_SETSIZE, kHistoryLines);
    history(history_.get(), &event, H_SETUNIQUE, 1);
    if (!file_.empty()) history(history_.get(), &event, H_LOAD, file_.c_str());
    el_set(editor_.get(), EL_HIST, history, history_.get());
    el_source(editor_.get(), nullptr);
  }

  ~EditedLines() override {
    if (file_.empty()) return;
    HistEvent event{};
    const mode_t former = umask(077);
    history(history_.get(), &event, H_SAVE, file_.c_str());
    umask(former);
  }

  bool Next(std::string& line) override {
    int length = 0;
    editing_ = true;
    const char* typed = el_gets(editor_.get(), &length);
    editing_ = false;
    if (typed == nullptr || length <= 0) {
      std::fputc('\n', stdout);
      return false;
    }
    line.assign(typed, static_cast<size_t>(length));
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.pop_back();
    HistEvent event{};
    if (line.find_first_not_of(" \t") != std::string::npos) history(history_.get(), &event, H_ENTER, line.c_str());
    return true;
  }

  void Show(const std::string& text) override {
    if (!editing_) return write_out(text);
    // The line that is being typed goes from where it stands and comes back below.
    const char* terminal = std::getenv("TERM");
    const bool erases = terminal != nullptr && std::strcmp(terminal, "dumb") != 0;
    write_out((erases ? "\r\033[K" : "\n") + text);
    el_set(editor_.get(), EL_REFRESH, nullptr);
  }

 private:
  static EditedLines& Of(EditLine* editor) {
    EditedLines* self = nullptr;
    el_get(editor, EL_CLIENTDATA, &self);
    return *self;
  }

  static char* Prompt(EditLine* editor) { return Of(editor).prompt_.data(); }

  /// One character, 1; nothing more, 0; -1 for an error.
  static int ReadKey(EditLine* editor, wchar_t* key) {
    std::mbstate_t state{};
    for (;;) {
      await_input(Of(editor).background_);
      char byte = 0;
      const ssize_t count = read(STDIN_FILENO, &byte, 1);
      if (count < 0 && errno == EINTR) continue;
      if (count <= 0) return static_cast<int>(count);
      const size_t length = std::mbrtowc(key, &byte, 1, &state);
      if (length == static_cast<size_t>(-2)) continue;  // the character goes on
      if (length == static_cast<size_t>(-1)) {
        state = std::mbstate_t{};  // no character of this locale
        continue;
      }
      return 1;
    }
  }

  static unsigned char Complete(EditLine* editor, int) {
    EditedLines& self = Of(editor);
    const LineInfo* line = el_line(editor);
    const size_t typed = static_cast<size_t>(line->cursor - line->buffer);
    const Completion completion = self.complete_(std::string(line->buffer, typed));
    if (!completion.insert.empty() && completion.remove <= typed) {
      if (completion.remove > 0) el_deletestr(editor, static_cast<int>(completion.remove));
      el_insertstr(editor, completion.insert.c_str());
    }
    if (completion.candidates.size() < 2) return completion.insert.empty() ? CC_REFRESH_BEEP : CC_REFRESH;
    std::fputc('\n', stdout);
    for (const std::string& candidate : completion.candidates) std::printf("%s\n", candidate.c_str());
    std::fflush(stdout);
    return CC_REDISPLAY;
  }

  std::string prompt_;
  Completer complete_;
  const Background background_;
  std::unique_ptr<History, decltype(&history_end)> history_;
  std::unique_ptr<EditLine, decltype(&el_end)> editor_;
  std::string file_;
  bool editing_ = false;
};

}  // namespace

std::unique_ptr<LineSource> make_piped_lines(Background background) {
  return std::make_unique<PipedLines>(std::move(background));
}

std::unique_ptr<LineSource> make_edited_lines(const std::string& prompt, Completer complete, Background background) {
  return std::make_unique<EditedLines>(prompt, std::move(complete), std::move(background));
}

}  // namespace kvx_cli
