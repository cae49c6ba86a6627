#include "core/completion.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <set>
#include <sstream>
#include <vector>

#include "core/guard.h"
#include "core/interface_list.h"
#include "core/receiver.h"
#include "core/xml_builder.h"

namespace kvx_switch {
namespace {

using Words = std::vector<std::string>;

struct Completion {
  Words words;
  std::string module;
};

struct Function {
  explicit Function(switch_console_complete_callback_t function) : callback(function) {}
  const switch_console_complete_callback_t callback;
  Receiver receiver;
};

struct Completions {
  std::mutex mutex;
  std::vector<Completion> lines;                               // guarded by mutex
  std::map<std::string, std::shared_ptr<Function>> functions;  // guarded by mutex; by name without "::"
};

Completions& the_completions() {
  static Completions* const completions = new Completions;
  return *completions;
}

std::string& owner_here() {
  thread_local std::string owner;
  return owner;
}

Words split(const std::string& line) {
  std::istringstream stream(line);
  Words words;
  for (std::string word; stream >> word;) words.push_back(word);
  return words;
}

std::string plain_name(const std::string& name) {
  return name.compare(0, 2, "::") == 0 ? name.substr(2) : name;
}

/// The choices of a word "::[a:b" (a closing bracket may follow).
Words choices(const std::string& word) {
  Words found;
  std::string list = word.substr(3);
  if (!list.empty() && list.back() == ']') list.pop_back();
  std::istringstream stream(list);
  for (std::string choice; std::getline(stream, choice, ':');) {
    if (!choice.empty()) found.push_back(choice);
  }
  return found;
}

bool is_choice(const std::string& word) {
  return word.compare(0, 3, "::[") == 0;
}
bool is_function(const std::string& word) {
  return !is_choice(word) && word.compare(0, 2, "::") == 0;
}

bool equal(const std::string& a, const std::string& b) {
  return !strcasecmp(a.c_str(), b.c_str());
}

bool begins(const std::string& word, const std::string& start) {
  return !strncasecmp(word.c_str(), start.c_str(), start.size());
}

/// Whether a word that is already typed is one that the completion has at that place.
bool fits(const std::string& typed, const std::string& word) {
  if (is_function(word)) return true;
  if (!is_choice(word)) return equal(typed, word);
  const Words all = choices(word);
  return std::any_of(all.begin(), all.end(), [&](const std::string& choice) { return equal(typed, choice); });
}

/// Candidates in the order found, each once.
class Candidates {
 public:
  explicit Candidates(std::string start) : start_(std::move(start)) {}

  void Add(const std::string& word) {
    if (begins(word, start_) && seen_.insert(word).second) words_.push_back(word);
  }
  const Words& words() const { return words_; }
  const std::string& start() const { return start_; }

 private:
  const std::string start_;
  Words words_;
  std::set<std::string> seen_;
};

void add_from_function(const std::string& name, const std::string& line, Candidates& candidates) {
  std::shared_ptr<Function> function;
  {
    std::lock_guard<std::mutex> lock(the_completions().mutex);
    const auto found = the_completions().functions.find(plain_name(name));
    if (found == the_completions().functions.end()) return;
    function = found->second;
  }
  const Receiver::Call call(function->receiver);
  if (!call) return;
  switch_console_callback_match_t* matches = nullptr;
  switch_status_t status = SWITCH_STATUS_FALSE;
  std::string what;
  const auto ask = [&] { status = function->callback(line.c_str(), candidates.start().c_str(), &matches); };
  if (!RunGuarded(ask, what)) {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, "An exception left the completion function %s: %s\n",
                      name.c_str(), what.c_str());
  }
  if (status == SWITCH_STATUS_SUCCESS && matches) {
    for (auto* at = matches->head; at; at = at->next) candidates.Add(at->val);
  }
  switch_console_free_matches(&matches);
}

/// The words that may stand behind `before`, as completions give them.
Words next_words(const Words& before) {
  std::lock_guard<std::mutex> lock(the_completions().mutex);
  Words found;
  for (const Completion& completion : the_completions().lines) {
    const Words& words = completion.words;
    if (words.size() > before.size() && std::equal(before.begin(), before.end(), words.begin(), fits)) {
      found.push_back(words[before.size()]);
    }
  }
  return found;
}

Candidates find_candidates(const std::string& line, const std::string& last_word) {
  Words before = split(line);
  if (!last_word.empty() && !before.empty()) before.pop_back();
  Candidates candidates(last_word);
  for (const std::string& word : next_words(before)) {
    if (is_function(word)) {
      add_from_function(word, line, candidates);
    } else if (is_choice(word)) {
      for (const std::string& choice : choices(word)) candidates.Add(choice);
    } else {
      candidates.Add(word);
    }
  }
  if (before.empty()) {
    for (const ApiInfo& api : ListApis()) candidates.Add(api.name);
  }
  return candidates;
}

/// What all candidates begin with.
std::string common_start(const Words& words) {
  std::string common = words.front();
  for (const std::string& word : words) {
    size_t length = 0;
    while (length < common.size() && length < word.size() && tolower(common[length]) == tolower(word[length])) ++length;
    common.resize(length);
  }
  return common;
}

void write_to_stream(const Candidates& candidates, switch_stream_handle_t* stream) {
  const Words& words = candidates.words();
  for (const std::string& word : words) stream->write_function(stream, "%s\n", word.c_str());
  if (words.empty()) return;
  std::string common = common_start(words);
  if (words.size() == 1) common += ' ';
  if (common.size() > candidates.start().size()) {
    stream->write_function(stream, "write=%zu:%s\n", candidates.start().size(), common.c_str());
  }
}

}  // namespace

CompletionOwner::CompletionOwner(const std::string& module) : previous_(owner_here()) {
  owner_here() = module;
}
CompletionOwner::~CompletionOwner() {
  owner_here() = previous_;
}

void RemoveCompletionsOf(const std::string& module) {
  std::lock_guard<std::mutex> lock(the_completions().mutex);
  auto& lines = the_completions().lines;
  lines.erase(std::remove_if(lines.begin(), lines.end(), [&](const Completion& at) { return at.module == module; }),
              lines.end());
}

int RemoveCompletionFunctionsIf(const std::function<bool(void*)>& is_doomed) {
  std::vector<std::shared_ptr<Function>> removed;
  {
    std::lock_guard<std::mutex> lock(the_completions().mutex);
    auto& functions = the_completions().functions;
    for (auto at = functions.begin(); at != functions.end();) {
      if (is_doomed(reinterpret_cast<void*>(at->second->callback))) {
        removed.push_back(at->second);
        at = functions.erase(at);
      } else {
        ++at;
      }
    }
  }
  for (const auto& function : removed) function->receiver.Remove();
  return static_cast<int>(removed.size());
}

void ClearCompletions() {
  RemoveCompletionFunctionsIf([](void*) { return true; });
  std::lock_guard<std::mutex> lock(the_completions().mutex);
  the_completions().lines.clear();
}

}  // namespace kvx_switch

using namespace kvx_switch;

void switch_console_push_match(switch_console_callback_match_t** matches, const char* new_val) {
  if (!*matches) {
    *matches = static_cast<switch_console_callback_match_t*>(calloc(1, sizeof(**matches)));
    switch_assert(*matches != nullptr);
  }
  auto* node =
      static_cast<switch_console_callback_match_node_t*>(calloc(1, sizeof(switch_console_callback_match_node_t)));
  switch_assert(node != nullptr);
  node->val = strdup(new_val);
  ((*matches)->end ? (*matches)->end->next : (*matches)->head) = node;
  (*matches)->end = node;
  ++(*matches)->count;
}

void switch_console_free_matches(switch_console_callback_match_t** matches) {
  if (!matches || !*matches) return;
  for (auto* at = (*matches)->head; at;) {
    auto* next = at->next;
    free(at->val);
    free(at);
    at = next;
  }
  free(*matches);
  *matches = nullptr;
}

switch_status_t switch_console_add_complete_func(const char* name, switch_console_complete_callback_t cb) {
  if (zstr(name) || !cb) return SWITCH_STATUS_FALSE;
  std::lock_guard<std::mutex> lock(the_completions().mutex);
  the_completions().functions[plain_name(name)] = std::make_shared<Function>(cb);
  return SWITCH_STATUS_SUCCESS;
}

switch_status_t switch_console_del_complete_func(const char* name) {
  if (zstr(name)) return SWITCH_STATUS_FALSE;
  std::shared_ptr<Function> function;
  {
    std::lock_guard<std::mutex> lock(the_completions().mutex);
    const auto found = the_completions().functions.find(plain_name(name));
    if (found == the_completions().functions.end()) return SWITCH_STATUS_FALSE;
    function = found->second;
    the_completions().functions.erase(found);
  }
  function->receiver.Remove();
  return SWITCH_STATUS_SUCCESS;
}

switch_status_t switch_console_set_complete(const char* string) {
  Words words = split(switch_str_nil(string));
  if (words.size() < 2) return SWITCH_STATUS_FALSE;
  const std::string verb = words.front();
  words.erase(words.begin());
  std::lock_guard<std::mutex> lock(the_completions().mutex);
  auto& lines = the_completions().lines;
  const auto same = [&](const Completion& at) { return at.words == words; };
  if (verb == "add") {
    if (std::none_of(lines.begin(), lines.end(), same)) lines.push_back({words, owner_here()});
    return SWITCH_STATUS_SUCCESS;
  }
  if (verb != "del") return SWITCH_STATUS_FALSE;
  if (words.size() == 1 && words.front() == "*") {
    lines.clear();
    return SWITCH_STATUS_SUCCESS;
  }
  // All that begin with these words.
  lines.erase(std::remove_if(lines.begin(), lines.end(),
                             [&](const Completion& at) {
                               return at.words.size() >= words.size() &&
                                      std::equal(words.begin(), words.end(), at.words.begin());
                             }),
              lines.end());
  return SWITCH_STATUS_SUCCESS;
}

unsigned char switch_console_complete(const char* line, const char* last_word, FILE* console_out,
                                      switch_stream_handle_t* stream, switch_xml_t xml) {
  const std::string text = switch_str_nil(line);
  std::string last = switch_str_nil(last_word);
  if (!last_word && !text.empty()) {
    const size_t blank = text.find_last_of(" \t");
    last = blank == std::string::npos ? text : text.substr(blank + 1);
  }
  const Candidates candidates = find_candidates(text, last);
  if (console_out) {
    for (const std::string& word : candidates.words()) fprintf(console_out, "%s\n", word.c_str());
  }
  if (stream) write_to_stream(candidates, stream);
  if (xml) {
    for (const std::string& word : candidates.words()) AppendXmlElement(xml, "match", word);
  }
  return static_cast<unsigned char>(std::min<size_t>(candidates.words().size(), 255));
}
