#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "sip/destination.h"
#include "sip/pattern.h"

/// Which actions an incoming call runs: the contexts, extensions and conditions of conf/dialplan. A dialplan is built
/// once and then only read, so any number of legs may route through it at once.
namespace kvx_switch {

/// The value of a variable by its name; "" when it is not set.
using VariableLookup = std::function<std::string(const std::string& name)>;

struct Route {
  std::string extension;  ///< name of the (last) extension that matched
  std::vector<DialplanAction> actions;
};

struct DialplanDraft;

class Dialplan {
 public:
  /// What stands in every *.xml below `directory`, mistakes and all. Never null.
  static std::shared_ptr<const DialplanDraft> Draft(const std::string& directory);
  /// The same without mistakes. Null and `error`, a line "file:line: what" for each mistake, when there is any.
  static std::shared_ptr<const Dialplan> Load(const std::string& directory, std::string& error);

  /// The actions for a call in `context`; empty when no extension matches. An extension with continue="true" adds its
  /// actions and lets the ones below it be tried too.
  Route Find(const std::string& context, const VariableLookup& variables) const;

  bool HasContext(const std::string& context) const;

  /// Whether there is a call that goes to an extension of `context` with `number`. What else the conditions look at is
  /// not known and may be anything.
  bool MayRoute(const std::string& context, const std::string& number) const;

 private:
  friend class DialplanReader;

  /// Whether the conditions below are looked at is decided by how this one came out.
  enum class Break { kOnFalse, kOnTrue, kAlways, kNever };
  struct Condition {
    std::string field;  // empty: always holds
    std::shared_ptr<const Pattern> expression;
    Break breaks = Break::kOnFalse;
    std::vector<DialplanAction> actions;
    std::vector<DialplanAction> anti_actions;  // for when it does not hold
  };
  struct Extension {
    std::string name;
    bool continues = false;
    std::vector<Condition> conditions;
  };
  struct Context {
    std::string name;
    std::vector<Extension> extensions;
  };

  static bool Holds(const Condition& condition, const VariableLookup& variables, std::vector<std::string>& match);
  static bool MayMatch(const Extension& extension, const std::string& number);
  static bool Matches(const Extension& extension, const VariableLookup& variables,
                      std::vector<DialplanAction>& actions);

  std::vector<Context> contexts_;
};

/// A dialplan that may have mistakes in it: for finding others that depend on it.
struct DialplanDraft {
  Dialplan dialplan;
  std::string mistakes;         ///< lines "file:line: what"; empty: none
  bool contexts_known = false;  ///< what could not be read has no further context in it
};

/// Replaces ${name} by the variable's value, once: what a value holds is not looked at again, so a caller cannot
/// smuggle a reference in. A "${" that is not closed stays as it is.
std::string ExpandChannelVariables(const std::string& text, const VariableLookup& variables);

}  // namespace kvx_switch
