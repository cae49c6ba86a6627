#include "sip/dialplan.h"

#include <algorithm>
#include <initializer_list>
#include <optional>
#include <set>
#include <utility>

#include "core/configuration.h"
#include "sip/dialplan_applications.h"
#include "sip/located_xml.h"
#include "sip/reference.h"

namespace kvx_switch {

namespace {

// Nothing a number or a name may be is longer.
constexpr size_t kLongestSubject = 256;

/// Replaces $1 to $9 by the groups of `match`.
std::string ExpandGroups(const std::string& text, const std::vector<std::string>& match) {
  std::string expanded;
  for (size_t i = 0; i < text.size(); ++i) {
    bool group = text[i] == '$' && i + 1 < text.size() && text[i + 1] >= '1' && text[i + 1] <= '9';
    if (!group) {
      expanded += text[i];
      continue;
    }
    size_t number = static_cast<size_t>(text[++i] - '0');
    if (number < match.size()) expanded += match[number];
  }
  return expanded;
}

}  // namespace

/// Turns elements into a dialplan and gathers every mistake in them.
class DialplanReader {
 public:
  explicit DialplanReader(DialplanDraft& draft) : draft_(draft) { draft.contexts_known = true; }

  void ReadFile(const std::string& path) {
    path_ = path;
    LocatedElement root;
    std::string problem;
    if (!ReadLocatedXml(path, root, problem)) return AddOutsideContexts(problem);
    if (root.name == "context") return ReadContext(root);
    if (root.name != "include")
      return AddOutsideContexts(At(path, root) + "expected <include> or <context>, not <" + root.name + ">");
    ExpectAttributes(root, {});
    for (const LocatedElement& child : root.children) {
      if (child.name == "context")
        ReadContext(child);
      else
        AddOutsideContexts(At(path, child) + "expected <context>, not <" + child.name + ">");
    }
  }

  /// What only the whole can tell: whether transfers lead anywhere.
  void Finish() {
    for (const Transfer& transfer : transfers_) {
      const bool found = draft_.dialplan.HasContext(transfer.context);
      if (!found && draft_.contexts_known)
        Add(transfer.place + "transfer: there is no context \"" + transfer.context + "\"");
      if (!found || numbers_change_ || unclear_contexts_.count(transfer.context) || transfer.number.empty()) continue;
      if (draft_.dialplan.MayRoute(transfer.context, transfer.number)) continue;
      Add(transfer.place + "transfer: nothing in context \"" + transfer.context + "\" matches \"" + transfer.number +
          "\"");
    }
  }

 private:
  struct Transfer {
    std::string place, context, number;
  };

  void Add(const std::string& mistake) { AddLine(draft_.mistakes, mistake); }
  void Add(const LocatedElement& element, const std::string& what) { Add(At(path_, element) + what); }

  void AddOutsideContexts(const std::string& mistake) {
    draft_.contexts_known = false;
    Add(mistake);
  }

  /// In what decides which calls an extension takes.
  void AddToConditions(const LocatedElement& element, const std::string& what) {
    unclear_contexts_.insert(context_);
    Add(element, what);
  }

  void ExpectAttributes(const LocatedElement& element, std::initializer_list<const char*> known) {
    const std::string unknown = UnknownAttributes(path_, element, known);
    if (unknown.empty()) return;
    unclear_contexts_.insert(context_);
    Add(unknown);
  }

  bool Expect(const char* name, const LocatedElement& element) {
    if (element.name == name) return true;
    AddToConditions(element, std::string("expected <") + name + ">, not <" + element.name + ">");
    return false;
  }

  void ReadContext(const LocatedElement& element) {
    const std::string* name = element.Attribute("name");
    context_ = name ? *name : "";
    // One without a name is read all the same, for the mistakes in it.
    if (context_.empty()) AddOutsideContexts(At(path_, element) + "a context needs a name");
    ExpectAttributes(element, {"name"});
    std::vector<Dialplan::Context>& contexts = draft_.dialplan.contexts_;
    auto same = std::find_if(contexts.begin(), contexts.end(),
                             [this](const Dialplan::Context& context) { return context.name == context_; });
    if (same == contexts.end()) same = contexts.insert(contexts.end(), {context_, {}});
    for (const LocatedElement& child : element.children) {
      if (Expect("extension", child)) ReadExtension(child, same->extensions.emplace_back());
    }
  }

  void ReadExtension(const LocatedElement& element, Dialplan::Extension& extension) {
    const std::string* name = element.Attribute("name");
    extension.name = name ? *name : "(no name)";
    ExpectAttributes(element, {"name", "continue"});
    const std::string* continues = element.Attribute("continue");
    if (continues && *continues != "true" && *continues != "false")
      Add(element, "\"continue\" is \"" + *continues + "\", not \"true\" or \"false\"");
    extension.continues = continues && *continues == "true";
    if (element.children.empty()) AddToConditions(element, "extension \"" + extension.name + "\" has no condition");
    for (const LocatedElement& child : element.children) {
      if (Expect("condition", child)) ReadCondition(child, extension.conditions.emplace_back());
    }
  }

  void ReadCondition(const LocatedElement& element, Dialplan::Condition& condition) {
    ExpectAttributes(element, {"field", "expression", "break"});
    const std::string* field = element.Attribute("field");
    const std::string* expression = element.Attribute("expression");
    if (!field != !expression)
      AddToConditions(element, "a condition needs both \"field\" and \"expression\", or neither");
    std::string problem;
    if (expression) condition.expression = Pattern::Compile(*expression, problem);
    if (expression && !condition.expression) AddToConditions(element, "expression \"" + *expression + "\": " + problem);
    if (field && condition.expression) condition.field = *field;
    ReadBreak(element, condition);
    for (const LocatedElement& child : element.children) ReadAction(child, condition);
  }

  void ReadBreak(const LocatedElement& element, Dialplan::Condition& condition) {
    const std::string* text = element.Attribute("break");
    if (!text || *text == "on-false") return;
    if (*text == "on-true") {
      condition.breaks = Dialplan::Break::kOnTrue;
    } else if (*text == "always") {
      condition.breaks = Dialplan::Break::kAlways;
    } else if (*text == "never") {
      condition.breaks = Dialplan::Break::kNever;
    } else {
      AddToConditions(element, "\"break\" is \"" + *text + "\", not on-false, on-true, always or never");
    }
  }

  void ReadAction(const LocatedElement& element, Dialplan::Condition& condition) {
    const bool anti = element.name == "anti-action";
    if (!anti && !Expect("action", element)) return;
    ExpectAttributes(element, {"application", "data"});
    const std::string* application = element.Attribute("application");
    const std::string* data = element.Attribute("data");
    DialplanAction action{application ? *application : "", data ? *data : ""};
    const std::string fault =
        application ? FaultOfAction(action.application, action.data) : "an action needs an \"application\"";
    if (!fault.empty()) {
      Add(element, fault);
    } else if (action.application == "transfer") {
      NoteTransfer(element, action.data);
    }
    numbers_change_ = numbers_change_ || action.data.find("destination_number=") != std::string::npos;
    (anti ? condition.anti_actions : condition.actions).push_back(std::move(action));
  }

  /// What the call decides is left out: a number with a reference in it is none here.
  void NoteTransfer(const LocatedElement& element, const std::string& data) {
    const std::vector<std::string> words = WordsOf(data);
    if (words.empty() || words.size() > 3 || HasReference(words.back())) return;
    const bool literal = !HasReference(words[0]);
    transfers_.push_back({At(path_, element), words.size() == 3 ? words[2] : context_, literal ? words[0] : ""});
  }

  DialplanDraft& draft_;
  std::string path_;
  std::string context_;
  std::set<std::string> unclear_contexts_;  // whose extensions may match what they do not seem to
  bool numbers_change_ = false;             // a variable hides the number that was called
  std::vector<Transfer> transfers_;
};

std::shared_ptr<const DialplanDraft> Dialplan::Draft(const std::string& directory) {
  auto draft = std::make_shared<DialplanDraft>();
  std::vector<std::string> paths;
  if (!ListXmlFiles(directory, paths, draft->mistakes)) return draft;
  DialplanReader reader(*draft);
  for (const std::string& path : paths) reader.ReadFile(path);
  reader.Finish();
  return draft;
}

std::shared_ptr<const Dialplan> Dialplan::Load(const std::string& directory, std::string& error) {
  const std::shared_ptr<const DialplanDraft> draft = Draft(directory);
  error = draft->mistakes;
  return error.empty() ? std::shared_ptr<const Dialplan>(draft, &draft->dialplan) : nullptr;
}

bool Dialplan::Holds(const Condition& condition, const VariableLookup& variables, std::vector<std::string>& match) {
  if (condition.field.empty()) return true;
  // A field is a variable's name, or text with references in it.
  const std::string subject = condition.field.find("${") == std::string::npos
                                  ? variables(condition.field)
                                  : ExpandChannelVariables(condition.field, variables);
  auto found = subject.size() > kLongestSubject ? std::nullopt : condition.expression->Search(subject);
  if (found) match = std::move(*found);
  return found.has_value();
}

/// An extension matches when something in it applied, unless it broke off at a condition that did not hold and had
/// nothing to do for that case.
bool Dialplan::Matches(const Extension& extension, const VariableLookup& variables,
                       std::vector<DialplanAction>& actions) {
  bool matches = false;
  for (const Condition& condition : extension.conditions) {
    std::vector<std::string> match;
    const bool holds = Holds(condition, variables, match);
    const bool applies = holds || !condition.anti_actions.empty();
    matches = matches || applies;
    for (const DialplanAction& action : holds ? condition.actions : condition.anti_actions) {
      actions.push_back({action.application, ExpandGroups(action.data, match)});
    }
    const Break breaks = condition.breaks;
    if (breaks == Break::kAlways || breaks == (holds ? Break::kOnTrue : Break::kOnFalse)) return matches && applies;
  }
  return matches;
}

Route Dialplan::Find(const std::string& context, const VariableLookup& variables) const {
  Route route;
  auto found = std::find_if(contexts_.begin(), contexts_.end(),
                            [&context](const Context& candidate) { return candidate.name == context; });
  if (found == contexts_.end()) return route;
  for (const Extension& extension : found->extensions) {
    std::vector<DialplanAction> actions;
    if (!Matches(extension, variables, actions)) continue;
    route.extension = extension.name;
    route.actions.insert(route.actions.end(), actions.begin(), actions.end());
    if (!extension.continues) break;
  }
  return route;
}

bool Dialplan::HasContext(const std::string& context) const {
  return std::any_of(contexts_.begin(), contexts_.end(),
                     [&context](const Context& candidate) { return candidate.name == context; });
}

/// As Matches, with every condition that looks at something else than the number holding or not, whichever leads there.
bool Dialplan::MayMatch(const Extension& extension, const std::string& number) {
  bool may_match = false;
  for (const Condition& condition : extension.conditions) {
    const bool judged = condition.field == "destination_number" || condition.field == "${destination_number}";
    const bool found = judged && condition.expression->Search(number).has_value();
    const bool may_hold = condition.field.empty() || !judged || found;
    const bool may_fail = !condition.field.empty() && (!judged || !found);
    const bool other_actions = !condition.anti_actions.empty();
    const bool ends_if_true = condition.breaks == Break::kAlways || condition.breaks == Break::kOnTrue;
    const bool ends_if_false = condition.breaks == Break::kAlways || condition.breaks == Break::kOnFalse;
    if ((may_hold && ends_if_true) || (may_fail && ends_if_false && other_actions)) return true;
    if ((!may_hold || ends_if_true) && (!may_fail || ends_if_false)) return false;  // whichever it is, it ends here
    may_match = may_match || may_hold || other_actions;
  }
  return may_match;
}

bool Dialplan::MayRoute(const std::string& context, const std::string& number) const {
  const auto found = std::find_if(contexts_.begin(), contexts_.end(),
                                  [&context](const Context& candidate) { return candidate.name == context; });
  return found != contexts_.end() &&
         std::any_of(found->extensions.begin(), found->extensions.end(),
                     [&number](const Extension& extension) { return MayMatch(extension, number); });
}

std::string ExpandChannelVariables(const std::string& text, const VariableLookup& variables) {
  std::string expanded;
  size_t position = 0;
  while (true) {
    size_t start = text.find("${", position);
    size_t end = start == std::string::npos ? start : text.find('}', start);
    if (end == std::string::npos) break;
    expanded.append(text, position, start - position);
    expanded += variables(text.substr(start + 2, end - start - 2));
    position = end + 1;
  }
  return expanded.append(text, position, std::string::npos);
}

}  // namespace kvx_switch
