#include "sip/dialplan.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "sip/dialplan_applications.h"
#include "sip/located_xml.h"

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
  DialplanReader(Dialplan& dialplan, std::string& error) : dialplan_(dialplan), error_(error) {}

  bool ReadFile(const std::string& path) {
    path_ = path;
    LocatedElement root;
    std::string problem;
    if (!ReadLocatedXml(path, root, problem)) return Add(problem);
    if (root.name == "context") return ReadContext(root);
    if (root.name != "include") return Fail(root, "expected <include> or <context>, not <" + root.name + ">");
    return AllGood(root, [this](const LocatedElement& child) {
      return child.name == "context" ? ReadContext(child) : Unexpected(child, "context");
    });
  }

 private:
  bool Fail(const LocatedElement& element, const std::string& what) { return Add(At(path_, element) + what); }

  bool Add(const std::string& mistake) {
    error_ += (error_.empty() ? "" : "\n") + mistake;
    return false;
  }

  /// Reads every child, whatever is wrong with those before it.
  template <typename Reader>
  static bool AllGood(const LocatedElement& element, Reader read) {
    bool good = true;
    for (const LocatedElement& child : element.children) good = read(child) && good;
    return good;
  }

  bool Unexpected(const LocatedElement& element, const std::string& expected) {
    return Fail(element, "expected <" + expected + ">, not <" + element.name + ">");
  }

  bool OnlyAttributes(const LocatedElement& element, std::initializer_list<const char*> known) {
    for (const auto& [attribute, value] : element.attributes) {
      if (std::find(known.begin(), known.end(), attribute) == known.end())
        return Fail(element, "an <" + element.name + "> has no attribute \"" + attribute + "\"");
    }
    return true;
  }

  bool ReadContext(const LocatedElement& element) {
    const std::string* name = element.Attribute("name");
    if (!name || name->empty()) return Fail(element, "a context needs a name");
    auto same = std::find_if(dialplan_.contexts_.begin(), dialplan_.contexts_.end(),
                             [name](const Dialplan::Context& context) { return context.name == *name; });
    if (same == dialplan_.contexts_.end()) {
      dialplan_.contexts_.push_back({*name, {}});
      same = std::prev(dialplan_.contexts_.end());
    }
    return AllGood(element, [&](const LocatedElement& child) {
      if (child.name != "extension") return Unexpected(child, "extension");
      Dialplan::Extension extension;
      const bool good = ReadExtension(child, extension);
      same->extensions.push_back(std::move(extension));
      return good;
    });
  }

  bool ReadExtension(const LocatedElement& element, Dialplan::Extension& extension) {
    const std::string* name = element.Attribute("name");
    extension.name = name ? *name : "(no name)";
    if (!OnlyAttributes(element, {"name", "continue"})) return false;
    const std::string* continues = element.Attribute("continue");
    if (continues && *continues != "true" && *continues != "false")
      return Fail(element, "\"continue\" is \"" + *continues + "\", not \"true\" or \"false\"");
    extension.continues = continues && *continues == "true";
    if (element.children.empty()) return Fail(element, "extension \"" + extension.name + "\" has no condition");
    return AllGood(element, [&](const LocatedElement& child) {
      if (child.name != "condition") return Unexpected(child, "condition");
      Dialplan::Condition condition;
      const bool good = ReadCondition(child, condition);
      extension.conditions.push_back(std::move(condition));
      return good;
    });
  }

  bool ReadCondition(const LocatedElement& element, Dialplan::Condition& condition) {
    for (const auto& [attribute, value] : element.attributes) {
      if (attribute != "field" && attribute != "expression" && attribute != "break") {
        return Fail(element, "a condition has no attribute \"" + attribute + "\"");
      }
    }
    const std::string* field = element.Attribute("field");
    const std::string* expression = element.Attribute("expression");
    if (!field != !expression) return Fail(element, "a condition needs both \"field\" and \"expression\", or neither");
    if (field) {
      condition.field = *field;
      std::string problem;
      condition.expression = Pattern::Compile(*expression, problem);
      if (!condition.expression) return Fail(element, "expression \"" + *expression + "\": " + problem);
    }
    if (!ReadBreak(element, condition)) return false;
    return AllGood(element, [&](const LocatedElement& child) { return ReadAction(child, condition); });
  }

  bool ReadBreak(const LocatedElement& element, Dialplan::Condition& condition) {
    const std::string* text = element.Attribute("break");
    if (!text || *text == "on-false") return true;
    if (*text == "on-true") {
      condition.breaks = Dialplan::Break::kOnTrue;
    } else if (*text == "always") {
      condition.breaks = Dialplan::Break::kAlways;
    } else if (*text == "never") {
      condition.breaks = Dialplan::Break::kNever;
    } else {
      return Fail(element, "\"break\" is \"" + *text + "\", not on-false, on-true, always or never");
    }
    return true;
  }

  bool ReadAction(const LocatedElement& element, Dialplan::Condition& condition) {
    const bool anti = element.name == "anti-action";
    if (!anti && element.name != "action") return Unexpected(element, "action");
    if (!OnlyAttributes(element, {"application", "data"})) return false;
    const std::string* application = element.Attribute("application");
    if (!application) return Fail(element, "an action needs an \"application\"");
    const std::string* data = element.Attribute("data");
    DialplanAction action{*application, data ? *data : ""};
    const std::string fault = FaultOfAction(action.application, action.data);
    if (!fault.empty()) return Fail(element, fault);
    (anti ? condition.anti_actions : condition.actions).push_back(std::move(action));
    return true;
  }

  Dialplan& dialplan_;
  std::string& error_;
  std::string path_;
};

std::shared_ptr<const Dialplan> Dialplan::Load(const std::string& directory, std::string& error) {
  std::vector<std::string> paths;
  if (!ListXmlFiles(directory, paths, error)) return nullptr;
  auto dialplan = std::make_shared<Dialplan>();
  error.clear();
  DialplanReader reader(*dialplan, error);
  for (const std::string& path : paths) reader.ReadFile(path);
  return error.empty() ? dialplan : nullptr;
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
