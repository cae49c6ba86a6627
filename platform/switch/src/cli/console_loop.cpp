#include "console_loop.h"

#include <histedit.h>
#include <sys/stat.h>
#include <unistd.h>

#include <clocale>
#include <cstdio>
#include <functional>
#include <iostream>
#include <memory>
#include <utility>

#include "completion.h"
#include "history_file.h"

namespace kvx_cli {
namespace {

constexpr int kHistoryLines = 1000;

using Completer = std::function<Completion(const std::string& line)>;

/// Lines one after another; false at the end of input.
class LineSource {
 public:
  virtual ~LineSource() = default;
  virtual bool Next(std::string& line) = 0;
};

class PipedLines : public LineSource {
 public:
  bool Next(std::string& line) override { return static_cast<bool>(std::getline(std::cin, line)); }
};

class EditedLines : public LineSource {
 public:
  EditedLines(const std::string& prompt, Completer complete)
      : prompt_(prompt),
        complete_(std::move(complete)),
        history_(history_init(), &history_end),
        editor_(el_init("kvx-cli", stdin, stdout, stderr), &el_end),
        file_(history_file()) {
    el_set(editor_.get(), EL_CLIENTDATA, this);
    el_set(editor_.get(), EL_PROMPT, &EditedLines::Prompt);
    el_set(editor_.get(), EL_EDITOR, "emacs");
    el_set(editor_.get(), EL_SIGNAL, 1);
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
    const char* typed = el_gets(editor_.get(), &length);
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

 private:
  static char* Prompt(EditLine* editor) {
    EditedLines* self = nullptr;
    el_get(editor, EL_CLIENTDATA, &self);
    return self->prompt_.data();
  }

  static unsigned char Complete(EditLine* editor, int) {
    EditedLines* self = nullptr;
    el_get(editor, EL_CLIENTDATA, &self);
    const LineInfo* line = el_line(editor);
    const size_t typed = static_cast<size_t>(line->cursor - line->buffer);
    const Completion completion = self->complete_(std::string(line->buffer, typed));
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
  std::unique_ptr<History, decltype(&history_end)> history_;
  std::unique_ptr<EditLine, decltype(&el_end)> editor_;
  std::string file_;
};

std::string without_outer_blanks(const std::string& line) {
  const size_t first = line.find_first_not_of(" \t\r");
  if (first == std::string::npos) return "";
  return line.substr(first, line.find_last_not_of(" \t\r") - first + 1);
}

}  // namespace

ExitCode run_console(EventSocketClient& client, const Options& options) {
  std::setlocale(LC_ALL, "");
  std::unique_ptr<LineSource> lines;
  if (isatty(STDIN_FILENO) != 0) {
    lines = std::make_unique<EditedLines>("kvx@" + options.host + "> ", [&](const std::string& line) {
      std::string output;
      if (client.Connected()) client.Api("console_complete " + line, options.timeout, output);
      return parse_completion(output);
    });
  } else {
    lines = std::make_unique<PipedLines>();
  }

  ExitCode result = kExitDone;
  std::string line;
  while (lines->Next(line)) {
    line = without_outer_blanks(line);
    if (line.empty()) continue;
    if (line == "exit" || line == "quit" || line == "bye") break;
    // The switch may have been restarted while nobody typed.
    if (!client.Connected()) {
      result = connect_to_switch(client, options);
      if (result != kExitDone) continue;
    }
    result = run_command(client, options, line);
  }
  return result;
}

}  // namespace kvx_cli
